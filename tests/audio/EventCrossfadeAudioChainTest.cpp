#include <gtest/gtest.h>

#include "audio/EventCrossfadeAudioChain.h"
#include "tests/audio/ChainTestSources.h"

using namespace tavrine::test;

namespace
{
using ChainPtr = juce::ReferenceCountedObjectPtr<EventCrossfadeAudioChain>;

ChainPtr makeChain (juce::AudioSource* head, juce::AudioSource* filter = nullptr)
{
    ChainPtr chain (new EventCrossfadeAudioChain());
    chain->setHeadSource (head, true);
    if (filter != nullptr)
        chain->appendSource (filter, true);
    chain->setTimeline (nullptr);
    chain->prepareToPlay (64, 44100.0);
    return chain;
}

TestEventPtr addEvent (EventCrossfadeAudioChain& chain, double time, std::function<void (TestEvent&)> work = {})
{
    TestEventPtr e (new TestEvent (0, time, std::move (work)));
    chain.getEventQueue()->add (e.get());
    return e;
}
} // namespace

TEST (EventCrossfadeAudioChain, AStepBecomesALinearFadeThatJoinsAcrossShortBlocks)
{
    // Level 1 before the event, 0 after; at 192 the event is mid-block for
    // blocks of 5 and 300 and in the first sample of a block of 64.
    for (int blockSize : { 5, 64, 300 })
    {
        auto* level = new ScaleSource (nullptr, true);
        auto chain = makeChain (level);
        addEvent (*chain, 192.0, [level] (TestEvent&) { level->gain = 0.0f; });
        const auto out = render (*chain, 2, 400, blockSize);
        for (int i = 0; i < 400; ++i)
        {
            const float expected = i < 192 ? 1.0f : i < 320 ? (float) (320 - i) / 128.0f : 0.0f;
            ASSERT_EQ (out.getSample (1, i), expected) << "block " << blockSize << ", sample " << i;
        }
    }
}

TEST (EventCrossfadeAudioChain, TwoEventsWithinTheFadeLengthGiveOneFade)
{
    auto* head = new HashSource();
    auto chain = makeChain (head);
    addEvent (*chain, 300.0, [head] (TestEvent&) { head->position = 10000; });
    addEvent (*chain, 350.0, [head] (TestEvent&) { head->position = 20000; });
    const auto out = render (*chain, 2, 600, 64);
    EXPECT_EQ (head->saves, 1);
    EXPECT_EQ (head->samplesRenderedInCrossfade, 128);
    // The second jump took effect; the one fade ended 128 samples after the first.
    for (int i = 428; i < 600; ++i)
        ASSERT_EQ (out.getSample (0, i), HashSource::valueAt (20000 + i - 350, 0)) << i;
    for (int age = 0; age < EventCrossfadeAudioChain::kEdgeSamples; ++age)
        EXPECT_EQ (chain->getEdgeSample (1, age), out.getSample (1, 599 - age));
}

TEST (EventCrossfadeAudioChain, SavingAndRestoringLeavesEverySourceRenderingWhatItWouldHave)
{
    // One chain with an event that changes nothing, one without: the fade's
    // extra render must leave no trace in the members' state.
    auto run = [] (bool withEvent, std::vector<float>& heard) {
        auto* filter = new OnePoleSource();
        filter->recording = true;
        auto chain = makeChain (new HashSource(), filter);
        bool markedDuringWork = true;
        if (withEvent)
            addEvent (*chain, 500.0, [&] (TestEvent&) { markedDuringWork = filter->inCrossfade; });
        auto out = render (*chain, 2, 2000, 96);
        heard = filter->heard;
        EXPECT_TRUE (! withEvent || ! markedDuringWork);
        return out;
    };
    std::vector<float> heardPlain, heardFaded;
    const auto plain = run (false, heardPlain);
    const auto faded = run (true, heardFaded);

    EXPECT_EQ (heardFaded, heardPlain);
    EXPECT_TRUE (bitIdentical (plain, faded, 0, 0, 500));
    EXPECT_TRUE (bitIdentical (plain, faded, 628, 628, 2000 - 628));
    for (int i = 500; i < 628; ++i) // old and new are the same signal in the fade
        ASSERT_NEAR (faded.getSample (0, i), plain.getSample (0, i), 1e-6f) << i;
}

TEST (EventCrossfadeAudioChain, TheFadeLengthIsPublishedAndZeroCutsHard)
{
    auto* level = new ScaleSource (nullptr, true);
    auto chain = makeChain (level);
    auto size = chain->getControllable()->findParameter (EventCrossfadeAudioChain::kCrossfadeBufferSize);
    ASSERT_NE (size, nullptr);
    EXPECT_EQ (size->getValue()->getInt(), 128);

    size->getValue()->setInt (32);
    addEvent (*chain, 0.0, [level] (TestEvent&) { level->gain = 0.0f; });
    auto out = render (*chain, 2, 64, 64);
    EXPECT_EQ (out.getSample (0, 16), 0.5f);
    EXPECT_EQ (out.getSample (0, 32), 0.0f);

    size->getValue()->setInt (0);
    addEvent (*chain, 70.0, [level] (TestEvent&) { level->gain = 0.25f; });
    out = render (*chain, 2, 20, 20);
    EXPECT_EQ (out.getSample (0, 5), 0.0f);
    EXPECT_EQ (out.getSample (0, 6), 0.25f);
}
