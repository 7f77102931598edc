#pragma once

#include "audio/AudioSourceProviderAdapters.h"
#include "audio/CrossfadableSource.h"

namespace qvrControllableAudio
{
// A plain source at the head of a crossfading chain. It takes part in the
// chain's crossfades: on save it marks the wrapped source as in a crossfade
// and lets it save its state; on restore it clears the mark and lets it
// restore. A wrapped source that is not crossfadable has nothing to keep.
//
// Threads: save and restore on the audio thread, inside the chain's applyEvent.
class CrossfadableRootSourceAdapter : public AudioSourceProviderAdapter,
                                      public CrossfadableSource
{
public:
    CrossfadableRootSourceAdapter (juce::AudioSource* source, bool owned);

    void saveCrossfadeState() override;
    void restoreCrossfadeState() override;

private:
    CrossfadableSource* const inner;
};

// The same for a plain filter source linked into a crossfading chain.
class CrossfadableFilterSourceAdapter : public ChainableAudioSourceProviderAdapter,
                                        public CrossfadableSource
{
public:
    CrossfadableFilterSourceAdapter (juce::AudioSource* source, bool owned);

    void saveCrossfadeState() override;
    void restoreCrossfadeState() override;

private:
    CrossfadableSource* const inner;
};
} // namespace qvrControllableAudio
