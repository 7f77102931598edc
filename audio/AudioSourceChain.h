#pragma once

#include "audio/AudioEventTimeline.h"
#include "audio/AudioSourceProvider.h"
#include "controllable/lib/DispatchingControllable.h"

namespace qvrControllableAudio
{
// A head block and the links that follow it, pulled from the last link. The
// chain's parameters are the merge of its own controllables and those of its
// blocks (first one wins on equal names). The timeline is advanced by every
// rendered segment.
//
// Threads: building (setHead, append, setTimeline) on the message thread
// before audio runs; prepareToPlay, releaseResources, getNextAudioBlock on
// the audio thread.
class AudioSourceChain : public juce::AudioSource,
                         public AudioSourceProvider,
                         public qvrControllableLib::TargetProvider
{
public:
    AudioSourceChain();
    ~AudioSourceChain() override;

    juce::AudioSource* getAudioSource() override { return this; }
    Controllable* getControllable() override { return controllable.get(); }
    qvrControllableLib::ControllableArray getTargets() override { return targets; }

    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    virtual void setHead (AudioSourceProvider* provider);
    virtual void append (ChainableAudioSourceProvider* provider);
    virtual void setTimeline (AudioEventTimeline* newTimeline);
    // Adds a controllable whose parameters the chain publishes.
    void addTarget (Controllable* controllable);

    AudioEventTimeline* getTimeline() const noexcept { return timeline.get(); }
    double getSampleRate() const noexcept { return sampleRate; }

protected:
    // The source that the chain pulls: the last link's, else the head's.
    juce::AudioSource* getPulledSource() const;
    virtual void renderSegment (const juce::AudioSourceChannelInfo& info, juce::AudioSource* source, int numSamples);
    // Called after every rendered segment.
    virtual void segmentRendered (int numSamples) {}

    juce::ReferenceCountedObjectPtr<qvrControllableLib::DispatchingControllable> controllable;

private:
    qvrControllableLib::ControllableArray targets;
    AudioSourceProviderPtr head;
    juce::ReferenceCountedArray<ChainableAudioSourceProvider> links;
    AudioEventTimelinePtr timeline;
    double sampleRate = 44100.0;

    JUCE_DECLARE_NON_COPYABLE (AudioSourceChain)
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
