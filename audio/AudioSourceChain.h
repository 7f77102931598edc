#pragma once

#include <memory>

#include "audio/AudioEventQueue.h"
#include "audio/AudioEventTimeline.h"
#include "audio/AudioSourceProvider.h"
#include "controllable/lib/DispatchingControllable.h"
#include "controllable/lib/ShortcutValue.h"

namespace qvrControllableAudio
{
// A head block and the links that follow it, pulled from the last link, and
// cut at the events of its queue so that every event lands on its exact
// sample whatever the block size. The chain's parameters are the merge of
// its own controllables and those of its blocks (first one wins on equal
// names).
//
// Rendering a block: the queue names the next due event and its distance;
// the samples before it are rendered as one segment (renderSegment), then
// the event is applied (applyEvent), and the search starts again. An event
// at the present position is applied before any audio of the block; one
// exactly at the block's end is left for the first sample of the next block.
// Every segment advances the timeline and the block-position counter 100 by
// its length, then calls segmentRendered.
//
// Threads: building (setHead, append, setTimeline, makePositionable) on the
// message thread before audio runs; prepareToPlay, releaseResources and
// getNextAudioBlock on the audio thread. The only lock taken while rendering
// is the queue's, for its search.
class AudioSourceChain : public juce::AudioSource,
                         public AudioSourceProvider,
                         public qvrControllableLib::TargetProvider
{
public:
    // The block-position counter the chain itself keeps: samples rendered so
    // far in the present block.
    static constexpr int kChainCounterKey = 100;
    // More events than this applied with no sample rendered in between is a
    // cycle of events moving the timeline to each other; the rest of the
    // block is then rendered, so the audio thread never spins.
    static constexpr int kMaxEventsWithoutAudio = 256;

    class PositionableProxy;

    AudioSourceChain();
    ~AudioSourceChain() override;

    juce::AudioSource* getAudioSource() override { return this; }
    Controllable* getControllable() override { return controllable.get(); }
    // The proxy made by makePositionable, else null.
    juce::PositionableAudioSource* getPositionable() override;
    qvrControllableLib::ControllableArray getTargets() override { return targets; }

    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;
    // A seekable face for the chain, if its head can seek (else null). Made
    // once; the chain owns it.
    virtual PositionableProxy* makePositionable();
    virtual void setHead (AudioSourceProvider* provider);
    // Wraps a plain source; `owned`: the wrapper deletes it.
    virtual void setHeadSource (juce::AudioSource* source, bool owned);
    // Links the block to the present tail and appends it.
    virtual void append (ChainableAudioSourceProvider* provider);
    virtual void appendSource (juce::AudioSource* source, bool owned);

protected:
    // Audio thread: renders numSamples at info.startSample from `source`.
    virtual void renderSegment (const juce::AudioSourceChannelInfo& info, juce::AudioSource* source, int numSamples);
    // Audio thread: fires the event, holding a reference for the call.
    virtual void applyEvent (AudioEvent* event, juce::AudioSource* source);

public:
    // Replaces the event queue by a new one over `timeline` (a sample
    // counting timeline if null) and publishes the timeline's parameters.
    virtual void setTimeline (AudioEventTimeline* timeline);

protected:
    // Hooks, empty here. Audio thread.
    virtual void blockStarting (int numSamples) { juce::ignoreUnused (numSamples); }
    virtual void eventApplied (AudioEvent* event) { juce::ignoreUnused (event); }
    virtual void segmentRendered (int numSamples) { juce::ignoreUnused (numSamples); }

public:
    // Adds a controllable whose parameters the chain publishes.
    void addTarget (Controllable* controllable);
    // Puts `replacement` in the place of `old` among the published
    // controllables (the first of equal names wins, so the place matters);
    // without `old` it is appended, and a null replacement just removes
    // `old`. Before the first parameter lookup, like every change of targets.
    void replaceTarget (Controllable* old, Controllable* replacement);

    AudioEventTimeline* getTimeline() const noexcept { return queue != nullptr ? queue->getTimeline() : nullptr; }
    AudioEventQueue* getEventQueue() const noexcept { return queue.get(); }
    double getSampleRate() const noexcept { return sampleRate; }
    AudioSourceProvider* getHead() const noexcept { return head.get(); }
    int getNumLinks() const noexcept { return links.size(); }
    ChainableAudioSourceProvider* getLink (int index) const noexcept { return links[index].get(); }

    // Block-position counters: small integers keyed by number that members
    // of the chain may keep per block. Reading and adding to an existing key
    // never allocates; a new key may (setup time).
    int getBlockPositionCounter (int key) const noexcept;
    void setBlockPositionCounter (int key, int value);
    void addToBlockPositionCounter (int key, int delta);

protected:
    // The source that the chain pulls: the last link's, else the head's.
    juce::AudioSource* getPulledSource() const;

    juce::ReferenceCountedObjectPtr<qvrControllableLib::DispatchingControllable> controllable;

private:
    // Parallel arrays of keys and values, searched linearly; they grow by
    // n + n/2 + 8 rounded down to a multiple of 8. Indices never move.
    class BlockPositionCounters
    {
    public:
        int indexOf (int key) const noexcept;
        int addKey (int key);
        int& valueAt (int index) noexcept { return values[(size_t) index]; }
        int valueAt (int index) const noexcept { return values[(size_t) index]; }

    private:
        std::unique_ptr<int[]> keys, values;
        int count = 0, capacity = 0;
    };

    qvrControllableLib::ControllableArray targets;
    AudioSourceProviderPtr head;
    juce::ReferenceCountedArray<ChainableAudioSourceProvider> links;
    AudioEventQueuePtr queue;
    double sampleRate = 44100.0;
    BlockPositionCounters counters;
    int chainCounterIndex = 0;
    juce::ReferenceCountedObjectPtr<PositionableProxy> proxy;

    JUCE_DECLARE_NON_COPYABLE (AudioSourceChain)
};

// A chain's seekable face, when its head can seek: `nextReadPosition` and
// `totalLength` as parameters. A change of `nextReadPosition` seeks the head
// before the next block; after each block the head's position is written
// back. `totalLength` follows the nearest `totalLength` parameter found
// walking the chain from its tail to its head.
//
// Owned by its chain, which must outlive every other holder. Threads: as the
// chain; the upstream length listener runs on the thread that changes it.
class AudioSourceChain::PositionableProxy : public juce::PositionableAudioSource,
                                            public qvrControllableLib::BasicControllable,
                                            public qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr const char* kNextReadPosition = "nextReadPosition";
    static constexpr const char* kTotalLength = "totalLength";

    PositionableProxy (AudioSourceChain& chain, juce::PositionableAudioSource& headPositionable,
                       qvrControllableAPI::ParameterDef* upstreamTotalLength);
    ~PositionableProxy() override;

    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;
    void setNextReadPosition (juce::int64 newPosition) override;
    juce::int64 getNextReadPosition() const override { return positionable.getNextReadPosition(); }
    juce::int64 getTotalLength() const override { return positionable.getTotalLength(); }
    bool isLooping() const override { return positionable.isLooping(); }
    void setLooping (bool shouldLoop) override { positionable.setLooping (shouldLoop); }

    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    qvrControllableHandle::IntParamDefHandle nextReadPosition { kNextReadPosition };
    qvrControllableHandle::IntParamDefHandle totalLength { kTotalLength };

private:
    void publishPosition();

    AudioSourceChain& chain;
    juce::PositionableAudioSource& positionable;
    qvrControllableAPI::ParameterDefPtr watchedTotalLength;
    qvrControllableLib::IntShortcutValue positionValue, lengthValue;

    JUCE_DECLARE_NON_COPYABLE (PositionableProxy)
};

// Pulls its upstream in pieces of at most `maxBlockSize` samples (0: no limit),
// so that everything upstream never sees a larger request.
class BlockSizeLimitingSource : public qvrControllableLib::BasicControllable,
                                public ChainableAudioSourceProvider,
                                public juce::AudioSource
{
public:
    static constexpr const char* kMaxBlockSize = "maxBlockSize";

    BlockSizeLimitingSource();

    juce::AudioSource* getAudioSource() override { return this; }
    Controllable* getControllable() override { return this; }

    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    qvrControllableHandle::IntParamDefHandle maxBlockSize { kMaxBlockSize };
};
} // namespace qvrControllableAudio
