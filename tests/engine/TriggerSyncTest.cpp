#include <gtest/gtest.h>

#include "engine/TavrineEngine.h"
#include "tests/audio/AudioSourceTestSupport.h"
#include "tests/support/RecordingListener.h"

using tavrine::test::render;

TEST (TriggerSync, NextTickIsTheNextGridPositionFarEnoughAhead)
{
    TavrineEngine engine;
    auto& sync = engine.getMasterChain().getTriggerSync();
    ASSERT_EQ (sync.triggerSyncSnapMode.read(), 4);
    EXPECT_DOUBLE_EQ (sync.nextTick (0.0), 0.25);
    // 0.5 is only 0.2 ahead of 0.3, not more than 1 / (4 + 1): skip to 0.75.
    EXPECT_DOUBLE_EQ (sync.nextTick (0.3), 0.75);
    EXPECT_DOUBLE_EQ (sync.nextTick (1.1), 1.5);
    EXPECT_DOUBLE_EQ (sync.nextTick (2.9), 3.0);

    sync.triggerSyncSnapMode.write (8);
    EXPECT_DOUBLE_EQ (sync.nextTick (0.3), 0.5);
    EXPECT_EQ (sync.triggerSyncSnapTimes->getValueList()->size(), 9);
}

TEST (TriggerSync, TheFirstLoopStartsAtOnceTheNextWaitsAndBeatlessSamplesNeverWait)
{
    TavrineEngine engine;
    auto& master = engine.getMasterChain();
    auto& sync = master.getTriggerSync();
    master.outputBpm.write (120.0);
    master.triggerPlayMode.write (true);

    auto* first = engine.getLoop (0);
    auto* second = engine.getLoop (1);
    auto* beatless = engine.getLoop (2);
    beatless->setSampleName ("Pad_s_Cmaj.wav");

    EXPECT_TRUE (sync.addToTriggerGroup (first, true));
    EXPECT_FALSE (sync.addToTriggerGroup (second, true));
    EXPECT_TRUE (sync.addToTriggerGroup (beatless, true));
    EXPECT_FALSE (sync.isInGroup (beatless));

    EXPECT_TRUE (sync.addToTriggerGroup (second, false));
    EXPECT_FALSE (sync.isInGroup (second));
    // Out of trigger play mode a group member starts at once.
    master.triggerPlayMode.write (false);
    EXPECT_TRUE (sync.addToTriggerGroup (second, true));
}

TEST (TriggerSync, AWaitingLoopStartsExactlyOnTheTick)
{
    TavrineEngine engine;
    engine.getAudioSource()->prepareToPlay (100, 44100.0);
    auto& master = engine.getMasterChain();
    master.outputBpm.write (120.0);
    master.triggerPlayMode.write (true);

    auto* loop = engine.getLoop (5);
    std::int64_t startedAt = -1;
    tavrine::test::RecordingListener listener;
    listener.onChange = [&] (auto*) {
        if (loop->playing.read() && startedAt < 0)
            startedAt = master.getMasterTimeline().getSamplePosition();
    };
    loop->playing->addChangeListener (&listener, true);
    // Loop 0 starts the group and the grid; loop 5 then waits for the tick.
    engine.getLoop (0)->trigger.write (true);
    loop->trigger.write (true);
    EXPECT_FALSE (loop->playing.read());

    // A quarter bar at 120 bpm is 22050 samples; odd blocks cut around it.
    render (*engine.getAudioSource(), 2, 30000, 100);
    EXPECT_EQ (startedAt, 22050);
    EXPECT_EQ (master.getTriggerSync().getNumTicks(), 1);
    loop->playing->removeChangeListener (&listener, true);
    engine.getAudioSource()->releaseResources();
}

TEST (TriggerSync, ATickTheTimelineJumpedPastIsMovedToTheGrid)
{
    TavrineEngine engine;
    engine.getAudioSource()->prepareToPlay (128, 44100.0);
    auto& master = engine.getMasterChain();
    master.outputBpm.write (120.0);
    master.triggerPlayMode.write (true);
    auto& sync = master.getTriggerSync();
    render (*engine.getAudioSource(), 2, 128, 128); // the grid restarts here
    ASSERT_DOUBLE_EQ (sync.getEvent()->getTime(), 0.25);

    master.getMasterTimeline().setPosition (3.6);
    render (*engine.getAudioSource(), 2, 128, 128);
    EXPECT_DOUBLE_EQ (sync.getEvent()->getTime(), 4.0);
    engine.getAudioSource()->releaseResources();
}

TEST (MasterFlush, ThrowsAwayWhatTheStretcherHoldsAndFadesItOut)
{
    TavrineEngine engine;
    engine.getAudioSource()->prepareToPlay (128, 44100.0);
    auto& master = engine.getMasterChain();
    master.setRealtimeStretching (true);
    master.outputBpm.write (120.0);
    master.outputBpm.write (100.0);
    ASSERT_DOUBLE_EQ (master.stretchFactor.read(), 1.2);

    render (*engine.getAudioSource(), 2, 44100, 128);
    ASSERT_GE (master.meridexReadAhead.read(), 1.0);
    const auto position = master.getMasterTimeline().getSamplePosition();

    std::size_t allocations = 1;
    {
        const tavrine::test::ScopedAllocationCount count;
        engine.flushReadAhead (nullptr, nullptr);
        allocations = count.count();
    }
    EXPECT_EQ (allocations, 0u);
    EXPECT_EQ (master.meridexReadAhead.read(), 0.0);
    EXPECT_EQ (master.getMasterTimeline().getSamplePosition(), position);

    // Without stretching there is nothing in flight.
    master.setRealtimeStretching (false);
    render (*engine.getAudioSource(), 2, 1024, 128);
    const auto before = master.getMasterTimeline().getSamplePosition();
    engine.flushReadAhead (nullptr, nullptr);
    EXPECT_EQ (master.getMasterTimeline().getSamplePosition(), before);
    engine.getAudioSource()->releaseResources();
}
