#pragma once

#include "audio/AudioSourceProvider.h"

namespace qvrControllableAudio
{
// Lets an in-place filter (any juce::AudioSource that processes the block it
// is handed) stand as a link of a chain: the wrapper pulls the upstream of
// its provider into the block, then runs the filter on the same block.
//
// Owns neither the filter nor the provider; the provider is usually the
// object that owns the wrapper, and the filter outlives it or is replaced
// through setFilterSource by an owner that guards the swap itself.
//
// Threads: construction and setFilterSource on the message thread (or under
// the owner's lock); prepareToPlay, releaseResources and getNextAudioBlock on
// the audio thread.
class FilteringAudioSourceWrapper : public juce::AudioSource
{
public:
    FilteringAudioSourceWrapper (juce::AudioSource* filterSource, ChainableAudioSourceProvider* provider);
    ~FilteringAudioSourceWrapper() override;

    // Go to the filter alone: the chain prepares the upstream itself.
    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread. Without an upstream the block keeps what it holds; without
    // a filter the upstream's audio passes unchanged.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    juce::AudioSource* getFilterSource() const noexcept { return filterSource; }

protected:
    void setFilterSource (juce::AudioSource* newFilterSource) noexcept { filterSource = newFilterSource; }
    // The upstream provider's source, or null.
    juce::AudioSource* getProviderUpstream() const;

private:
    juce::AudioSource* filterSource;
    ChainableAudioSourceProvider* provider;

    JUCE_DECLARE_NON_COPYABLE (FilteringAudioSourceWrapper)
};
} // namespace qvrControllableAudio
