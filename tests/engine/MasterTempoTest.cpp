#include <cmath>
#include <gtest/gtest.h>

#include "tests/support/ProcessorHarness.h"

using namespace tavrine::test;

namespace
{
void renderBlock (TavrinePluginProcessor& processor, int n = 64)
{
    juce::AudioBuffer<float> buffer (2, n);
    juce::MidiBuffer midi;
    processor.processBlock (buffer, midi);
}
} // namespace

TEST (MasterTempo, TheFirstHostTempoFillsTheMasterTempoAndLaterOnesAreWrittenOnlyOnARealChange)
{
    TavrinePluginProcessor processor;
    FakePlayHead head;
    head.bpm = 128.0;
    processor.setPlayHead (&head);
    processor.prepareToPlay (44100.0, 64);
    auto& engine = processor.getEngine();
    auto& master = engine.getMasterChain();
    RecordingListener writes;
    master.outputBpm->addChangeListener (&writes, true);
    engine.triggerKey (3, TavrineEngine::Key::on);

    for (int block = 0; block < 3; ++block)
        renderBlock (processor);
    EXPECT_EQ (writes.calls.load(), 1);
    EXPECT_DOUBLE_EQ (master.outputBpm.read(), 128.0);
    EXPECT_DOUBLE_EQ (master.masterBpm.read(), 128.0);
    EXPECT_DOUBLE_EQ (master.stretchFactor.read(), 1.0);
    EXPECT_TRUE (engine.getLoop (3)->trigger.read()); // nothing was stopped

    head.bpm = std::nextafter (128.0, 200.0);
    renderBlock (processor);
    EXPECT_EQ (writes.calls.load(), 2);
    EXPECT_EQ (master.outputBpm.read(), head.bpm);
    master.outputBpm->removeChangeListener (&writes, true);
    processor.setPlayHead (nullptr);
}

TEST (MasterTempo, ATempoChangeStopsEveryLoopAndPreparesAgainUnlessRealtimeStretchingBendsTheMix)
{
    TavrineEngine engine;
    auto& master = engine.getMasterChain();
    engine.getAudioSource()->prepareToPlay (64, 44100.0);
    juce::AudioBuffer<float> buffer (2, 64);
    // The stop changes keys, so it waits for the audio thread's next block.
    auto nextBlock = [&] { engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer)); };
    auto expectTempi = [&] (double masterBpm, double stretchFactor) {
        EXPECT_DOUBLE_EQ (master.masterBpm.read(), masterBpm);
        EXPECT_DOUBLE_EQ (master.stretchFactor.read(), stretchFactor);
    };
    master.outputBpm.write (120.0);
    expectTempi (120.0, 1.0);
    engine.triggerKey (0, TavrineEngine::Key::on);
    engine.triggerKey (10, TavrineEngine::Key::on);

    master.outputBpm.write (90.0);
    EXPECT_FALSE (master.renderTrigger.read());
    EXPECT_TRUE (engine.getLoop (0)->trigger.read());
    nextBlock();
    expectTempi (90.0, 1.0);
    EXPECT_FALSE (engine.getLoop (0)->trigger.read());
    EXPECT_FALSE (engine.getLoop (10)->trigger.read());

    master.setRealtimeStretching (true);
    engine.triggerKey (0, TavrineEngine::Key::on);
    master.outputBpm.write (45.0);
    nextBlock();
    expectTempi (90.0, 2.0);
    EXPECT_TRUE (engine.getLoop (0)->trigger.read());

    // The render trigger prepares for the output tempo and resets itself.
    master.renderTrigger.write (true);
    EXPECT_FALSE (master.renderTrigger.read());
    nextBlock();
    expectTempi (45.0, 1.0);

    // Switching realtime off renders for the output tempo.
    master.outputBpm.write (90.0);
    engine.triggerKey (0, TavrineEngine::Key::on);
    master.setRealtimeStretching (false);
    nextBlock();
    expectTempi (90.0, 1.0);
    EXPECT_FALSE (engine.getLoop (0)->trigger.read());

    // A tempo that comes back before the next block stops nothing.
    engine.triggerKey (0, TavrineEngine::Key::on);
    master.outputBpm.write (100.0);
    master.outputBpm.write (90.0);
    nextBlock();
    expectTempi (90.0, 1.0);
    EXPECT_TRUE (engine.getLoop (0)->trigger.read());
    engine.getAudioSource()->releaseResources();
}

TEST (MasterTempo, TheUsersRealtimeSettingDrivesTheMasterChain)
{
    TavrinePluginProcessor processor;
    auto& master = processor.getEngine().getMasterChain();
    auto& settings = TavrineSettings::getInstance();
    settings.enableMasterRealtimeStretching.write (false);
    EXPECT_FALSE (master.isRealtimeStretching());

    master.outputBpm.write (120.0);
    settings.enableMasterRealtimeStretching.write (true);
    EXPECT_TRUE (master.isRealtimeStretching());
    master.outputBpm.write (100.0);
    EXPECT_DOUBLE_EQ (master.stretchFactor.read(), 1.2);
    settings.enableMasterRealtimeStretching.write (false);
    EXPECT_FALSE (master.isRealtimeStretching());
}

TEST (MasterTransport, StartingSwitchesTriggerPlayModeOffAndStoppingReleasesKeys)
{
    TavrinePluginProcessor processor;
    FakePlayHead head;
    processor.setPlayHead (&head);
    processor.prepareToPlay (44100.0, 64);
    auto& engine = processor.getEngine();
    auto& master = engine.getMasterChain();

    master.triggerPlayMode.write (true);
    head.playing = true;
    renderBlock (processor);
    EXPECT_FALSE (master.triggerPlayMode.read());
    EXPECT_FALSE (master.triggerPlayModeAvailable.read());

    engine.triggerKey (7, TavrineEngine::Key::on);
    head.playing = false;
    renderBlock (processor);
    EXPECT_TRUE (master.triggerPlayModeAvailable.read());
    EXPECT_FALSE (engine.getLoop (7)->trigger.read());

    // Stopped with trigger play mode on: keys keep running.
    head.playing = true;
    renderBlock (processor);
    head.playing = false;
    renderBlock (processor);
    master.triggerPlayMode.write (true);
    engine.triggerKey (8, TavrineEngine::Key::on);
    head.playing = false;
    renderBlock (processor);
    EXPECT_TRUE (engine.getLoop (8)->trigger.read());

    // Trigger play mode going off stops every key, at the next block.
    master.triggerPlayMode.write (false);
    renderBlock (processor);
    EXPECT_FALSE (engine.getLoop (8)->trigger.read());
    processor.setPlayHead (nullptr);
}

TEST (MasterTimeline, CountsBarsAtTheOutputTempoAndSamplesWithoutOne)
{
    TavrineEngine engine;
    auto& timeline = engine.getMasterChain().getMasterTimeline();
    EXPECT_DOUBLE_EQ (timeline.getStep(), 1.0);
    timeline.advance (100);
    EXPECT_DOUBLE_EQ (timeline.getPosition(), 100.0);

    engine.getMasterChain().outputBpm.write (120.0);
    // 120 bpm: one bar of four beats is two seconds.
    EXPECT_DOUBLE_EQ (timeline.positionOf (88200), 1.0);
    EXPECT_EQ (timeline.samplesOf (1.0), 88200);
    EXPECT_EQ (timeline.samplesOf (0.5), 44100);
    EXPECT_NEAR (timeline.getStep(), 1.0 / 88200.0, 1e-15);

    // Trigger play mode restarts the count at the start of the next block.
    engine.getMasterChain().triggerPlayMode.write (true);
    EXPECT_EQ (timeline.getSamplePosition(), 100);
    engine.getAudioSource()->prepareToPlay (64, 44100.0);
    juce::AudioBuffer<float> buffer (2, 64);
    engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    EXPECT_EQ (timeline.getSamplePosition(), 64);
    engine.getAudioSource()->releaseResources();
}

// Hosts allow tempi well outside the usual range. A tempo taken as it is
// compares equal on the next block, so the read-ahead is flushed once per
// real change and not on every block; a tempo beyond the range is held at
// its edge and compares equal as well.
class HostTempo : public ::testing::TestWithParam<std::pair<double, double>>
{};

TEST_P (HostTempo, IsTakenAsItIsAndFlushesTheReadAheadOncePerChange)
{
    const auto [hostBpm, expectedBpm] = GetParam();
    TavrinePluginProcessor processor;
    FakePlayHead head;
    head.bpm = hostBpm;
    processor.setPlayHead (&head);
    processor.prepareToPlay (44100.0, 64);
    auto& engine = processor.getEngine();
    auto& master = engine.getMasterChain();

    const auto before = engine.getNumFlushRequests();
    for (int block = 0; block < 100; ++block)
        renderBlock (processor);
    EXPECT_EQ (engine.getNumFlushRequests() - before, 1);
    EXPECT_DOUBLE_EQ (master.outputBpm.read(), expectedBpm);
    EXPECT_DOUBLE_EQ (master.masterBpm.read(), expectedBpm);

    head.bpm = 120.0; // a real change: one more flush
    for (int block = 0; block < 100; ++block)
        renderBlock (processor);
    EXPECT_EQ (engine.getNumFlushRequests() - before, 2);
    processor.setPlayHead (nullptr);
}

INSTANTIATE_TEST_SUITE_P (MasterTempo, HostTempo,
                          ::testing::Values (std::make_pair (20.0, 20.0), std::make_pair (400.0, 400.0),
                                             std::make_pair (0.5, 1.0), std::make_pair (5000.0, 999.0)));
