#include "dsp/v3/CPhaseVocoderV3.h"

#include "dsp/floor/FftWindows.h"
#include "dsp/v3/CPhaseVocoderV3Rows.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <iterator>

namespace meridex
{
using namespace vocoderRows;

namespace
{
bool isPowerOfTwo (int n) noexcept
{
    return n > 0 && (n & (n - 1)) == 0;
}
} // namespace

int CPhaseVocoderV3::init (int newFrameSize, int newAnalysisHop, int newSynthesisHop, float newRatio,
                           int numChannels) noexcept
{
    if (! isPowerOfTwo (newFrameSize) || newFrameSize < 256 || newFrameSize > 32768 || numChannels < kMinChannels
        || numChannels > kMaxChannels)
        return kBadArgument;

    ops = &dispatch();
    frameSize = newFrameSize;
    half = frameSize / 2;
    bins = half + 1;
    channels = numChannels;

    int result = createFFT (fft.receive(), frameSize, 1, kWindowNone);
    if (result != kNoError)
        return result;

    const int twoN = 2 * frameSize;
    const int codes[] = {
        frames.init (channels, twoN),
        spectra.init (channels, frameSize),
        accumulators.init (channels + 1, twoN),
        magnitudes.init (channels, bins),
        held.init (channels, bins),
        history.init (kHistoryRows, bins),
        windows.init (kWindowRows, frameSize),
        work.init (kWorkRows, frameSize),
        binRows.init (kBinRows, bins),
        intRows.init (kIntRows, bins + 1),
        classRows.init (kClassRows, bins),
        peakSums.init (kSumRows, bins),
        auxFrames.init (channels, twoN),
        auxAccumulators.init (channels, twoN),
        auxSpectra.init (channels, frameSize),
        masks.init (kMaskRows, frameSize),
    };
    for (int code : codes)
        if (code != kNoError)
            return code;

    olaSum = accumulators[channels];
    classOfPeak = reinterpret_cast<QvrTransientState_t*> (classRows[kClass]);
    classOfPeakPrevious = reinterpret_cast<QvrTransientState_t*> (classRows[kClassPrevious]);
    peaks = intRows[kPeakList];

    upperBin = bins;
    lowerBin = 0;
    auxFallingHop = auxRisingHop = 0;
    analysisCubed = false;
    synthesisAsymmetric = false;
    ratio = newRatio;
    buildAnalysisWindow (newRatio >= 1.5f);
    buildSymmetricSynthesis();
    reset();
    setHops (frameSize, newAnalysisHop, newSynthesisHop, newRatio);
    buildAuxRising();
    return kNoError;
}

void CPhaseVocoderV3::reset() noexcept
{
    if (frameSize == 0)
        return;
    frames.clear();
    std::fill (std::begin (frameOffsets), std::end (frameOffsets), 0);
    spectra.clear();
    accumulators.clear();
    magnitudes.clear();
    held.clear();
    history.clear();
    history.resetRowOrder();
    work.clear();
    classRows.clear();
    peakSums.clear();
    auxFrames.clear();
    auxAccumulators.clear();
    auxSpectra.clear();
    resetMasks();
    for (int row : { kPhase, kPreviousPhase, kIncrement, kSynthesisPhase, kRampProduct, kTheta, kCos, kSin })
        ops->zero (binRows[row], bins);
    for (int i = 0; i < 2 * frameSize; ++i)
        olaSum[i] = kSmallestSum;

    bypass = ratio == 1.0f;
    hopsSetSinceReset = false;
    firstVisit = true;
    previousFrameRatio = ratio;
    lastHop = 0;
    attackOffset = 0;
    peakCount = 0;
    // Out of reach for good: the position only moves while above -N/2.
    transientPosition = static_cast<float> (-frameSize);
    transientWrapped = 0.0f;
}

void CPhaseVocoderV3::setUpperBin (int bin) noexcept
{
    upperBin = bin < 1 ? 1 : (bin > bins ? bins : bin);
}

// ---------------------------------------------------------------------------
// The step machine.

void CPhaseVocoderV3::processStep (const float* const* input, const float* const* aux, float* const* output,
                                   int step) noexcept
{
    if (frameSize == 0)
        return;
    if (step < 0)
    {
        const int channel = -step - 1;
        if (channel < channels && input != nullptr)
            shiftInput (input[channel], channel);
        return;
    }
    const int channel = step / kStagesPerChannel;
    if (channel >= channels)
        return;
    const bool auxOn = aux != nullptr;

    switch (step % kStagesPerChannel)
    {
        case 0: stageInput (input, channel); break;
        case 1:
            if (auxOn)
            {
                if (channel == 0)
                    resetMasks();
                stageAuxInput (aux, channel);
            }
            stagePolar (channel);
            break;
        case 2:
            if (channel == 0 && ! bypass)
                stagePeaks();
            break;
        case 3:
            if (channel == 0 && ! bypass)
            {
                if (firstVisit)
                {
                    stageClassify();
                    // A repeat keeps the routing of its analysis frame.
                    if (auxOn)
                        routeSteadyBins();
                }
                stagePropagate();
            }
            stageApply (channel);
            if (auxOn)
            {
                // A repeat has no stage 1, but its hop of aux is new all the same.
                if (! firstVisit)
                    stageAuxInput (aux, channel);
                applyMasks (channel);
            }
            break;
        default: stageOutput (output, auxOn, channel); break;
    }
}

// The frame slides along a row of 2N: it moves back to the row's start only
// when the next hop would run past the end, so the N - hop samples that stay
// are moved once every N / hop frames instead of every frame.
void CPhaseVocoderV3::shiftInput (const float* input, int channel) noexcept
{
    float* row = frames[channel];
    int& offset = frameOffsets[channel];
    if (offset + frameSize + analysisHop <= 2 * frameSize)
        offset += analysisHop;
    else
    {
        std::memmove (row, row + offset + analysisHop, sizeof (float) * static_cast<size_t> (frameSize - analysisHop));
        offset = 0;
    }
    float* frame = row + offset;
    if (input != nullptr)
        std::memcpy (frame + frameSize - analysisHop, input, sizeof (float) * static_cast<size_t> (analysisHop));
    else
        ops->zero (frame + frameSize - analysisHop, analysisHop);
}

// Stage 0: the frame in zero-phase order (its centre at index 0), so that the
// phase of a bin is measured at the frame's centre.
void CPhaseVocoderV3::stageInput (const float* const* input, int channel) noexcept
{
    shiftInput (input != nullptr ? input[channel] : nullptr, channel);

    const float* frame = frames[channel] + frameOffsets[channel];
    const float* window = windows[kAnalysisScaled];
    float* time = work[kWorkTime];
    for (int j = 0; j < half; ++j)
    {
        time[j] = frame[half + j] * window[half + j];
        time[half + j] = frame[j] * window[j];
    }
    fft->forward (spectra[channel], time);

    if (channel != 0)
        return;

    firstVisit = true;
    if (transientPosition > static_cast<float> (-half))
        transientPosition -= static_cast<float> (analysisHop);
    if (bypass)
        return;

    const float* rampWindow = windows[kAnalysisRampScaled];
    float* ramp = work[kWorkRamp];
    for (int j = 0; j < half; ++j)
    {
        ramp[j] = frame[half + j] * rampWindow[half + j];
        ramp[half + j] = frame[j] * rampWindow[j];
    }
    fft->forward (ramp, ramp);

    const float* x = spectra[0];
    float* product = binRows[kRampProduct];
    product[0] = x[0] * ramp[0];
    product[half] = x[1] * ramp[1];
    for (int k = 1; k < half; ++k)
        product[k] = x[2 * k] * ramp[2 * k] + x[2 * k + 1] * ramp[2 * k + 1];
}

// Stage 1: magnitudes; on channel 0 phases, phase increments and history.
void CPhaseVocoderV3::stagePolar (int channel) noexcept
{
    ops->magnitude (magnitudes[channel], spectra[channel], frameSize);
    if (channel != 0)
        return;

    float* phase = binRows[kPhase];
    float* previous = binRows[kPreviousPhase];
    float* increment = binRows[kIncrement];
    const float* omega = binRows[kExpected];
    ops->phase (phase, spectra[0], frameSize);
    for (int k = 0; k < bins; ++k)
        increment[k] = phase[k] - previous[k] - omega[k];
    ops->wrapPhase (increment, bins);
    ops->add (increment, omega, bins);
    increment[0] = omega[0];
    std::memcpy (previous, phase, sizeof (float) * static_cast<size_t> (bins));

    history.rotateRows();
    std::memcpy (history[0], magnitudes[0], sizeof (float) * static_cast<size_t> (bins));
}

// Stage 3 on channel 0, every visit: new synthesis phases of the peaks, and
// the per-bin factor that every channel's spectrum is multiplied by.
void CPhaseVocoderV3::stagePropagate() noexcept
{
    const float* phase = binRows[kPhase];
    const float* increment = binRows[kIncrement];
    float* psi = binRows[kSynthesisPhase];
    float* theta = binRows[kTheta];
    float* cosine = binRows[kCos];
    float* sine = binRows[kSin];
    const int* peakOf = intRows[kPeakOf];

    // This frame lies one spacing (the hop the last frame shifted out) after
    // the last in the output: the phases advance by exactly that, so a
    // frame one sample longer or shorter than the mean keeps the partials
    // continuous and the pitch exact.
    const int spacing = lastHop > 0 ? lastHop : frameHop;
    const float advance = static_cast<float> (spacing) / static_cast<float> (analysisHop);

    if (! firstVisit)
    {
        // A repeat of an attack frame continues like a steady one.
        for (int k = 0; k < bins; ++k)
            if (classOfPeak[k] == kTransientAttack)
                classOfPeak[k] = kTransientSteady;
    }

    // The peaks' rotations are gathered so that their sines and cosines run
    // four at a time, then go back to the peaks' bins.
    float* angles = binRows[kPeakAngle];
    float* peakSines = binRows[kPeakSin];
    float* peakCosines = binRows[kPeakCos];
    for (int i = 0; i < peakCount; ++i)
    {
        const int p = peaks[i];
        // An attack snaps the synthesis phase to the input's: theta is 0.
        const float advanced = classOfPeak[p] == kTransientAttack ? phase[p] : psi[p] + increment[p] * advance;
        const float rotation = advanced - phase[p];
        theta[p] = rotation;
        angles[i] = rotation;
    }
    ops->sinCos (peakSines, peakCosines, angles, peakCount);
    for (int i = 0; i < peakCount; ++i)
    {
        const int p = peaks[i];
        cosine[p] = peakCosines[i];
        sine[p] = peakSines[i];
    }

    // The attack moves from T to ratio * T: a linear phase of 2 pi k sigma / N.
    const double sigma = firstVisit ? attackOffset * (1.0 - static_cast<double> (ratio)) : 0.0;
    const double stepAngle = kTwoPi * sigma / frameSize;
    const double stepCos = std::cos (stepAngle);
    const double stepSin = std::sin (stepAngle);
    double zr = 1.0, zi = 0.0;

    float* rotation = work[kWorkRotation];
    rotation[0] = 1.0f;
    rotation[1] = upperBin > half ? 1.0f : 0.0f;
    const int limit = upperBin < half ? upperBin : half;
    for (int k = 1; k < half; ++k)
    {
        const double nr = zr * stepCos - zi * stepSin;
        zi = zr * stepSin + zi * stepCos;
        zr = nr;
        if (k >= limit)
        {
            rotation[2 * k] = rotation[2 * k + 1] = 0.0f;
            psi[k] = phase[k];
            continue;
        }
        const int p = peakOf[k];
        if (classOfPeak[k] == kTransientAttack)
        {
            if (sigma == 0.0)
            {
                rotation[2 * k] = attackGain * cosine[p];
                rotation[2 * k + 1] = attackGain * sine[p];
                psi[k] = phase[k] + theta[p];
            }
            else
            {
                rotation[2 * k] = static_cast<float> (attackGain * zr);
                rotation[2 * k + 1] = static_cast<float> (attackGain * zi);
                psi[k] = static_cast<float> (phase[k] + std::fmod (stepAngle * k, kTwoPi));
            }
        }
        else
        {
            rotation[2 * k] = cosine[p];
            rotation[2 * k + 1] = sine[p];
            psi[k] = phase[k] + theta[p];
        }
    }
    psi[0] = phase[0];
    psi[half] = phase[half];
    ops->wrapPhase (psi, bins);
}

// Stage 3 for one channel: the synthesis spectrum.
void CPhaseVocoderV3::stageApply (int channel) noexcept
{
    float* synthesis = work[kWorkSynthesis];
    const float* spectrum = spectra[channel];
    const float* magnitude = magnitudes[channel];
    float* hold = held[channel];
    std::memcpy (synthesis, spectrum, sizeof (float) * static_cast<size_t> (frameSize));

    if (bypass)
    {
        std::memcpy (hold, magnitude, sizeof (float) * static_cast<size_t> (bins));
        if (channel == 0)
            std::memcpy (binRows[kSynthesisPhase], binRows[kPhase], sizeof (float) * static_cast<size_t> (bins));
        return;
    }

    ops->complexMultiply (synthesis, work[kWorkRotation], frameSize);

    // Bins before an attack keep the magnitude from before it; steady bins
    // refresh what is held, unless the attack has only just passed.
    const int limit = upperBin < half ? upperBin : half;
    for (int k = 1; k < limit; ++k)
    {
        const QvrTransientState_t state = classOfPeak[k];
        if (state == kTransientBeforeAttack)
        {
            const float scale = magnitude[k] > 1.0e-30f ? hold[k] / magnitude[k] : 0.0f;
            synthesis[2 * k] *= scale;
            synthesis[2 * k + 1] *= scale;
        }
        else if (state != kTransientAttack && classOfPeakPrevious[k] != kTransientAttack)
        {
            hold[k] = magnitude[k];
        }
    }
    hold[0] = magnitude[0];
    hold[half] = magnitude[half];
}

// Stage 4: inverse transform, back from zero-phase order under the synthesis
// window, overlap-add, and one synthesis hop out, divided by the window sum.
void CPhaseVocoderV3::stageOutput (float* const* output, bool auxOn, int channel) noexcept
{
    float* time = work[kWorkInverse];
    fft->inverse (time, work[kWorkSynthesis]);

    float* accumulator = accumulators[channel];
    const float* synthesis = windows[kSynthesis];
    for (int j = 0; j < half; ++j)
    {
        accumulator[j] += time[half + j] * synthesis[j];
        accumulator[half + j] += time[j] * synthesis[half + j];
    }
    if (channel == 0)
        ops->add (olaSum, windows[kProduct], frameSize);

    if (auxOn)
        addAuxFrame (channel);

    const int hop = frameHop;
    const int twoN = 2 * frameSize;
    float* auxAccumulator = auxAccumulators[channel];
    if (output != nullptr && output[channel] != nullptr)
    {
        float* out = output[channel];
        if (auxOn && ! bypass)
        {
            // aux is at unit gain already (see invariant 6): it joins after
            // the vocoder's normalisation.
            for (int j = 0; j < hop; ++j)
                out[j] = accumulator[j] / olaSum[j] + auxAccumulator[j];
        }
        else
        {
            for (int j = 0; j < hop; ++j)
                out[j] = accumulator[j] / olaSum[j];
        }
    }

    // Frames are only ever added to the first N samples: beyond them the
    // accumulator stays zero and the window sum its floor, so shifting the
    // first N is the whole shift.
    std::memmove (accumulator, accumulator + hop, sizeof (float) * static_cast<size_t> (frameSize - hop));
    ops->zero (accumulator + frameSize - hop, hop);
    if (auxOn)
    {
        float* auxFrame = auxFrames[channel];
        std::memmove (auxAccumulator, auxAccumulator + hop, sizeof (float) * static_cast<size_t> (twoN - hop));
        ops->zero (auxAccumulator + twoN - hop, hop);
        std::memmove (auxFrame, auxFrame + hop, sizeof (float) * static_cast<size_t> (twoN - hop));
        ops->zero (auxFrame + twoN - hop, hop);
    }

    if (channel == channels - 1)
    {
        std::memmove (olaSum, olaSum + hop, sizeof (float) * static_cast<size_t> (frameSize - hop));
        for (int j = frameSize - hop; j < frameSize; ++j)
            olaSum[j] = kSmallestSum;

        // The frame is done: its classes become the previous ones, and a
        // further visit of the same analysis frame is a repeat.
        std::memcpy (classOfPeakPrevious, classOfPeak, static_cast<size_t> (bins));
        std::memcpy (classRows[kWasPeak], classRows[kIsPeak], static_cast<size_t> (bins));
        previousFrameRatio = ratio;
        lastHop = hop;
        firstVisit = false;

        // The next frame's rising half overlaps this frame's falling half.
        if (auxRisingHop != auxFallingHop)
            buildAuxRising();
    }
}
} // namespace meridex
