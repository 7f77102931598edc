#include "dsp/v3/CMeridexCoreBase.h"

#include <cmath>

namespace meridex
{
CMeridexCoreBase::CMeridexCoreBase (int numChannels, float rate, float minimumStretch) noexcept
    : minStretch (minimumStretch), sampleRate (rate), channels (numChannels), frameSize (frameSizeForRate (rate))
{
    analysisHopSize = synthesisHopSize = frameSize / 8;
    appliedAnalysisHop = appliedSynthesisHop = frameSize / 8;
    exactSynthesisHop = frameSize / 8;
    startDelay = frameSize / 2;
    resetBase();
}

int CMeridexCoreBase::frameSizeForRate (double rate) noexcept
{
    if (rate < 32000.0)
        return 2048;
    if (rate < 64000.0)
        return 4096;
    if (rate < 128000.0)
        return 8192;
    if (rate < 256000.0)
        return 16384;
    return 32768;
}

int CMeridexCoreBase::repeatForRatio (float r) noexcept
{
    if (! (r > kRepeatLimit))
        return 1;
    for (int d = 2;; ++d)
    {
        const float share = r / static_cast<float> (d);
        // A whole-number share would repeat in a periodic pattern.
        if (share <= kMaxRepeatedRatio && share != std::floor (share))
            return d;
    }
}

int CMeridexCoreBase::analysisHopFor (int n, float vocoderRatio, int d) noexcept
{
    if (d > 1)
        return n / 32;
    if (vocoderRatio <= 2.2f)
        return n / 8;
    if (vocoderRatio <= 3.2f)
        return n / 16;
    if (vocoderRatio <= 5.2f)
        return n / 32;
    if (vocoderRatio <= 10.0f)
        return n / 64;
    return n / 4;
}

int CMeridexCoreBase::setRepeatMode (RepeatLock lock, RepeatRequest request) noexcept
{
    if (repeat > 1)
        return kBadArgument;
    repeatLocked = lock == kRepeatLocked;
    repeatRequested = request == kRepeatRequested;
    return kNoError;
}

int CMeridexCoreBase::setStereoInputMode (StereoInputMode mode) noexcept
{
    if (channels != 2)
        return kNeedsStereo;
    bypassEncoding = mode == kStereoIndependent;
    return kNoError;
}

void CMeridexCoreBase::resetBase() noexcept
{
    step = 0;
    firstStep = 0;
    stepsLeft = 0;
    repeatIndex = 0;
    inputPosition = -static_cast<double> (startDelay);
    outputPosition = 0.0;
    targetPosition = 0.0;
    resampledPosition = 0.0;
    // Half a sample: the hops done then round the exact sum to nearest.
    synthesisFraction = 0.5;
    stretchCorrected = pitch;
    firstFrame = true;
    started = true;
}

// Two channels: L' = 0.6 L + 0.4 R, R' = 0.6 L - 0.4 R. Channel 0 sees both
// sides, so the phase decisions taken on it fit either. More channels:
// channel 0 is the sum, every other one its difference from channel 0.
void CMeridexCoreBase::encode (float* const* buffers, int count) const noexcept
{
    if (channels == 2)
    {
        if (bypassEncoding)
            return;
        float* left = buffers[0];
        float* right = buffers[1];
        for (int i = 0; i < count; ++i)
        {
            const float l = left[i], r = right[i];
            left[i] = 0.6f * l + 0.4f * r;
            right[i] = 0.6f * l - 0.4f * r;
        }
        return;
    }
    if (channels < 2)
        return;
    for (int i = 0; i < count; ++i)
    {
        const float first = buffers[0][i];
        float total = first;
        for (int c = 1; c < channels; ++c)
        {
            total += buffers[c][i];
            buffers[c][i] -= first;
        }
        buffers[0][i] = total;
    }
}

void CMeridexCoreBase::decode (float* const* buffers, int count) const noexcept
{
    if (channels == 2)
    {
        if (bypassEncoding)
            return;
        float* left = buffers[0];
        float* right = buffers[1];
        for (int i = 0; i < count; ++i)
        {
            const float a = left[i], b = right[i];
            left[i] = (a + b) * (1.0f / 1.2f);
            right[i] = (a - b) * (1.0f / 0.8f);
        }
        return;
    }
    if (channels < 2)
        return;
    const float inverseCount = 1.0f / static_cast<float> (channels);
    for (int i = 0; i < count; ++i)
    {
        float first = buffers[0][i];
        for (int c = 1; c < channels; ++c)
            first -= buffers[c][i];
        first *= inverseCount;
        buffers[0][i] = first;
        for (int c = 1; c < channels; ++c)
            buffers[c][i] += first;
    }
}

void CMeridexCoreBase::correctDrift() noexcept
{
    const double drift = targetPosition + outputPosition - resampledPosition;
    double corrected = pitch;
    if (static_cast<long long> (drift) != 0)
    {
        const double magnitude = std::fabs (drift);
        const double limit = 1.25 * magnitude > 0.5 * frameSize ? 1.25 * magnitude : 0.5 * frameSize;
        double factor = (limit + drift) / limit;
        factor = factor < kMinCorrection ? kMinCorrection : (factor > kMaxCorrection ? kMaxCorrection : factor);
        corrected = pitch * factor;
    }
    stretchCorrected = static_cast<float> (corrected);
    // Both positions move by the hop this frame really wrote, so a frame one
    // sample longer or shorter than the mean is no drift.
    resampledPosition += appliedSynthesisHop / static_cast<double> (pitch);
    outputPosition += appliedSynthesisHop / corrected;
}

int CMeridexCoreBase::takeSynthesisHop() noexcept
{
    const double next = synthesisFraction + exactSynthesisHop;
    int hop = static_cast<int> (std::floor (next));
    // The exact hop lies in 1 .. N/2, so these only guard rounding.
    hop = hop < 1 ? 1 : (hop > frameSize / 2 ? frameSize / 2 : hop);
    synthesisFraction = next - hop;
    if (synthesisFraction < 0.0 || synthesisFraction >= 1.0)
        synthesisFraction = 0.5;
    return hop;
}
} // namespace meridex
