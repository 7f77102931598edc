#include "dsp/v3/CMeridexEffV3Core.h"

#include <cmath>
#include <cstring>
#include <new>

namespace meridex
{
CMeridexEffV3Core::CMeridexEffV3Core (int numChannels, float rate, float minimumStretch) noexcept
    : CMeridexCoreBase (numChannels, rate, minimumStretch)
{
}

int CMeridexEffV3Core::init() noexcept
{
    initialised = false;
    if (channels < kMinChannels || channels > kMaxChannels)
        return kInitFailed;
    if (vocoder.init (frameSize, frameSize / 8, frameSize / 8, 1.0f, channels) != kNoError)
        return kInitFailed;
    // A synthesis hop never exceeds N/2: the vocoder ratio stays at or below
    // 6 (the repeat takes the rest), and the hop table keeps 6 * hop under it.
    converter.reset (new (std::nothrow) CFastResample (channels, frameSize / 2, CFastResample::kHermite));
    if (! converter || converter->getErrorCode() != kNoError)
        return kInitFailed;
    if (encoded.init (channels, frameSize) != kNoError || synthesized.init (channels, frameSize) != kNoError
        || auxEncoded.init (channels, frameSize / 2) != kNoError)
        return kInitFailed;

    stretch = pitch = stretchTotal = 1.0f;
    inversePitch = inverseStretch = 1.0f;
    repeat = 1;
    analysisHopSize = synthesisHopSize = frameSize / 8;
    appliedAnalysisHop = appliedSynthesisHop = frameSize / 8;
    exactSynthesisHop = frameSize / 8;
    upperBin = frameSize / 2 + 1;
    peakMode = false;
    vocoderPending = false;
    initialised = true;
    reset();
    return kNoError;
}

void CMeridexEffV3Core::reset() noexcept
{
    if (! initialised)
        return;
    if (vocoderPending)
        applyToVocoder();
    // The vocoder keeps its hops and windows: the next factors count as a
    // fresh start for the choice of the synthesis window.
    vocoder.reset();
    converter->reset();
    encoded.clear();
    synthesized.clear();
    auxEncoded.clear();
    auxInFrame = false;
    resetBase();
}

double CMeridexEffV3Core::latencyFor (int n, int analysisHop, double synthesisHop, int d, float pitchFactor) noexcept
{
    // Frame m (of d syntheses each) is centred on input (m + 1) ha - N/2 and
    // its first synthesis on output m d hs + N/2; input 0 therefore comes out
    // at d hs (N / (2 ha) - 1) + N/2, then the converter's history delays it.
    // With alternating whole hops the frames before it sum to this rounded
    // to the nearest sample.
    const double core = static_cast<double> (d) * synthesisHop * (n / (2.0 * analysisHop) - 1.0) + n / 2.0;
    return (core + CFastResample::getLatency()) / pitchFactor;
}

double CMeridexEffV3Core::getLatency() const noexcept
{
    return latencyFor (frameSize, analysisHopSize, exactSynthesisHop, repeat, pitch);
}

int CMeridexEffV3Core::getMaxOutputPerFrame() const noexcept
{
    const double slowest = static_cast<double> (kMinPitch) * kMinCorrection;
    return static_cast<int> (std::ceil ((frameSize / 2) / slowest)) + 2;
}

int CMeridexEffV3Core::setStretchPitch (float* stretchIo, float* pitchIo, AdjustMode adjust, PositionRule rule) noexcept
{
    if (stretchIo == nullptr || pitchIo == nullptr || ! initialised)
        return kBadArgument;
    const float s = *stretchIo;
    const float p = *pitchIo;
    if (! std::isfinite (s) || ! std::isfinite (p) || s <= 0.0f || p < kMinPitch || p > kMaxPitch)
        return kBadArgument;
    const float r = s * p;
    if (r < minStretch)
        return kBelowMinimumFactor;
    if (r > kMaxStretchTotal)
        return kBadArgument;

    int d = repeatForRatio (r);
    if (d == 1 && repeatLocked && repeat > 1)
        d = repeat;
    const float rho = r / static_cast<float> (d);
    const int ha = analysisHopFor (frameSize, rho, d);
    // The small allowance keeps a product that is whole in exact arithmetic
    // from being truncated one below by rounding.
    double exact = static_cast<double> (ha) * static_cast<double> (rho);
    int hs = static_cast<int> (exact + 1.0e-6);
    if (hs < 1)
        return kBelowMinimumFactor;
    bool rounded = adjust == kAdjustPitch;
    if (hs >= frameSize / 2)
    {
        // No frame may write more than N/2: at the limit the hop is whole.
        hs = frameSize / 2;
        rounded = true;
    }
    if (rounded || std::fabs (exact - std::round (exact)) < 1.0e-6)
        exact = hs;

    float newStretch = s;
    float newPitch = p;
    float rDone = r;
    if (rounded)
    {
        rDone = static_cast<float> (hs) / static_cast<float> (ha) * static_cast<float> (d);
        if (adjust == kAdjustPitch)
            newPitch = rDone / s;
        else
            newStretch = rDone / p;
    }

    const double oldLatency = getLatency();

    if (d != repeat)
    {
        repeatIndex = 0;
        step = 0;
        firstStep = 0;
    }
    repeat = d;
    stretch = newStretch;
    pitch = newPitch;
    inversePitch = 1.0f / newPitch;
    inverseStretch = 1.0f / newStretch;
    stretchTotal = rDone;
    analysisHopSize = ha;
    synthesisHopSize = hs;
    exactSynthesisHop = exact;
    // The converter reads the vocoder's output at the pitch: a bin above
    // (rate / 2) / pitch would fold back, so none is written.
    upperBin = newPitch <= 1.0f ? frameSize / 2 + 1 : static_cast<int> ((frameSize / 2) / newPitch);
    peakMode = d >= 7 || repeatRequested;

    if (stepsLeft > 0)
        vocoderPending = true;
    else
        applyToVocoder();

    if (firstFrame)
    {
        inputPosition = -static_cast<double> (startDelay);
        targetPosition = outputPosition = resampledPosition = 0.0;
        synthesisFraction = 0.5;
        stretchCorrected = newPitch;
    }
    else if (rule == kKeepPosition)
    {
        // The output keeps its place: the change of latency is taken up by
        // the drift correction rather than heard as a jump.
        targetPosition += getLatency() - oldLatency;
    }

    *stretchIo = newStretch;
    *pitchIo = newPitch;
    return kNoError;
}

void CMeridexEffV3Core::applyToVocoder() noexcept
{
    // The nominal ratio (exact hop over analysis hop) picks the windows and
    // the classes; each frame's own hop is set at its step 0.
    const float nominal = exactSynthesisHop == static_cast<double> (synthesisHopSize)
                              ? static_cast<float> (synthesisHopSize) / static_cast<float> (analysisHopSize)
                              : static_cast<float> (exactSynthesisHop / analysisHopSize);
    vocoder.setHops (frameSize, analysisHopSize, synthesisHopSize, nominal);
    vocoder.setUpperBin (upperBin);
    vocoder.setPeakMode (peakMode);
    vocoderPending = false;
}

int CMeridexEffV3Core::getStepCount() const noexcept
{
    const int perChannel = repeatIndex != 0 ? CPhaseVocoderV3::kStagesPerChannel - CPhaseVocoderV3::kFirstRepeatStage
                                            : CPhaseVocoderV3::kStagesPerChannel;
    return perChannel * channels;
}

int CMeridexEffV3Core::getInputNeeded() const noexcept
{
    return (repeatIndex == 0 || repeatLocked) ? analysisHopSize : 0;
}

int CMeridexEffV3Core::processStep (const float* const* input, const float* const* aux, float* const* output,
                                    int stepIndex) noexcept
{
    if (! initialised)
        return 0;
    float* const* frameInput = encoded.getRowPointers();
    float* const* frameOutput = synthesized.getRowPointers();
    const bool isRepeat = repeatIndex != 0;

    if (stepIndex == 0)
    {
        if (vocoderPending)
            applyToVocoder();
        stepsLeft = getStepCount();
        appliedAnalysisHop = analysisHopSize;
        appliedSynthesisHop = takeSynthesisHop();
        vocoder.setFrameHop (appliedSynthesisHop);
        firstStep = isRepeat ? CPhaseVocoderV3::kFirstRepeatStage : 0;

        if (! isRepeat || repeatLocked)
        {
            for (int c = 0; c < channels; ++c)
            {
                if (input != nullptr && input[c] != nullptr)
                    std::memcpy (frameInput[c], input[c], sizeof (float) * static_cast<size_t> (analysisHopSize));
                else
                    std::memset (frameInput[c], 0, sizeof (float) * static_cast<size_t> (analysisHopSize));
            }
            encode (frameInput, analysisHopSize);
            inputPosition += analysisHopSize;
            if (isRepeat)
                for (int c = 0; c < channels; ++c)
                    vocoder.processStep (frameInput, nullptr, nullptr, -(c + 1));
        }

        auxInFrame = aux != nullptr;
        if (auxInFrame)
        {
            float* const* frameAux = auxEncoded.getRowPointers();
            for (int c = 0; c < channels; ++c)
            {
                if (aux[c] != nullptr)
                    std::memcpy (frameAux[c], aux[c], sizeof (float) * static_cast<size_t> (appliedSynthesisHop));
                else
                    std::memset (frameAux[c], 0, sizeof (float) * static_cast<size_t> (appliedSynthesisHop));
            }
            encode (frameAux, appliedSynthesisHop);
        }
    }

    const float* const* frameAux = auxInFrame ? auxEncoded.getRowPointers() : nullptr;
    const int stages = CPhaseVocoderV3::kStagesPerChannel;
    const int vocoderStep = isRepeat ? stages * (stepIndex / 2) + CPhaseVocoderV3::kFirstRepeatStage + stepIndex % 2
                                     : stepIndex;
    vocoder.processStep (frameInput, frameAux, frameOutput, vocoderStep);
    step = stepIndex + 1;
    --stepsLeft;
    if (stepsLeft > 0)
        return 0;

    // The frame is complete.
    repeatIndex = (repeatIndex + 1) % repeat;
    step = 0;
    stepsLeft = 0;
    firstStep = repeatIndex != 0 ? CPhaseVocoderV3::kFirstRepeatStage : 0;
    firstFrame = false;

    correctDrift();
    decode (frameOutput, appliedSynthesisHop);
    converter->setRatio (stretchCorrected);
    return converter->process (frameOutput, appliedSynthesisHop, output);
}
} // namespace meridex
