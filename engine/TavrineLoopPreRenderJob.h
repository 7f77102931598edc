#pragma once

#include <atomic>

#include "engine/TavrineLoopPreRenderChain.h"
#include "samples/SamplePreparationJob.h"

// The offline stretch render of one loop: the variant of the chain's source
// sample for the chain's present settings, at 44100 Hz, whatever the host's
// rate. One job per TavrineSampleAudioSource, made with it and queued again
// for every render.
//
// run, in order:
// 1. No source sample: no sample, result 1 (a failed load arrives this way).
// 2. The variant's key (URL + render signature) is in the pool or the render
//    cache: that sample, result 0; nothing is rendered.
// 3. No setting departs from unity (isRenderNeeded): the source sample itself,
//    with no copy and no cache file.
// 4. Otherwise: round (stretch factor x length) samples on 2 channels, pulled
//    from the chain in blocks of 1024, faded in over 16 samples and out over
//    128, with the reverse buffer made, listed under the key.
// Whatever happened, the chain lets go of the source sample, except after a
// hit in step 2, where it keeps it until its next source.
//
// Threads: setSource, run and the callback on the preparation thread;
// getRenderSignature on the message thread too. The chain's memory source
// is private to the chain, so a render takes no lock of the playing source.
class TavrineLoopPreRenderJob : public SampleRenderJob
{
public:
    static constexpr int kFadeLength = 128;
    // Short on purpose: the start of a loop is its downbeat and must not be
    // smeared, while the end may ring out into the wrap.
    static constexpr int kFadeInLength = kFadeLength / 8;
    static constexpr int kRenderBlockSize = 1024;
    static constexpr double kRenderSampleRate = 44100.0;
    static constexpr int kRenderChannels = 2;
    static constexpr int kResultDone = 0;
    static constexpr int kResultNoSourceSample = 1;
    // Closer to unity than this, a factor renders nothing.
    static constexpr double kFactorTolerance = 0.001;

    explicit TavrineLoopPreRenderJob (TavrineLoopPreRenderChain& chain);
    ~TavrineLoopPreRenderJob() override;

    int run (SamplePoolManager& pool) override;
    juce::String getRenderSignature() override;
    void setSource (const juce::String& url, PreparedSample::Ptr sourceSample) override;

    // Whether the chain's settings make the variant differ from its source:
    // the stretch factor, the pad or fine pitch, the pad formant, a slice.
    bool isRenderNeeded() const;

    // Fades a rendered buffer: in over kFadeInLength, out over kFadeLength.
    static void applyFades (juce::AudioSampleBuffer& buffer);

    // The client that deliveries reach, until it is set to null; setting it
    // waits for a delivery that is under way. Message thread.
    void setClient (SamplePreparationCallback* client);
    // What to give the sample manager as the client of a request: forwards to
    // the client while there is one. The job's own callback is the same, and
    // the job keeps it alive, so a job still queued when the client goes
    // reaches nobody.
    SamplePreparationCallback* getDeliveryCallback() const noexcept { return relay.get(); }

    TavrineLoopPreRenderChain& getChain() const noexcept { return *chain; }
    // Renders made (step 4), since construction. Any thread.
    int getNumRenders() const noexcept { return numRenders.load(); }

private:
    class DeliveryRelay : public SamplePreparationCallback,
                          public juce::ReferenceCountedObject
    {
    public:
        void jobFinished (PreparedSample::Ptr sample, int result) override
        {
            const juce::ScopedLock sl (lock);
            if (client != nullptr)
                client->jobFinished (std::move (sample), result);
        }

        void setClient (SamplePreparationCallback* newClient)
        {
            const juce::ScopedLock sl (lock);
            client = newClient;
        }

    private:
        juce::CriticalSection lock;
        SamplePreparationCallback* client = nullptr;
    };

    PreparedSample::Ptr render (const juce::String& key, PreparedSamplePool& pool);

    const TavrineLoopPreRenderChainPtr chain;
    const juce::ReferenceCountedObjectPtr<DeliveryRelay> relay { new DeliveryRelay() };
    std::atomic<int> numRenders { 0 };

    JUCE_DECLARE_NON_COPYABLE (TavrineLoopPreRenderJob)
};

using TavrineLoopPreRenderJobPtr = juce::ReferenceCountedObjectPtr<TavrineLoopPreRenderJob>;
