#include <atomic>
#include <thread>
#include <gtest/gtest.h>

#include "engine/TavrineEngine.h"
#include "tests/audio/AudioSourceTestSupport.h"
#include "tests/support/AllocationCounter.h"

// Which thread changes a key's state. Run under TSan as well: the settings
// written here from a second thread must reach the keys only through requests
// that the rendering thread acts on.
namespace
{
// Counts trigger changes made on any thread but the one named as the audio
// thread (synchronous listeners run on the writing thread).
class TriggerThreadWatch : public qvrControllableAPI::ParameterChangeListener
{
public:
    explicit TriggerThreadWatch (TavrineEngine& e) : engine (e)
    {
        for (auto* loop : engine.getLoops())
            loop->trigger->addChangeListener (this, true);
    }
    ~TriggerThreadWatch() override
    {
        for (auto* loop : engine.getLoops())
            loop->trigger->removeChangeListener (this, true);
    }
    void parameterChanged (qvrControllableAPI::ParameterDef*) override
    {
        if (std::this_thread::get_id() != audioThread.load())
            ++offThreadChanges;
    }

    std::atomic<std::thread::id> audioThread {};
    std::atomic<int> offThreadChanges { 0 };

private:
    TavrineEngine& engine;
};

// Renders blocks on a thread of its own, pressing a key before each block as
// MIDI does, while `write` runs on this thread; returns how many trigger
// changes happened on any thread but the rendering one.
template <typename Write>
int offThreadKeyChanges (TavrineEngine& engine, Write&& write)
{
    TriggerThreadWatch watch (engine);
    std::atomic<bool> writing { true };
    std::thread audio ([&] {
        watch.audioThread = std::this_thread::get_id();
        juce::AudioBuffer<float> buffer (2, 128);
        for (int block = 0; writing.load() || block < 64; ++block)
        {
            engine.triggerKey (block % 12, TavrineEngine::Key::on);
            engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
        }
    });
    for (int i = 0; i < 300; ++i)
    {
        write (i);
        std::this_thread::yield();
    }
    writing = false;
    audio.join();
    return watch.offThreadChanges.load();
}
} // namespace

TEST (EngineThreads, SettingsWrittenOnAnotherThreadChangeKeysOnlyOnTheAudioThread)
{
    TavrineEngine engine;
    auto& master = engine.getMasterChain();
    master.outputBpm.write (120.0); // the master tempo follows: nothing to stop
    qvrControllableHandle::BoolParamDefHandle realtimeSetting { "enableMasterRealtimeStretching" };
    master.bindRealtimeStretchingSetting (realtimeSetting.get());
    engine.getAudioSource()->prepareToPlay (128, 44100.0);

    EXPECT_EQ (offThreadKeyChanges (engine,
                                    [&] (int i) {
                                        master.triggerPlayMode.write (i % 2 == 0);
                                        realtimeSetting.write (i % 3 == 0);
                                        master.renderTrigger.write (true);
                                    }),
               0);

    // Trigger play mode going off releases every key, at the next block of
    // the audio thread (this one from now on).
    engine.triggerKey (3, TavrineEngine::Key::on);
    master.triggerPlayMode.write (true);
    master.triggerPlayMode.write (false);
    EXPECT_TRUE (engine.getLoop (3)->trigger.read());
    juce::AudioBuffer<float> buffer (2, 128);
    engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    for (auto* loop : engine.getLoops())
        EXPECT_FALSE (loop->trigger.read()) << "key " << engine.indexOfLoop (loop);
    master.bindRealtimeStretchingSetting (nullptr);
    engine.getAudioSource()->releaseResources();
}

TEST (EngineThreads, TempoWrittenOnAnotherThreadWhileKeysPlayChangesKeysOnlyOnTheAudioThread)
{
    // A user who drags the master tempo while the host renders: in real time
    // the stretch factor follows on the writing thread, without it every
    // change stops the keys, which only the audio thread may do.
    for (const bool realtime : { true, false })
    {
        TavrineEngine engine;
        auto& master = engine.getMasterChain();
        master.outputBpm.write (120.0);
        master.setRealtimeStretching (realtime);
        engine.getAudioSource()->prepareToPlay (128, 44100.0);
        EXPECT_EQ (offThreadKeyChanges (engine, [&] (int i) { master.masterBpm.write (i % 2 == 0 ? 96.0 : 140.0); }), 0)
            << (realtime ? "realtime" : "stopping");
        engine.getAudioSource()->releaseResources();
    }
}

TEST (EngineThreads, ReleasingEveryKeyAtTheNextBlockAllocatesNothing)
{
    TavrineEngine engine;
    engine.getMasterChain().outputBpm.write (120.0);
    engine.getAudioSource()->prepareToPlay (128, 44100.0);
    juce::AudioBuffer<float> buffer (2, 128);
    auto block = [&] { engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer)); };
    block();
    for (int key = 0; key < 20; ++key)
        engine.triggerKey (key, TavrineEngine::Key::on);

    engine.requestReleaseAll();
    EXPECT_TRUE (engine.getLoop (19)->trigger.read());
    EXPECT_EQ (tavrine::test::allocationsOnAudioThread (block), 0u);
    for (int key = 0; key < 20; ++key)
        EXPECT_FALSE (engine.getLoop (key)->trigger.read()) << "key " << key;
    engine.getAudioSource()->releaseResources();
}

namespace
{
// A loop's sample source that, while the audio thread is inside one chosen
// block, lets another thread write a setting and waits for it: a user's
// write that lands in the middle of a block.
class WriteDuringRenderSource : public juce::AudioSource
{
public:
    void prepareToPlay (int, double) override {}
    void releaseResources() override {}
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override
    {
        info.clearActiveBufferRegion();
        if (calls++ == writeOnCall && write)
            std::thread (write).join();
    }
    int calls = 0, writeOnCall = -1;
    std::function<void()> write;
};
} // namespace

TEST (EngineThreads, AGridRestartWrittenDuringABlockStartsOnTheNextBlocksFirstSample)
{
    TavrineEngine engine;
    auto& master = engine.getMasterChain();
    auto& timeline = master.getMasterTimeline();
    master.outputBpm.write (120.0);
    auto* loop = engine.getLoop (0);
    auto* source = new WriteDuringRenderSource();
    loop->setHeadSource (source, true);
    engine.getAudioSource()->prepareToPlay (100, 44100.0);
    loop->playing.write (true);

    source->writeOnCall = 3;
    source->write = [&] {
        master.triggerSyncSnapMode.write (8);
        master.triggerPlayMode.write (true);
    };
    juce::AudioBuffer<float> buffer (2, 100);
    for (int block = 0; block < 5; ++block)
        engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    ASSERT_EQ (source->calls, 5);

    // The grid restarted at the start of the fifth block, and its first tick
    // is an eighth of a bar (at 120 bpm, 11025 samples) after that.
    EXPECT_EQ (timeline.getSamplePosition(), 100);
    EXPECT_DOUBLE_EQ (master.getTriggerSync().getEvent()->getTime(), 0.125);
    engine.getAudioSource()->releaseResources();
}
