#include <gtest/gtest.h>

#include "audio/MemorizingAudioChain.h"
#include "tests/audio/ChainTestSources.h"

using namespace tavrine::test;

namespace
{
constexpr int kTotal = 12000;

// A memorising chain (signal, gain set by events, filter with memory) and a
// mix of events: jumps that fade, gain changes inside and outside a fade, a
// periodic jump that reschedules itself, equal times with a disabled one
// among them, one that reschedules itself to where it stands, and one that
// takes another out of the queue on the audio thread.
struct Scenario
{
    Scenario()
    {
        chain->setHeadSource (head, true);
        chain->appendSource (scale, true);
        chain->appendSource (pole, true);
        chain->setTimeline (nullptr);
        chain->prepareToPlay (4096, 44100.0);
        fired.reserve (256);

        add (0, 1000.0, 'j', [this] (TestEvent&) { head->position = 50000; });
        add (0, 1060.0, 'g', [this] (TestEvent&) { scale->gain = 0.5f; });
        add (0, 2048.0, 'h', [this] (TestEvent&) { scale->gain = 0.25f; });
        add (0, 3000.0, 'p', [this] (TestEvent& e) {
            head->position -= 300;
            e.setTime (e.getTime() + 777.0);
        });
        add (3, 6000.0, 'x', [this] (TestEvent&) { scale->gain = 2.0f; })->setEnabled (false);
        add (2, 6000.0, 'y', [this] (TestEvent&) { scale->gain = 0.9f; });
        add (0, 6000.0, 'z', [this] (TestEvent&) { scale->gain *= 0.7f; });
        add (1, 7000.0, 's', [this] (TestEvent& e) { e.setTime (chain->getTimeline()->getPosition()); });
        auto removed = add (0, 9000.0, 'q', [this] (TestEvent&) { scale->gain = 0.1f; });
        add (0, 8192.0, 'r', [this, removed] (TestEvent&) { chain->getEventQueue()->remove (removed.get()); });
    }

    TestEventPtr add (int priority, double time, char name, std::function<void (TestEvent&)> work)
    {
        TestEventPtr e (new TestEvent (priority, time, [this, name, work] (TestEvent& self) {
            fired.push_back ({ name, (int) chain->getTimeline()->getPosition() });
            work (self);
        }));
        chain->getEventQueue()->add (e.get());
        return e;
    }

    juce::ReferenceCountedObjectPtr<MemorizingAudioChain> chain { new MemorizingAudioChain (4096) };
    HashSource* head = new HashSource();
    ScaleSource* scale = new ScaleSource();
    OnePoleSource* pole = new OnePoleSource();
    std::vector<std::pair<char, int>> fired;
};
} // namespace

TEST (ChainScenario, OutputAndEventsAreBitIdenticalForEveryBlockSize)
{
    Scenario reference;
    const auto expected = render (*reference.chain, 2, kTotal, 4096);
    ASSERT_GE (reference.fired.size(), 10u);
    for (const auto& f : reference.fired)
        ASSERT_NE (f.first, 'q');

    for (int blockSize : { 1, 7, 64, 128, 512 })
    {
        Scenario s;
        const auto out = render (*s.chain, 2, kTotal, blockSize);
        EXPECT_EQ (s.fired, reference.fired) << "block size " << blockSize;
        EXPECT_TRUE (bitIdentical (out, expected)) << "block size " << blockSize;
    }
}

TEST (ChainScenario, RenderingAllocatesNothingAfterPrepareToPlay)
{
    Scenario s;
    juce::AudioBuffer<float> buffer (2, 4096);
    const auto allocations = allocationsOnAudioThread ([&] {
        int done = 0;
        for (int blockSize : { 7, 64, 1, 4096, 128, 512 })
            for (int i = 0; i < 5 && done < kTotal; ++i, done += blockSize)
                s.chain->getNextAudioBlock (juce::AudioSourceChannelInfo (&buffer, 0, blockSize));
        s.chain->rewindMemory (300);
        s.chain->getNextAudioBlock (juce::AudioSourceChannelInfo (&buffer, 0, 512));
        s.chain->dropMemory (100);
        s.chain->getNextAudioBlock (juce::AudioSourceChannelInfo (&buffer, 0, 0));
        s.chain->getNextAudioBlock (juce::AudioSourceChannelInfo (&buffer, 0, 4096));
    });
    EXPECT_EQ (allocations, 0u);
    EXPECT_GE (s.fired.size(), 10u);
}
