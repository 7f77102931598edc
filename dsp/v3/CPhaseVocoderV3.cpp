#include "dsp/v3/CPhaseVocoderV3.h"

#include "dsp/floor/FftWindows.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <iterator>

namespace meridex
{
namespace
{
constexpr double kPi = 3.14159265358979323846;
constexpr double kTwoPi = 6.28318530717959647692;

// Stands in the window sum where nothing has been laid down yet, so that the
// division of the first hops never divides by zero.
constexpr float kSmallestSum = FLT_MIN;

enum WorkRow : int
{
    kWorkTime = 0, // channel 0's windowed frame in zero-phase order
    kWorkRamp,     // the same with the ramp, then its spectrum
    kWorkSynthesis,
    kWorkRotation, // packed per-bin factor applied to every channel
    kWorkInverse,
    kWorkRows
};

enum BinRow : int
{
    kPhase = 0,
    kPreviousPhase,
    kIncrement,      // phase advance per analysis hop (instantaneous frequency)
    kSynthesisPhase, // psi
    kExpected,       // omega, the advance of the bin's centre frequency
    kRampProduct,    // Re (X conj Xramp): where in the frame a bin's energy lies
    kTheta,          // rotation of each peak, at the peak's bin
    kCos,
    kSin,
    kPeakAngle,      // theta of the i-th peak, gathered for one vector sin/cos
    kPeakSin,
    kPeakCos,
    kBinRows
};

enum IntRow : int
{
    kInstantBin = 0, // f(k)
    kPeakOf,
    kPeakList,
    kNearestPeak, // nearest peak of a bin index
    kCandidates,  // bins that may be peaks, ascending
    kIntRows
};

enum ClassRow : int
{
    kClass = 0,
    kClassPrevious,
    kIsPeak,
    kWasPeak,
    kClassRows
};

enum SumRow : int
{
    kSumDifference = 0,
    kSumReference,
    kSumEnergy,
    kSumRamp,
    kPeakCentroid, // C of each peak (per peak, not summed), for the band masks
    kSumRows
};

enum MaskRow : int
{
    kMaskAux = 0, // M1: 1 where the bin comes from aux
    kMaskVocoder, // M2: 1 where it comes from the vocoder
    kMaskRows
};

// A peak whose energy centroid C lies at or above this has its energy early
// in the frame (it is ending there): its bins stay with the vocoder.
constexpr double kAuxCentroidLimit = 0.3;
// When fewer than this share of the bins that may come from aux would stay
// with the vocoder, the band counts as steady as a whole and all go to aux.
constexpr double kAuxAllShare = 0.25;

bool isPowerOfTwo (int n) noexcept
{
    return n > 0 && (n & (n - 1)) == 0;
}
} // namespace

int CPhaseVocoderV3::init (int newFrameSize, int newAnalysisHop, int newSynthesisHop, float newRatio, int numChannels) noexcept
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

void CPhaseVocoderV3::setTransientPosition (float samples) noexcept
{
    transientPosition = samples;
    const float hop = static_cast<float> (analysisHop);
    const float wrapped = std::fmod (samples + 0.5f * hop, hop);
    const float folded = (wrapped < 0.0f ? wrapped + hop : wrapped) - 0.5f * hop;
    transientWrapped = folded > 0.0f ? folded : 0.0f;
}

bool CPhaseVocoderV3::transientInReach() const noexcept
{
    return ! (transientPosition > static_cast<float> (half) || transientPosition < transientWrapped - static_cast<float> (analysisHop));
}

// ---------------------------------------------------------------------------
// Hops and windows.

void CPhaseVocoderV3::setHops (int newFrameSize, int newAnalysisHop, int newSynthesisHop, float newRatio) noexcept
{
    if (frameSize == 0 || newFrameSize != frameSize || newAnalysisHop < 1 || newAnalysisHop > frameSize / 2
        || newSynthesisHop < 1 || newSynthesisHop > frameSize / 2)
        return;

    const bool untouchedNeutral = bypass;
    analysisHop = newAnalysisHop;
    synthesisHop = newSynthesisHop;
    ratio = newRatio;
    if (ratio != 1.0f)
        bypass = false;

    float* omega = binRows[kExpected];
    const double advance = kTwoPi * analysisHop / frameSize;
    for (int k = 0; k < bins; ++k)
        omega[k] = static_cast<float> (advance * k);

    // The analysis window is narrower (a higher power) for small ratios, where
    // hops overlap more; it changes only when the ratio crosses 1.5.
    const bool wantCubed = ratio >= 1.5f;
    const bool analysisChanged = wantCubed != analysisCubed;
    if (analysisChanged)
        buildAnalysisWindow (wantCubed);

    // Synthesis: the analysis window from 0.75 up. Below 0.75 the asymmetric
    // window is chosen only on a fresh start (nothing set since reset, or the
    // untouched neutral ratio); a running stream that moves down into strong
    // compression keeps the window it has.
    if (ratio >= 0.75f)
    {
        if (synthesisAsymmetric || analysisChanged)
            buildSymmetricSynthesis();
    }
    else if (! hopsSetSinceReset || untouchedNeutral)
    {
        buildAsymmetricSynthesis();
    }
    buildProduct();

    // An attack passes the synthesis hop once: its frame gets back the part of
    // the synthesis window's half that lies beyond the first synthesis hop.
    // (Taken over the analysis x synthesis product, which falls off twice as
    // fast, the gain stayed near 1 and attacks came out up to 1 dB softer.)
    const float* synthesis = windows[kSynthesis];
    double halfSum = 0.0;
    double hopSum = 0.0;
    for (int i = 0; i < half; ++i)
    {
        halfSum += synthesis[half + i];
        if (i < synthesisHop)
            hopSum += synthesis[half + i];
    }
    attackGain = hopSum > 0.0 ? static_cast<float> (halfSum / hopSum) : 1.0f;
    hopsSetSinceReset = true;
    frameHop = synthesisHop;

    // Only the half after the centre: the coming frame's half before it
    // overlaps the last frame's falling half, built for the old hop.
    if (synthesisHop != auxFallingHop)
        buildAuxFalling (synthesisHop);
}

void CPhaseVocoderV3::setFrameHop (int hop) noexcept
{
    if (frameSize == 0 || hop < 1 || hop > half)
        return;
    frameHop = hop;
}

// h(i) = 0.53836 - 0.46164 cos (2 pi i / (N - 1)), raised to the 3rd or 4th power.
void CPhaseVocoderV3::buildAnalysisWindow (bool cubed) noexcept
{
    float* analysis = windows[kAnalysis];
    float* scaled = windows[kAnalysisScaled];
    float* ramp = windows[kAnalysisRampScaled];
    const double inverseSize = 1.0 / frameSize;
    for (int i = 0; i < frameSize; ++i)
    {
        const double h = 0.53836 - 0.46164 * std::cos (kTwoPi * i / (frameSize - 1));
        const double w = cubed ? h * h * h : h * h * h * h;
        analysis[i] = static_cast<float> (w);
        scaled[i] = static_cast<float> (w * inverseSize);
        ramp[i] = static_cast<float> (w * inverseSize * (-1.0 + 2.0 * i / (frameSize - 1)));
    }
    analysisCubed = cubed;
}

void CPhaseVocoderV3::buildSymmetricSynthesis() noexcept
{
    std::memcpy (windows[kSynthesis], windows[kAnalysis], sizeof (float) * static_cast<size_t> (frameSize));
    synthesisAsymmetric = false;
}

// Rises late (g^10) and falls slowly (g^3): when compressing, what lies before
// the frame's centre is kept short, which keeps pre-echo down.
void CPhaseVocoderV3::buildAsymmetricSynthesis() noexcept
{
    float* synthesis = windows[kSynthesis];
    for (int i = 0; i < frameSize; ++i)
    {
        const double g = 0.5 - 0.5 * std::cos (kTwoPi * i / (frameSize - 1));
        double w = i < half ? std::pow (g, 10.0) : g * g * g;
        if (w < 1.0e-20)
            w = 0.0;
        synthesis[i] = static_cast<float> (w);
    }
    synthesisAsymmetric = true;
}

void CPhaseVocoderV3::buildProduct() noexcept
{
    std::memcpy (windows[kProduct], windows[kAnalysis], sizeof (float) * static_cast<size_t> (frameSize));
    ops->multiply (windows[kProduct], windows[kSynthesis], frameSize);
}

// w (N/2 + h - 1 - i) = sin (pi i / (2h - 1)) for i = 0 .. h - 1, 0 further
// out: with the mirrored rising half a sine over 2h samples, whose square
// overlap-adds to one (within about 1/h) at a hop of h. A hop never exceeds
// N/2 (setHops refuses more), so the half always fits.
void CPhaseVocoderV3::buildAuxFalling (int hop) noexcept
{
    float* window = windows[kAux];
    float* scaled = windows[kAuxScaled];
    ops->zero (window + half, half);
    ops->zero (scaled + half, half);
    const double inverseSize = 1.0 / frameSize;
    for (int i = 0; i < hop; ++i)
    {
        const double w = std::sin (kPi * i / (2 * hop - 1));
        window[half + hop - 1 - i] = static_cast<float> (w);
        scaled[half + hop - 1 - i] = static_cast<float> (w * inverseSize);
    }
    auxFallingHop = hop;
}

// w (i) = w (N - 1 - i): the rising half takes the falling half's hop.
void CPhaseVocoderV3::buildAuxRising() noexcept
{
    float* window = windows[kAux];
    float* scaled = windows[kAuxScaled];
    for (int i = 0; i < half; ++i)
    {
        window[i] = window[frameSize - 1 - i];
        scaled[i] = scaled[frameSize - 1 - i];
    }
    auxRisingHop = auxFallingHop;
}

// ---------------------------------------------------------------------------
// The step machine.

void CPhaseVocoderV3::processStep (const float* const* input, const float* const* aux, float* const* output, int step) noexcept
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
        case 0:
            stageInput (input, channel);
            break;
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
        default:
            stageOutput (output, auxOn, channel);
            break;
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

// Stage 2: peaks where the instantaneous frequencies of neighbouring bins
// converge, thinned, and for every bin the peak it belongs to.
void CPhaseVocoderV3::stagePeaks() noexcept
{
    int* instant = intRows[kInstantBin];
    int* peakOf = intRows[kPeakOf];
    int* nearest = intRows[kNearestPeak];
    std::uint8_t* isPeak = classRows[kIsPeak];
    const std::uint8_t* wasPeak = classRows[kWasPeak];
    const float* magnitude = magnitudes[0];
    const float* increment = binRows[kIncrement];

    std::memset (isPeak, 0, static_cast<size_t> (bins));
    if (peakMode)
    {
        for (int k = 0; k < bins; ++k)
        {
            peaks[k] = k;
            peakOf[k] = k;
            isPeak[k] = 1;
        }
        peakCount = bins;
        return;
    }

    const int lowBand = frameSize / 256 > 1 ? frameSize / 256 : 1;
    const int thinLimit = frameSize / 8;
    // f(k) by truncation: where x + 0.5 >= 0 it is the floor, and below
    // that both give f < 1, which falls back to k.
    const float toBins = static_cast<float> (frameSize / (kTwoPi * analysisHop));
    for (int k = 0; k < bins; ++k)
    {
        const int f = static_cast<int> (increment[k] * toBins + 0.5f);
        const int own = f < 1 ? k : f;
        instant[k] = own > half - 1 ? half - 1 : own;
    }

    // Below K the partials lie too close for crossings to mean much, and
    // every bin keeps its own phase advance, except the two next to a local
    // maximum of magnitude, which keep their phase relation to it. Left to
    // advance on their own, the bins of a partial that moves in under a
    // legato note change keep the phases of the old note, disagree, and
    // cancel for as long as the note lasts; locking wider than the centre of
    // each lobe would pull on neighbouring partials, which overlap here.
    int count = 0;
    const int lowEnd = lowBand < half ? lowBand : half;
    const auto isLowMaximum = [magnitude, lowEnd] (int k) {
        return k >= 1 && k < lowEnd && magnitude[k] >= magnitude[k - 1] && magnitude[k] > magnitude[k + 1];
    };
    for (int k = 0; k < lowEnd; ++k)
    {
        int owner = k;
        if (! isLowMaximum (k))
        {
            const bool below = isLowMaximum (k - 1), above = isLowMaximum (k + 1);
            if (below && above)
                owner = magnitude[k - 1] >= magnitude[k + 1] ? k - 1 : k + 1;
            else if (below)
                owner = k - 1;
            else if (above)
                owner = k + 1;
        }
        peakOf[k] = owner;
        if (owner == k)
            peaks[count++] = k;
    }
    const int lowCount = count;

    // The candidates first, in one pass without branches: on a dense
    // spectrum each bin's outcome is data no branch predictor can learn.
    // A candidate is where f(k) - k passes through zero from above (a bin
    // whose instantaneous frequency is its own centre counts too: every bin
    // of a click does, and each must then keep its own phase advance), or a
    // peak that was attacking or changing in the last frame. Above the
    // thinning range a crossing must also be a local maximum.
    int* candidates = intRows[kCandidates];
    int candidateCount = 0;
    int previousOffset = lowBand < half ? instant[lowBand - 1] - (lowBand - 1) : 0;
    for (int k = lowBand; k < half; ++k)
    {
        const int offset = instant[k] - k;
        const bool crossing = (offset == 0) | ((previousOffset > 0) & (offset < 0));
        const QvrTransientState_t before = classOfPeakPrevious[k];
        const bool keepClass = (wasPeak[k] != 0) & ((before == kTransientAttack) | (before == kTransientSteadyChanging));
        const bool localMaximum = (magnitude[k] >= magnitude[k - 1]) & (magnitude[k] >= magnitude[k + 1]);
        const bool candidate = keepClass | (crossing & ((k < thinLimit) | localMaximum));
        candidates[candidateCount] = k;
        candidateCount += candidate ? 1 : 0;
        previousOffset = offset;
    }

    for (int c = 0; c < candidateCount; ++c)
    {
        const int k = candidates[c];
        if (k >= thinLimit)
        {
            peaks[count++] = k;
            continue;
        }

        // Of two neighbouring candidates the weaker goes when every bin
        // between them points closer to the stronger one.
        bool keepNew = true;
        while (count > lowCount)
        {
            const int a = peaks[count - 1];
            const bool aStronger = magnitude[a] >= magnitude[k];
            const int strong = aStronger ? a : k;
            const int weak = aStronger ? k : a;
            // With no bin between them there is nothing to decide by.
            bool allCloser = k - a > 1;
            for (int j = a + 1; j < k && allCloser; ++j)
                allCloser = std::abs (instant[j] - strong) < std::abs (instant[j] - weak);
            if (! allCloser)
                break;
            if (weak == a)
                --count;
            else
            {
                keepNew = false;
                break;
            }
        }
        if (keepNew)
            peaks[count++] = k;
    }
    if (peaks[count - 1] != half)
        peaks[count++] = half;
    peakCount = count;

    // Nearest peak of every bin index from the first peak up (f(k) never
    // points below it); a tie goes to the lower peak. One pass without
    // branches: peaks lie a few bins apart, and loops of one or two turns
    // per peak cost more in mispredictions than in work. The list gets a
    // sentinel beyond the last bin, which never wins.
    for (int i = 0; i < count; ++i)
        isPeak[peaks[i]] = 1;
    peaks[count] = bins + half;
    for (int b = peaks[0], i = -1; b < bins; ++b)
    {
        i += isPeak[b];
        const int p = peaks[i], next = peaks[i + 1];
        nearest[b] = 2 * b <= p + next ? p : next;
    }
    for (int k = lowEnd; k < bins; ++k)
    {
        // k itself when it is a peak, else the peak nearest f(k).
        const int nearestPeak = nearest[instant[k]];
        const int keep = -static_cast<int> (isPeak[k]);
        peakOf[k] = (k & keep) | (nearestPeak & ~keep);
    }
}

// Stage 3, first visit of a frame on channel 0: the class of every peak from
// how much its region changed against a few frames back (D), where in the
// frame its energy lies (C), and the frame as a whole (Call).
void CPhaseVocoderV3::stageClassify() noexcept
{
    const int lowBand = frameSize / 256 > 1 ? frameSize / 256 : 1;
    const float hopNorm = static_cast<float> (analysisHop) / static_cast<float> (frameSize / 8);
    const float a = peakMode ? -0.5f : -0.2f;
    const float b = peakMode ? 0.5f : 0.1f;
    int back = (frameSize / analysisHop) / 4 + 1;
    if (back > kHistoryRows - 1)
        back = kHistoryRows - 1;

    const float* magnitude = magnitudes[0];
    const float* reference = history[back];
    const float* rampProduct = binRows[kRampProduct];
    const int* peakOf = intRows[kPeakOf];
    double* sumDifference = peakSums[kSumDifference];
    double* sumReference = peakSums[kSumReference];
    double* sumEnergy = peakSums[kSumEnergy];
    double* sumRamp = peakSums[kSumRamp];
    double* centroid = peakSums[kPeakCentroid];

    for (int i = 0; i < peakCount; ++i)
    {
        const int p = peaks[i];
        sumDifference[p] = sumReference[p] = sumEnergy[p] = sumRamp[p] = 0.0;
    }
    double lowDifference = 0.0, lowReference = 0.0, lowEnergy = 0.0, lowRamp = 0.0;
    double totalRamp = 0.0, totalEnergy = 0.0;

    // The bins of one peak mostly lie side by side: their sums run in
    // registers and go to the peak when the owner changes, instead of every
    // bin loading and storing its peak's sums (a dependency through memory).
    constexpr int kLowOwner = -1;
    int runOwner = kLowOwner;
    double runDifference = 0.0, runReference = 0.0, runEnergy = 0.0, runRamp = 0.0;
    const auto closeRun = [&] {
        if (runOwner == kLowOwner)
        {
            lowDifference += runDifference;
            lowReference += runReference;
            lowEnergy += runEnergy;
            lowRamp += runRamp;
        }
        else
        {
            sumDifference[runOwner] += runDifference;
            sumReference[runOwner] += runReference;
            sumEnergy[runOwner] += runEnergy;
            sumRamp[runOwner] += runRamp;
        }
        runDifference = runReference = runEnergy = runRamp = 0.0;
    };
    for (int k = 0; k < bins; ++k)
    {
        const double m = magnitude[k];
        const double r = reference[k];
        const double square = (m - r) * (m - r);
        const double difference = square > kDifferenceFloor ? square : 0.0;
        const double energy = m * m;
        totalRamp += rampProduct[k];
        totalEnergy += energy;
        const int owner = (k < lowBand || peakOf[k] < lowBand) ? kLowOwner : peakOf[k];
        if (owner != runOwner)
        {
            closeRun();
            runOwner = owner;
        }
        runDifference += difference;
        runReference += r * r;
        runEnergy += energy;
        runRamp += rampProduct[k];
    }
    closeRun();

    const double frameCentroid = -totalRamp / (1.0e-24 + totalEnergy);
    const bool ratioChanged = ratio != previousFrameRatio;
    const double lowD = lowDifference / (1.0e-24 + lowReference);
    const double lowE = 1.0e-24 + lowEnergy;
    const double lowC = -lowRamp / lowE;

    double weightTotal = 0.0, weight1 = 0.0, weight2 = 0.0, weight3 = 0.0;
    bool attackFound = false;
    for (int i = 0; i < peakCount; ++i)
    {
        const int p = peaks[i];
        const bool low = p < lowBand;
        const double d = low ? lowD : sumDifference[p] / (1.0e-24 + sumReference[p]);
        const double e = low ? lowE : 1.0e-24 + sumEnergy[p];
        const double c = low ? lowC : -sumRamp[p] / e;
        centroid[p] = c;
        const QvrTransientState_t previous = classOfPeakPrevious[p];

        QvrTransientState_t state;
        if (d <= 0.75)
            state = kTransientSteady;
        else if (c <= hopNorm * a)
            state = kTransientBeforeAttack;
        else if (frameCentroid <= (hopNorm > 1.0f ? hopNorm : 1.0f) * a * 0.75f)
            state = kTransientBeforeAttack;
        else if (c < hopNorm * b || previous == kTransientBeforeAttack)
        {
            if ((d > 5.0 && previous != kTransientAttack) || previous == kTransientBeforeAttack)
            {
                state = kTransientAttack;
                attackFound = true;
            }
            else
                state = kTransientSteady;
        }
        else if (! ratioChanged || previous != kTransientAttack)
            state = ratio < 0.5f ? kTransientSteadyChanging : kTransientSteady;
        else
            state = kTransientBeforeAttack;

        classOfPeak[p] = state;
        const double weight = p * e;
        weightTotal += weight;
        if (state == kTransientBeforeAttack)
            weight1 += weight;
        else if (state == kTransientAttack)
            weight2 += weight;
        else if (state == kTransientSteadyChanging)
            weight3 += weight;
    }

    attackOffset = attackFound ? findAttackOffset() : 0;

    auto recolour = [this] (QvrTransientState_t from, QvrTransientState_t to) {
        for (int i = 0; i < peakCount; ++i)
            if (classOfPeak[peaks[i]] == from)
                classOfPeak[peaks[i]] = to;
    };

    if (! transientInReach())
    {
        const double total = weightTotal > 0.0 ? weightTotal : 1.0;
        if (weight2 / total > 0.4)
            recolour (kTransientBeforeAttack, kTransientAttack);
        else if (weight1 / total > 0.4 && a * hopNorm > frameCentroid)
            recolour (kTransientAttack, kTransientBeforeAttack);
        else if (weight3 / total > 0.4)
            recolour (kTransientSteady, kTransientSteadyChanging);
    }
    else if (transientPosition >= 0.0f)
    {
        if (transientWrapped < transientPosition)
            recolour (kTransientAttack, kTransientBeforeAttack);
        else
        {
            attackOffset = static_cast<int> (transientWrapped);
            recolour (kTransientBeforeAttack, kTransientAttack);
        }
    }

    // Every bin takes its peak's class (a peak is its own peak).
    for (int k = 0; k < bins; ++k)
        classOfPeak[k] = classOfPeak[peakOf[k]];
}

// Offset of the attack from the frame's centre: the largest sample of the
// windowed frame, if it lies within one analysis hop of the centre.
int CPhaseVocoderV3::findAttackOffset() noexcept
{
    // Stage 4 writes its own row afresh: until then it is free to hold |x|.
    float* magnitudesOfTime = work[kWorkInverse];
    std::memcpy (magnitudesOfTime, work[kWorkTime], sizeof (float) * static_cast<size_t> (frameSize));
    ops->absolute (magnitudesOfTime, frameSize);
    float largest = 0.0f;
    int where = 0;
    ops->findMax (magnitudesOfTime, &largest, &where, frameSize);
    if (where > analysisHop)
        where = where > frameSize - analysisHop ? where - frameSize : 0;
    return where;
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

// ---------------------------------------------------------------------------
// The aux path and the band masks.

bool CPhaseVocoderV3::isBinFromAux (int bin) const noexcept
{
    if (frameSize == 0 || bin < 0 || bin >= bins)
        return false;
    const int index = bin == 0 ? 0 : (bin == half ? 1 : 2 * bin);
    return masks[kMaskAux][index] != 0.0f;
}

// Every bin from the vocoder; aux gives its DC and Nyquist elements, the
// packed spectrum's first pair, which an upper band hardly holds. The Nyquist
// bin stays empty when the upper bin excludes it.
void CPhaseVocoderV3::resetMasks() noexcept
{
    float* toAux = masks[kMaskAux];
    float* toVocoder = masks[kMaskVocoder];
    ops->zero (toAux, frameSize);
    toAux[0] = 1.0f;
    toAux[1] = upperBin > half ? 1.0f : 0.0f;
    for (int i = 0; i < frameSize; ++i)
        toVocoder[i] = 1.0f;
}

// Stage 1 (stage 3 of a repeat): this frame's hop of aux at the frame's
// centre, under the aux window (with the transform's 1/N folded in, exact as
// N is a power of two), transformed.
void CPhaseVocoderV3::stageAuxInput (const float* const* aux, int channel) noexcept
{
    float* frame = auxFrames[channel];
    const int hop = frameHop;
    if (aux[channel] != nullptr)
        std::memcpy (frame + half, aux[channel], sizeof (float) * static_cast<size_t> (hop));
    else
        ops->zero (frame + half, hop);

    float* spectrum = auxSpectra[channel];
    std::memcpy (spectrum, frame, sizeof (float) * static_cast<size_t> (frameSize));
    ops->multiply (spectrum, windows[kAuxScaled], frameSize);
    fft->forward (spectrum, spectrum);
}

// Stage 3 on channel 0, after the classification: from the lower bin up (and
// below the upper bin, which aux must respect as much as the vocoder), a bin
// comes from aux when its peak is steady, the bin was not an attack in the
// last frame, and the peak's energy does not lie early in the frame.
void CPhaseVocoderV3::routeSteadyBins() noexcept
{
    const int first = lowerBin;
    const int end = upperBin < bins ? upperBin : bins;
    if (first >= end)
        return;

    float* toAux = masks[kMaskAux];
    float* toVocoder = masks[kMaskVocoder];
    const int* peakOf = intRows[kPeakOf];
    const double* centroid = peakSums[kPeakCentroid];
    auto route = [&] (int k) {
        if (k == 0 || k == half)
        {
            const int index = k == 0 ? 0 : 1;
            toAux[index] = 1.0f;
            toVocoder[index] = 0.0f;
            return;
        }
        toAux[2 * k] = toAux[2 * k + 1] = 1.0f;
        toVocoder[2 * k] = toVocoder[2 * k + 1] = 0.0f;
    };

    int count = 0;
    for (int k = first; k < end; ++k)
    {
        const int p = peakOf[k];
        const QvrTransientState_t peakClass = classOfPeak[p];
        // Every bin carries its peak's class here, so the bin is steady
        // (class 0) exactly when its peak is 0 or 3 and it is not 3 itself.
        const bool steady = (peakClass == kTransientSteady || peakClass == kTransientSteadyChanging)
                            && classOfPeak[k] != kTransientSteadyChanging;
        if (steady && classOfPeakPrevious[k] != kTransientAttack && centroid[p] < kAuxCentroidLimit)
        {
            route (k);
            ++count;
        }
    }
    const int candidates = end - first;
    if (static_cast<double> (candidates - count) / candidates < kAuxAllShare)
        for (int k = first; k < end; ++k)
            route (k);
}

// After stage 3, every channel: each spectrum keeps its own bins.
void CPhaseVocoderV3::applyMasks (int channel) noexcept
{
    ops->multiply (auxSpectra[channel], masks[kMaskAux], frameSize);
    // In pass-through the masks are never set: M2 is all ones.
    if (! bypass)
        ops->multiply (work[kWorkSynthesis], masks[kMaskVocoder], frameSize);
}

// Stage 4: the masked aux frame back in time, under the aux window again, into
// the aux accumulator (where the window is 0 nothing changes).
void CPhaseVocoderV3::addAuxFrame (int channel) noexcept
{
    float* time = work[kWorkInverse];
    fft->inverse (time, auxSpectra[channel]);
    float* accumulator = auxAccumulators[channel];
    const float* window = windows[kAux];
    const int end = half + auxFallingHop;
    for (int j = half - auxRisingHop; j < end; ++j)
        accumulator[j] += time[j] * window[j];
}
} // namespace meridex
