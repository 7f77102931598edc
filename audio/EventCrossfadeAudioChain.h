#pragma once

#include <array>

#include "audio/AudioSourceChain.h"
#include "audio/CrossfadableSource.h"
#include "controllable/handle/ParamDefHandle.h"

namespace qvrControllableAudio
{
// A chain that hides the change an event makes (a jump, a new slice, a new
// sample) behind a short linear crossfade. Before the event fires, every
// crossfadable member saves its state, the chain renders what would have
// played next into the crossfade buffer, and the members restore their
// state; that audio is faded out under the new audio as it fades in.
//
// Notes.
// 1. A fade runs while crossfadeRemaining > 0; its length is fixed when it
//    starts (crossfadeLength). Output sample k of the fade (k = 0 at the
//    event) is new[k] * k / L + old[k] * (L - k) / L, computed per sample,
//    so the result does not depend on how blocks cut the fade.
// 2. A new fade starts only when none is running: events closer together
//    than the fade length give one fade, which just runs out.
// 3. Between save and restore the members render as usual; restore puts
//    them back, so the chain's own stream is what it would have been.
// 4. The crossfade buffer and the edge memory exist before the first block:
//    applyEvent and renderSegment allocate nothing.
//
// `crossfadeBufferSize` (samples, default 128, 0 = hard cut) is published by
// setTimeline and is fixed before playback: changing it resizes the buffer on
// the writing thread.
//
// Threads: as AudioSourceChain.
class EventCrossfadeAudioChain : public AudioSourceChain
{
public:
    static constexpr const char* kCrossfadeBufferSize = "crossfadeBufferSize";
    static constexpr int kDefaultCrossfadeSamples = 128;
    // A bound for the buffer; a fade this long (186 ms) is no longer a click guard.
    static constexpr int kMaxCrossfadeSamples = 8192;
    static constexpr int kEdgeSamples = 4;

    EventCrossfadeAudioChain();
    ~EventCrossfadeAudioChain() override;

    // Prepares the members for blocks of at least the fade length, since a
    // fade renders that much in one call.
    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;

    void setHead (AudioSourceProvider* provider) override;
    // Wraps the source in a CrossfadableRootSourceAdapter.
    void setHeadSource (juce::AudioSource* source, bool owned) override;
    void append (ChainableAudioSourceProvider* provider) override;
    // Wraps the source in a CrossfadableFilterSourceAdapter.
    void appendSource (juce::AudioSource* source, bool owned) override;
    // Also publishes `crossfadeBufferSize` (once).
    void setTimeline (AudioEventTimeline* timeline) override;

    bool isCrossfading() const noexcept { return crossfadeRemaining > 0; }
    // Audio thread: drops a fade that is running, for a chain that stopped
    // and will start on unrelated audio (its rest would fade that in).
    void cancelCrossfade() noexcept { crossfadeRemaining = 0; }
    // The last samples that left the chain: age 0 is the newest, up to
    // kEdgeSamples - 1. Audio thread.
    float getEdgeSample (int channel, int age) const noexcept;

    qvrControllableHandle::IntParamDefHandle crossfadeBufferSize { kCrossfadeBufferSize };

protected:
    void renderSegment (const juce::AudioSourceChannelInfo& info, juce::AudioSource* source, int numSamples) override;
    void applyEvent (AudioEvent* event, juce::AudioSource* source) override;

private:
    class SizeListener : public qvrControllableAPI::ParameterChangeListener
    {
    public:
        explicit SizeListener (EventCrossfadeAudioChain& c) : chain (c) {}
        void parameterChanged (qvrControllableAPI::ParameterDef*) override { chain.resizeCrossfadeBuffer(); }

    private:
        EventCrossfadeAudioChain& chain;
    };

    void addCrossfadeSourceOf (AudioSourceProvider* provider);
    void rebuildCrossfadeSources();
    void resizeCrossfadeBuffer();
    void mixFade (juce::AudioBuffer<float>& buffer, int startSample, int numSamples) noexcept;
    void rememberEdge (const juce::AudioBuffer<float>& buffer, int startSample, int numSamples) noexcept;

    // Members in chain order; the chain holds them alive through its providers.
    juce::Array<CrossfadableSource*> crossfadeSources;
    int crossfadeRemaining = 0;
    int crossfadeLength = 0;
    juce::AudioBuffer<float> crossfadeBuffer;
    std::array<std::array<float, kEdgeSamples>, 2> edgeMemory {};
    int edgeWriteIndex = 0;
    bool sizePublished = false;
    SizeListener sizeListener { *this };

    JUCE_DECLARE_NON_COPYABLE (EventCrossfadeAudioChain)
};
} // namespace qvrControllableAudio
