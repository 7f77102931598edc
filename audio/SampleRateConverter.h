#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

namespace qvrControllableAudio
{
// Meets the host's rate at the outermost end of the engine: the wrapped source
// runs at `sourceRate` (44100 inside the engine), the puller at the host rate.
// At a ratio of exactly 1 the converter is bypassed and the source is pulled
// directly, so that 44.1 kHz hosts get the engine's samples untouched.
//
// Threads: prepareToPlay, releaseResources and getNextAudioBlock on the audio
// thread. The inner engine is prepared for the scaled block size, so a block
// allocates nothing.
class SampleRateConverter : public juce::AudioSource
{
public:
    SampleRateConverter (juce::AudioSource* source, double sourceRate, int numChannels);
    ~SampleRateConverter() override;

    void prepareToPlay (int samplesPerBlockExpected, double hostRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    bool isBypassed() const noexcept { return bypass; }
    double getSourceRate() const noexcept { return sourceRate; }
    double getHostRate() const noexcept { return hostRate; }

private:
    juce::AudioSource* source;
    juce::ResamplingAudioSource resampler;
    double sourceRate;
    double hostRate;
    int preparedBlockSize = 512;
    bool bypass = true;

    JUCE_DECLARE_NON_COPYABLE (SampleRateConverter)
};
} // namespace qvrControllableAudio
