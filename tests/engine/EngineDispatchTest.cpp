#include <gtest/gtest.h>

#include "engine/TavrineEngine.h"
#include "tests/support/RecordingListener.h"

using namespace tavrine::test;

TEST (KeyNames, RunFromC1ToB6WithSharps)
{
    juce::StringArray names;
    for (const int key : { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 24, 70, 71 })
        names.add (TavrineEngine::getKeyName (key));
    EXPECT_EQ (names.joinIntoString (" "), "C1 C#1 D1 D#1 E1 F1 F#1 G1 G#1 A1 A#1 B1 C2 C3 A#6 B6");

    // Every name reads back to its key; near misses are no key at all.
    for (int key = 0; key < TavrineEngine::kNumLoops; ++key)
        EXPECT_EQ (TavrineEngine::getKeyIndex (TavrineEngine::getKeyName (key)), key);
    EXPECT_EQ (TavrineEngine::getKeyIndex ("f#3"), 30);
    for (const char* bad : { "", "C", "1", "C0", "C7", "H1", "C#", "C1x", "Cb1", "C10", "C-1", "#C1" })
        EXPECT_EQ (TavrineEngine::getKeyIndex (bad), -1) << bad;
}

TEST (EngineDispatch, PathsReachTheMasterChainTheLoopsAndTheDispatcher)
{
    TavrineEngine engine;
    auto* root = engine.getControllable();

    auto outputBpm = root->findParameter ("master.outputBpm");
    ASSERT_NE (outputBpm, nullptr);
    outputBpm->getValue()->setFloat (133.0);
    EXPECT_DOUBLE_EQ (engine.getMasterChain().outputBpm.read(), 133.0);

    auto fine = root->findParameter ("loop71.resamplingRatio.fine");
    ASSERT_NE (fine, nullptr);
    fine->getValue()->setFloat (9.0); // clamps to the loop's range
    EXPECT_DOUBLE_EQ (engine.getLoop (71)->resamplingRatioFine.read(), 1.5);

    for (const char* path : { "master.currentTime", "master.maxBlockSize", "triggerSwitch", "editLoopIndex",
                              // published by the members of a loop's chain
                              "loop0.gain", "loop0.totalLength", "loop0.sourceLooping", "loop0.resamplingMode",
                              "loop0.resamplingLengthRatio", "loop0.envelopeAttack", "loop0.globalReverse",
                              "loop0.loading", "loop71.filterFrequency", "editLoop.nextReadPosition" })
        EXPECT_NE (root->findParameter (path), nullptr) << path;
    for (const char* path : { "loop72.gain.xyMode", "Master.outputBpm", "loop0.noSuchParameter" })
        EXPECT_EQ (root->findParameter (path), nullptr) << path;
}

TEST (EngineDispatch, EditFlagReadsTheEditedLoopAndWritingTrueSelectsIt)
{
    TavrineEngine engine;
    auto* root = engine.getControllable();
    auto edit3 = root->findParameter ("loop3.edit");
    auto edit0 = root->findParameter ("loop0.edit");
    ASSERT_NE (edit3, nullptr);
    EXPECT_TRUE (edit0->getValue()->getBool());
    EXPECT_FALSE (edit3->getValue()->getBool());
    EXPECT_TRUE (edit3->isTransient());

    EXPECT_EQ (edit3->getValue()->setBool (true), qvrControllableAPI::kOk);
    EXPECT_EQ (engine.getDispatcher().editLoopIndex.read(), 3);
    EXPECT_TRUE (edit3->getValue()->getBool());
    EXPECT_FALSE (edit0->getValue()->getBool());

    EXPECT_EQ (edit3->getValue()->setBool (false), qvrControllableAPI::kUnsupported);
    EXPECT_EQ (engine.getDispatcher().editLoopIndex.read(), 3);

    RecordingListener listener;
    edit0->addChangeListener (&listener, false);
    engine.getDispatcher().editLoopIndex.write (0);
    EXPECT_GE (listener.calls.load(), 1);
    edit0->removeChangeListener (&listener, false);
}

TEST (EngineTrigger, TheTriggeredKeyBecomesTheEditedLoopOnlyWhileTriggerSwitchIsOn)
{
    TavrineEngine engine;
    auto& dispatcher = engine.getDispatcher();
    engine.triggerKey (12, TavrineEngine::Key::on, 0.5f);
    EXPECT_EQ (dispatcher.editLoopIndex.read(), 12);
    EXPECT_DOUBLE_EQ (engine.getLoop (12)->gainFine.read(), 0.5);

    dispatcher.triggerSwitch.write (false);
    engine.triggerKey (20, TavrineEngine::Key::on);
    EXPECT_EQ (dispatcher.editLoopIndex.read(), 12);
    EXPECT_TRUE (engine.getLoop (20)->trigger.read());

    // A release keeps the velocity; out-of-range keys are ignored.
    engine.triggerKey (12, TavrineEngine::Key::off, 0.1f);
    EXPECT_DOUBLE_EQ (engine.getLoop (12)->gainFine.read(), 0.5);
    engine.triggerKey (-1, TavrineEngine::Key::on);
    engine.triggerKey (72, TavrineEngine::Key::on);
}

TEST (EngineTrigger, PendingTriggersFromOtherThreadsActAtTheNextMasterBlock)
{
    TavrineEngine engine;
    engine.getAudioSource()->prepareToPlay (128, 44100.0);
    engine.getLoop (9)->setPendingTrigger (true, 0.25f);
    EXPECT_FALSE (engine.getLoop (9)->trigger.read());

    juce::AudioBuffer<float> buffer (2, 128);
    engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    EXPECT_TRUE (engine.getLoop (9)->trigger.read());
    EXPECT_DOUBLE_EQ (engine.getLoop (9)->gainFine.read(), 0.25);

    engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    EXPECT_TRUE (engine.getLoop (9)->trigger.read()); // acted on once
    engine.getAudioSource()->releaseResources();
}

TEST (LoopMixer, BusOffsetFallsBackToTheFirstBus)
{
    EXPECT_EQ (TavrineLoopMixer::busOffset (3, 16, 8, true), 6);
    EXPECT_EQ (TavrineLoopMixer::busOffset (3, 16, 2, true), 0);
    EXPECT_EQ (TavrineLoopMixer::busOffset (3, 16, 8, false), 0);
    EXPECT_EQ (TavrineLoopMixer::busOffset (2, 1, 8, true), 0);
    // The last bus needs all 32 channels.
    EXPECT_EQ (TavrineLoopMixer::busOffset (15, 16, 32, true), 30);
    EXPECT_EQ (TavrineLoopMixer::busOffset (15, 16, 31, true), 0);
    EXPECT_EQ (TavrineLoopMixer::busOffset (16, 16, 32, true), 0);
    EXPECT_EQ (TavrineLoopMixer::busOffset (0, 16, 32, true), 0);
}
