#include "audio/SampleRateConverter.h"

#include <cmath>

namespace qvrControllableAudio
{
SampleRateConverter::SampleRateConverter (juce::AudioSource* wrapped, double rate, int numChannels)
    : source (wrapped), resampler (wrapped, false, numChannels), sourceRate (rate), hostRate (rate)
{
}

SampleRateConverter::~SampleRateConverter() = default;

void SampleRateConverter::prepareToPlay (int samplesPerBlockExpected, double newHostRate)
{
    hostRate = newHostRate;
    preparedBlockSize = juce::jmax (1, samplesPerBlockExpected);
    const double ratio = sourceRate / hostRate;
    resampler.setResamplingRatio (ratio);
    bypass = (ratio == 1.0);
    if (bypass)
    {
        source->prepareToPlay (preparedBlockSize, sourceRate);
        return;
    }
    // JUCE's resampler takes the block size in output (host) samples and
    // prepares its input with round(size * ratio) at host rate * ratio, that
    // is at the source rate.
    resampler.prepareToPlay (preparedBlockSize, hostRate);
}

void SampleRateConverter::releaseResources()
{
    resampler.releaseResources();
}

void SampleRateConverter::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    if (bypass)
    {
        source->getNextAudioBlock (info);
        return;
    }
    // A host block larger than announced would make the resampler grow its
    // buffer on this thread: cut it into prepared sizes instead.
    juce::AudioSourceChannelInfo piece (info.buffer, info.startSample, 0);
    int remaining = info.numSamples;
    while (remaining > 0)
    {
        piece.numSamples = juce::jmin (preparedBlockSize, remaining);
        resampler.getNextAudioBlock (piece);
        piece.startSample += piece.numSamples;
        remaining -= piece.numSamples;
    }
}
} // namespace qvrControllableAudio
