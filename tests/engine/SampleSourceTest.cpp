#include <gtest/gtest.h>

#include <cmath>
#include <mutex>
#include <thread>

#include <juce_audio_formats/juce_audio_formats.h>

#include "engine/TavrineEngine.h"
#include "engine/TavrineSampleAudioSource.h"
#include "samples/SampleKey.h"
#include "samples/TavrineSampleManager.h"
#include "tests/audio/AudioSourceTestSupport.h"
#include "tests/support/RecordingListener.h"
#include "tests/support/TempDirectory.h"

using namespace tavrine::test;

namespace
{
bool waitFor (const std::function<bool()>& done, int timeoutMs = 10000)
{
    const auto end = juce::Time::getMillisecondCounter() + (juce::uint32) timeoutMs;
    while (! done())
    {
        if (juce::Time::getMillisecondCounter() > end)
            return false;
        juce::Thread::sleep (1);
    }
    return true;
}

// Holds the preparation thread inside a job until released, so that a
// request stays on its way for as long as a test needs.
class GateJob : public SamplePreparationJob
{
public:
    int run (SamplePoolManager&) override
    {
        entered.signal();
        open.wait (10000);
        return 0;
    }
    int getWeight() const override { return 0; }

    juce::WaitableEvent entered, open;
};

// A sample that records the thread its last reference fell on.
class WatchedSample : public PreparedSample
{
public:
    WatchedSample (const juce::String& key, const juce::AudioBuffer<float>& audio,
                   std::atomic<juce::Thread::ThreadID>& lastThread, std::atomic<bool>& destroyed)
        : PreparedSample (key, std::make_unique<juce::AudioSampleBuffer> (audio), PreparedSample::makeReverse (audio),
                          nullptr),
          threadOut (lastThread), destroyedOut (destroyed)
    {
    }
    ~WatchedSample() override
    {
        threadOut.store (juce::Thread::getCurrentThreadId());
        destroyedOut.store (true);
    }

private:
    std::atomic<juce::Thread::ThreadID>& threadOut;
    std::atomic<bool>& destroyedOut;
};

PreparedSample::Ptr makeSample (const juce::String& key, const juce::AudioBuffer<float>& audio)
{
    return new PreparedSample (key, std::make_unique<juce::AudioSampleBuffer> (audio),
                               PreparedSample::makeReverse (audio), nullptr);
}

// A ramp 0, 1, 2, ... on channel 0 and its negative on channel 1: every
// sample tells where it was read.
juce::AudioBuffer<float> makeRamp (int length)
{
    juce::AudioBuffer<float> b (2, length);
    for (int i = 0; i < length; ++i)
    {
        b.setSample (0, i, (float) i);
        b.setSample (1, i, (float) -i);
    }
    return b;
}

// An engine's first loop with a sample source on it, a real sample manager
// with its cache in a directory of its own, and loop files written as WAV.
class SampleSourceTest : public ::testing::Test
{
protected:
    void SetUp() override { source = makeSource (0); }

    void TearDown() override { source = nullptr; }

    // Installed as the root of the loop's chain, as the engine does.
    TavrineSampleAudioSourcePtr makeSource (int loopIndex)
    {
        auto& master = engine.getMasterChain();
        auto& loop = *engine.getLoop (loopIndex);
        TavrineSampleAudioSourcePtr made (
            new TavrineSampleAudioSource (loop, manager, master.masterBpm.get(), master.outputBpm.get()));
        loop.setSampleSource (made.get());
        return made;
    }

    juce::String writeLoop (const juce::String& name, int length)
    {
        const auto file = files.root.getChildFile (name);
        auto audio = makeSine (2, length, 441.0);
        std::unique_ptr<juce::OutputStream> stream (file.createOutputStream());
        juce::WavAudioFormat wav;
        std::unique_ptr<juce::AudioFormatWriter> writer (wav.createWriterFor (stream.get(), 44100.0, 2, 24, {}, 0));
        stream.release();
        writer->writeFromAudioSampleBuffer (audio, 0, length);
        return file.getFullPathName();
    }

    // What the timer does once the settings have rested, then the wait for
    // the answer.
    bool settleAndDeliver (TavrineSampleAudioSource& s)
    {
        const bool asked = s.checkDebounce (s.getLastAdjustTimeMs() + TavrineSampleAudioSource::kSettleMs);
        EXPECT_TRUE (waitFor ([&] { return ! s.rendering.read() && manager.getPreparationThread().isIdle(); }));
        return asked;
    }

    int sampleLength (TavrineSampleAudioSource& s)
    {
        auto current = s.getCurrentSample();
        return current != nullptr ? current->getForward().getNumSamples() : 0;
    }

    TempDirectory files { "tavrine-source-files" };
    TempDirectory cache { "tavrine-source-cache" };
    TavrineSampleManager manager { cache.root };
    TavrineEngine engine;
    TavrineSampleAudioSourcePtr source;
};
} // namespace

//==============================================================================
TEST_F (SampleSourceTest, AFileNameSetsAdjustingAndTheDebounceWaits201Ms)
{
    source->fileName.write (writeLoop ("Loop_120_a.wav", 4410));
    ASSERT_TRUE (source->adjusting.read());
    const auto t0 = source->getLastAdjustTimeMs();
    EXPECT_FALSE (source->checkDebounce (t0 + 200));
    EXPECT_TRUE (source->adjusting.read());
    EXPECT_TRUE (source->checkDebounce (t0 + 201));
    EXPECT_FALSE (source->adjusting.read());
    EXPECT_TRUE (source->rendering.read());
    EXPECT_TRUE (waitFor ([&] { return ! source->rendering.read(); }));
    EXPECT_EQ (source->totalLength.read(), 4410);
}

// Whoever assigns a file marks the key as loading first, and only a delivery
// clears the mark: the timer must not wait for it, or the file never comes.
TEST_F (SampleSourceTest, AFileAssignedAsLoadingIsStillRequestedAndClearsLoadingOnDelivery)
{
    source->loading.write (true);
    source->fileName.write (writeLoop ("Loop_120_a.wav", 4410));
    EXPECT_TRUE (settleAndDeliver (*source));
    EXPECT_FALSE (source->loading.read());
    EXPECT_EQ (source->totalLength.read(), 4410);
}

TEST_F (SampleSourceTest, TheFileNameOfWhatPlaysQueuesNothingAndClearsLoading)
{
    source->fileName.write (writeLoop ("Loop_120_a.wav", 4410));
    ASSERT_TRUE (settleAndDeliver (*source));
    const auto playing = source->getCurrentSample();

    source->loading.write (true);
    source->fileName->notifyChanged (false, false);
    EXPECT_FALSE (source->loading.read());
    EXPECT_FALSE (source->adjusting.read());
    EXPECT_FALSE (source->checkDebounce (source->getLastAdjustTimeMs() + 1000));
    EXPECT_EQ (manager.getPreparationThread().getNumQueuedJobs(), 0);
    EXPECT_EQ (source->getCurrentSample(), playing);
}

TEST_F (SampleSourceTest, ASingleShotIsNotLoopedNotStretchedAndPlaysTheLoadedSampleItself)
{
    engine.getMasterChain().masterBpm.write (90.0);
    const auto url = writeLoop ("Loop_s_120.wav", 4410);
    auto& loop = *engine.getLoop (0);
    source->sourceBpm.write (140.0);
    source->fileName.write (url);

    EXPECT_FALSE (loop.loopingEnabled.read());
    EXPECT_FALSE (loop.loopingEnabled.getDefault().get());
    EXPECT_FALSE (source->sourceLooping.read());
    EXPECT_EQ (source->sourceBpm.read(), 0.0);
    EXPECT_EQ (source->stretchFactor.read(), 1.0);

    ASSERT_TRUE (settleAndDeliver (*source));
    EXPECT_EQ (source->getRenderJob().getNumRenders(), 0);
    auto plain = manager.getSample (SampleKey::make (url, {}));
    ASSERT_NE (plain, nullptr);
    EXPECT_EQ (source->getCurrentSample(), plain);
    EXPECT_EQ (&source->getCurrentSample()->getForward(), &plain->getForward());
}

TEST_F (SampleSourceTest, TheFirstSampleWithATempoSetsTheMasterTempoAndTheSecondDoesNot)
{
    auto& masterBpm = engine.getMasterChain().masterBpm;
    ASSERT_EQ (masterBpm.read(), 0.0);
    source->fileName.write (writeLoop ("Loop_120_a.wav", 4410));
    EXPECT_EQ (masterBpm.read(), 120.0);
    EXPECT_EQ (source->stretchFactor.read(), 1.0);

    auto second = makeSource (1);
    second->fileName.write (writeLoop ("Loop_097_b.wav", 4410));
    EXPECT_EQ (masterBpm.read(), 120.0);
    EXPECT_EQ (second->sourceBpm.read(), 97.0);
    EXPECT_DOUBLE_EQ (second->stretchFactor.read(), 97.0 / 120.0);
    second = nullptr;
}

// The master chain writes the master tempo on the audio thread when a tempo
// change stops everything: the sources' reactions (stretch factor, adjusting,
// the relative tempo's text) then run there too, and must not allocate.
TEST_F (SampleSourceTest, ReactionsToAMasterTempoWrittenOnTheAudioThreadAllocateNothing)
{
    auto second = makeSource (1);
    for (auto* s : { source.get(), second.get() })
        s->sourceBpm.write (120.0);
    auto& masterBpm = engine.getMasterChain().masterBpm;
    masterBpm.write (90.0);
    std::size_t allocations = 1;
    std::thread audio ([&] {
        masterBpm.write (100.0); // first write on this thread: its FIFO slot may be set up
        ScopedAllocationCount count;
        masterBpm.write (110.0);
        allocations = count.count();
    });
    audio.join();
    EXPECT_EQ (allocations, 0u);
    EXPECT_DOUBLE_EQ (second->stretchFactor.read(), 120.0 / 110.0);
    EXPECT_TRUE (second->adjusting.read());
    second = nullptr;
}

// A 120 bpm loop at a master tempo of 90 renders 4/3 as long; doubling the
// relative tempo halves the factor and the render.
TEST_F (SampleSourceTest, TheRenderLengthFollowsSourceOverMasterOverRelativeTempo)
{
    const int length = 22050;
    engine.getMasterChain().masterBpm.write (90.0);
    source->fileName.write (writeLoop ("Loop_120_a.wav", length));
    EXPECT_DOUBLE_EQ (source->stretchFactor.read(), 120.0 / 90.0);
    ASSERT_TRUE (settleAndDeliver (*source));
    EXPECT_EQ (sampleLength (*source), (int) std::lround (4.0 / 3.0 * length));

    source->relativeBpm.write (2.0);
    EXPECT_DOUBLE_EQ (source->stretchFactor.read(), 120.0 / 90.0 / 2.0);
    ASSERT_TRUE (settleAndDeliver (*source));
    EXPECT_EQ (sampleLength (*source), (int) std::lround (2.0 / 3.0 * length));
    EXPECT_EQ (source->getRenderJob().getNumRenders(), 2);
}

// "Pitch-Speed" bends the tempo in the resampler: nothing is stretched, but
// the variant is still told apart from that of another mode.
TEST_F (SampleSourceTest, PitchSpeedKeepsTheFactorAtOneButChangesTheKey)
{
    engine.getMasterChain().masterBpm.write (90.0);
    const auto url = writeLoop ("Loop_120_a.wav", 4410);
    source->fileName.write (url);
    ASSERT_TRUE (source->resamplingMode.isBound());
    source->resamplingMode.write (0);
    EXPECT_DOUBLE_EQ (source->stretchFactor.read(), 120.0 / 90.0);
    const auto keyModeZero = SampleKey::make (url, source->getChain().getRenderSignature());

    source->resamplingMode.write (3);
    EXPECT_EQ (source->stretchFactor.read(), 1.0);
    EXPECT_NE (SampleKey::make (url, source->getChain().getRenderSignature()), keyModeZero);
    ASSERT_TRUE (settleAndDeliver (*source));
    EXPECT_EQ (source->getRenderJob().getNumRenders(), 0);
    EXPECT_EQ (sampleLength (*source), 4410);
}

TEST_F (SampleSourceTest, AFactorWithinAThousandthOfOneRendersNothing)
{
    engine.getMasterChain().masterBpm.write (120.0 / 1.0005);
    const auto url = writeLoop ("Loop_120_a.wav", 4410);
    source->fileName.write (url);
    EXPECT_NEAR (source->stretchFactor.read(), 1.0005, 1.0e-9);
    ASSERT_TRUE (settleAndDeliver (*source));
    EXPECT_EQ (source->getRenderJob().getNumRenders(), 0);
    EXPECT_EQ (source->getCurrentSample()->getKey(), SampleKey::make (url, {}));
}

TEST_F (SampleSourceTest, ASettingReturnedToAnEarlierValueFindsItsRenderAndStillTogglesRendering)
{
    auto& masterBpm = engine.getMasterChain().masterBpm;
    masterBpm.write (90.0);
    source->fileName.write (writeLoop ("Loop_120_a.wav", 8820));
    ASSERT_TRUE (settleAndDeliver (*source));
    const auto first = source->getCurrentSample();
    masterBpm.write (100.0);
    ASSERT_TRUE (settleAndDeliver (*source));
    ASSERT_EQ (source->getRenderJob().getNumRenders(), 2);

    // The flag is written on the message thread and cleared on the
    // preparation thread.
    RecordingListener listener;
    std::mutex seenLock;
    std::vector<bool> seen;
    listener.onChange = [&] (auto*) {
        const std::lock_guard<std::mutex> guard (seenLock);
        seen.push_back (source->rendering.read());
    };
    source->rendering->addChangeListener (&listener, true);
    masterBpm.write (90.0);
    ASSERT_TRUE (settleAndDeliver (*source));
    ASSERT_TRUE (waitFor ([&] { return listener.calls.load() >= 2; }));
    source->rendering->removeChangeListener (&listener, true);

    EXPECT_EQ (source->getRenderJob().getNumRenders(), 2);
    EXPECT_EQ (source->getCurrentSample(), first);
    const std::lock_guard<std::mutex> guard (seenLock);
    EXPECT_EQ (seen, (std::vector<bool> { true, false }));
}

// A change during a render sets "adjusting" again; the timer waits for the
// render to end and then renders exactly once more, however often it ticks.
TEST_F (SampleSourceTest, AChangeDuringARenderCausesExactlyOneMoreRender)
{
    engine.getMasterChain().masterBpm.write (90.0);
    source->fileName.write (writeLoop ("Loop_120_a.wav", 8820));
    juce::ReferenceCountedObjectPtr<GateJob> gate (new GateJob());
    manager.getPreparationThread().addJob (gate.get(), SamplePreparationThread::Priority::normal);
    ASSERT_TRUE (gate->entered.wait (5000));

    int requests = 0;
    juce::uint32 now = source->getLastAdjustTimeMs();
    auto tick = [&] {
        now += (juce::uint32) TavrineSampleAudioSource::kTimerIntervalMs;
        requests += source->checkDebounce (now) ? 1 : 0;
    };
    for (int i = 0; i < 3; ++i)
        tick();
    ASSERT_EQ (requests, 1);
    ASSERT_TRUE (source->rendering.read());

    // Two changes during the render, then the timer goes on ticking.
    source->relativeBpm.write (1.5);
    source->relativeBpm.write (2.0);
    now = source->getLastAdjustTimeMs();
    for (int i = 0; i < 10; ++i)
        tick();
    EXPECT_EQ (requests, 1);

    gate->open.signal();
    ASSERT_TRUE (waitFor ([&] { return ! source->rendering.read(); }));
    now = juce::jmax (now, source->getLastAdjustTimeMs());
    for (int i = 0; i < 10; ++i)
        tick();
    ASSERT_TRUE (waitFor ([&] { return ! source->rendering.read() && manager.getPreparationThread().isIdle(); }));
    for (int i = 0; i < 10; ++i)
        tick();

    EXPECT_EQ (requests, 2);
    EXPECT_EQ (sampleLength (*source), (int) std::lround (120.0 / 90.0 / 2.0 * 8820));
}

// A stretch factor written by the render itself, on the preparation thread,
// never calls for another render; written anywhere else, it does.
TEST_F (SampleSourceTest, OnlyAStretchFactorChangedOffThePreparationThreadSetsAdjusting)
{
    struct WriteFactor : public SamplePreparationJob
    {
        explicit WriteFactor (TavrineSampleAudioSource& s) : target (s) {}
        int run (SamplePoolManager&) override
        {
            target.stretchFactor.write (1.5);
            done.signal();
            return 0;
        }
        int getWeight() const override { return 0; }
        TavrineSampleAudioSource& target;
        juce::WaitableEvent done;
    };
    juce::ReferenceCountedObjectPtr<WriteFactor> job (new WriteFactor (*source));
    manager.getPreparationThread().addJob (job.get(), SamplePreparationThread::Priority::normal);
    ASSERT_TRUE (job->done.wait (5000));
    EXPECT_EQ (source->stretchFactor.read(), 1.5);
    EXPECT_FALSE (source->adjusting.read());

    source->stretchFactor.write (1.25);
    EXPECT_TRUE (source->adjusting.read());
}

//==============================================================================
TEST_F (SampleSourceTest, AnIdleLoopTakesANewSampleAtOnceAndKeepsThePositionsFraction)
{
    PreparedSample::Ptr a = makeSample ("a", makeRamp (1000));
    source->jobFinished (a, 0);
    ASSERT_EQ (source->getCurrentSample(), a);
    source->setNextReadPosition (500);

    PreparedSample::Ptr b = makeSample ("b", makeRamp (3000));
    source->jobFinished (b, 0);
    EXPECT_EQ (source->getCurrentSample(), b);
    EXPECT_EQ (source->totalLength.read(), 3000);
    EXPECT_EQ (source->nextReadPosition.read(), 1500);
    EXPECT_FALSE (source->getReplaceEvent().isArmed());

    juce::AudioBuffer<float> out (2, 4);
    source->getNextAudioBlock (juce::AudioSourceChannelInfo (&out, 0, 4));
    EXPECT_EQ (out.getSample (0, 0), 1500.0f);
}

TEST_F (SampleSourceTest, APlayingLoopStaysArmedUntilTheEventIsPerformed)
{
    auto& loop = *engine.getLoop (0);
    PreparedSample::Ptr a = makeSample ("a", makeRamp (1000));
    source->jobFinished (a, 0);
    loop.playing.write (true);
    source->setNextReadPosition (250);

    PreparedSample::Ptr b = makeSample ("b", makeRamp (2000));
    source->jobFinished (b, 0);
    EXPECT_TRUE (source->getReplaceEvent().isArmed());
    EXPECT_EQ (source->getCurrentSample(), a);
    EXPECT_TRUE (source->getReplaceEvent().describe().endsWith ("sample=b)"));

    source->getReplaceEvent().process();
    EXPECT_EQ (source->getCurrentSample(), b);
    EXPECT_EQ (source->nextReadPosition.read(), 500);
    EXPECT_FALSE (source->getReplaceEvent().isArmed());
}

// Through the loop's own chain: the armed sample waits for the end of the
// loop (here the end of the sample) and is swapped in there, on the audio
// thread, without an allocation.
TEST_F (SampleSourceTest, APlayingLoopSwapsAtItsBoundaryWithoutAllocating)
{
    auto& loop = *engine.getLoop (0);
    loop.prepareToPlay (64, 44100.0);
    PreparedSample::Ptr a = makeSample ("a", makeRamp (1000));
    PreparedSample::Ptr b = makeSample ("b", makeRamp (2000));
    source->jobFinished (a, 0);
    loop.playing.write (true);

    juce::AudioBuffer<float> out (2, 64);
    int rendered = 0;
    auto render = [&] {
        loop.getNextAudioBlock (juce::AudioSourceChannelInfo (&out, 0, 64));
        rendered += 64;
    };
    for (int i = 0; i < 8; ++i)
        render();
    source->jobFinished (b, 0);
    ASSERT_TRUE (source->getReplaceEvent().isArmed());
    EXPECT_EQ (source->getReplaceEvent().getTime(), loop.getNextLoopBoundary());

    ScopedAllocationCount allocations;
    while (rendered + 64 <= 1000)
    {
        render();
        ASSERT_EQ (source->getCurrentSample(), a) << "after " << rendered;
    }
    render();
    EXPECT_EQ (source->getCurrentSample(), b) << "after " << rendered;
    EXPECT_FALSE (source->getReplaceEvent().isArmed());
    EXPECT_EQ (allocations.count(), 0u);
}

TEST_F (SampleSourceTest, ALoopThatStopsWhileArmedTakesTheNewSampleAtOnce)
{
    auto& loop = *engine.getLoop (0);
    source->jobFinished (makeSample ("a", makeRamp (1000)), 0);
    loop.playing.write (true);
    PreparedSample::Ptr b = makeSample ("b", makeRamp (2000));
    source->jobFinished (b, 0);
    ASSERT_TRUE (source->getReplaceEvent().isArmed());
    loop.playing.write (false);
    EXPECT_EQ (source->getCurrentSample(), b);
}

TEST_F (SampleSourceTest, ANullSampleOnDeliverySilencesTheLoopAndClearsTheFlags)
{
    source->jobFinished (makeSample ("a", makeRamp (1000)), 0);
    source->setNextReadPosition (10);
    source->loading.write (true);
    source->rendering.write (true);
    source->jobFinished (nullptr, 1);

    EXPECT_EQ (source->getCurrentSample(), nullptr);
    EXPECT_EQ (source->totalLength.read(), 0);
    EXPECT_FALSE (source->loading.read());
    EXPECT_FALSE (source->rendering.read());
    auto out = makeConstant (2, 64, 0.25f);
    source->getNextAudioBlock (juce::AudioSourceChannelInfo (&out, 0, 64));
    EXPECT_EQ (out.getMagnitude (0, 64), 0.0f);
}

// The sample that leaves is handed to the release job; its last reference
// falls on the preparation thread, never on the thread of the swap.
TEST_F (SampleSourceTest, TheOldSamplesLastReferenceFallsOnThePreparationThread)
{
    auto& loop = *engine.getLoop (0);
    std::atomic<juce::Thread::ThreadID> lastThread { nullptr };
    std::atomic<bool> destroyed { false };
    {
        PreparedSample::Ptr old (new WatchedSample ("old", makeRamp (1000), lastThread, destroyed));
        source->jobFinished (old, 0);
    }
    loop.playing.write (true);
    source->jobFinished (makeSample ("new", makeRamp (500)), 0);
    ASSERT_TRUE (source->getReplaceEvent().isArmed());

    std::thread audio ([&] { source->getReplaceEvent().process(); });
    audio.join();
    ASSERT_TRUE (waitFor ([&] { return destroyed.load(); }));
    EXPECT_EQ (lastThread.load(), manager.getPreparationThread().getThreadId());
}

//==============================================================================
// "reverse" and "globalReverse" are an exclusive or: the reverse buffer plays
// when exactly one is set, and switching renders nothing.
struct DirectionCase
{
    bool reverse, globalReverse, backwards;
};

class SampleSourceDirectionTest : public SampleSourceTest,
                                  public ::testing::WithParamInterface<DirectionCase>
{};

TEST_P (SampleSourceDirectionTest, PlaysTheReverseBufferWhenExactlyOneSwitchIsSet)
{
    const auto c = GetParam();
    source->jobFinished (makeSample ("a", makeRamp (100)), 0);
    source->reverse.write (c.reverse);
    source->globalReverse.write (c.globalReverse);
    juce::AudioBuffer<float> out (2, 3);
    source->getNextAudioBlock (juce::AudioSourceChannelInfo (&out, 0, 3));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ (out.getSample (0, i), c.backwards ? (float) (99 - i) : (float) i);
    EXPECT_FALSE (source->adjusting.read());
    EXPECT_EQ (manager.getPreparationThread().getNumQueuedJobs(), 0);
}

INSTANTIATE_TEST_SUITE_P (Switches, SampleSourceDirectionTest,
                          ::testing::Values (DirectionCase { false, false, false }, DirectionCase { true, false, true },
                                             DirectionCase { false, true, true }, DirectionCase { true, true, false }));

//==============================================================================
// The preparation thread delivers while an audio thread plays and performs
// swaps and a third thread writes the source's parameters. Run under TSan.
TEST_F (SampleSourceTest, DeliveriesPlaybackAndParameterWritesRunConcurrently)
{
    auto& loop = *engine.getLoop (0);
    loop.playing.write (true);
    source->jobFinished (makeSample ("start", makeRamp (1000)), 0);
    std::atomic<bool> stop { false };

    std::thread audio ([&] {
        juce::AudioBuffer<float> out (2, 128);
        while (! stop.load())
        {
            source->getNextAudioBlock (juce::AudioSourceChannelInfo (&out, 0, 128));
            if (source->getReplaceEvent().isArmed())
                source->getReplaceEvent().process();
        }
    });
    std::thread writer ([&] {
        for (int i = 0; ! stop.load(); ++i)
        {
            source->reverse.write ((i & 1) != 0);
            source->globalReverse.write ((i & 2) != 0);
            source->pitchSemitonesFine.write ((i % 5) * 0.1 - 0.2);
        }
    });

    // Queued together, so that the deliveries follow each other as fast as
    // the preparation thread runs them.
    struct Deliver : public SamplePreparationJob
    {
        Deliver (TavrineSampleAudioSource& s, int n, std::atomic<int>& count) : target (s), index (n), done (count) {}
        int run (SamplePoolManager&) override
        {
            target.jobFinished (makeSample ("s" + juce::String (index), makeRamp (500 + index)), 0);
            ++done;
            return 0;
        }
        int getWeight() const override { return 0; }
        TavrineSampleAudioSource& target;
        int index;
        std::atomic<int>& done;
    };
    constexpr int deliveries = 200;
    std::atomic<int> delivered { 0 };
    for (int i = 0; i < deliveries; ++i)
        manager.getPreparationThread().addJob (new Deliver (*source, i, delivered),
                                               SamplePreparationThread::Priority::normal);
    EXPECT_TRUE (waitFor ([&] { return delivered.load() == deliveries; }));
    stop.store (true);
    audio.join();
    writer.join();
    EXPECT_TRUE (waitFor ([&] { return manager.getPreparationThread().isIdle(); }));
    EXPECT_NE (source->getCurrentSample(), nullptr);
}

//==============================================================================
struct TempoNameCase
{
    const char* url;
    double tempo;
};

class TempoFromNameTest : public ::testing::TestWithParam<TempoNameCase>
{};

TEST_P (TempoFromNameTest, ReadsTheTempoAtItsPlaceInTheName)
{
    EXPECT_DOUBLE_EQ (TavrineSampleAudioSource::tempoFromName (GetParam().url), GetParam().tempo) << GetParam().url;
}

INSTANTIATE_TEST_SUITE_P (
    Names, TempoFromNameTest,
    ::testing::Values (TempoNameCase { "/banks/Loop_120_funk.wav", 120.0 },
                       TempoNameCase { "tavrine:bank/Drums/Beat_097_x.wav", 97.0 },
                       TempoNameCase { "C:\\loops\\Bass_085_deep.wav", 85.0 },
                       TempoNameCase { "/banks/a_loop_140_b.wav", 140.0 }, // "_" at 1: from 7
                       TempoNameCase { "/banks/Loop_95_x.wav", 95.0 }, TempoNameCase { "/banks/Loop_abc.wav", 0.0 },
                       TempoNameCase { "/banks\\Loop_120.wav", 0.0 }, // the last "/" wins over a backslash
                       TempoNameCase { "Loop_", 0.0 }, TempoNameCase { "", 0.0 }));
