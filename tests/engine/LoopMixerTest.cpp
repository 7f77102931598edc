#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "engine/TavrineEngine.h"
#include "tests/audio/AudioSourceTestSupport.h"

using namespace tavrine::test;
using qvrControllableAudio::MemoryAudioSource;

namespace
{
// A memory source that counts its renders, to see which loops the mixer
// really pulls.
class CountingSource : public MemoryAudioSource
{
public:
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override
    {
        renders.fetch_add (1, std::memory_order_relaxed);
        MemoryAudioSource::getNextAudioBlock (info);
    }
    std::atomic<int> renders { 0 };
};

// An engine whose loops each play their own buffer (noise of a different
// seed, a different length) through the full chain.
struct LoadedEngine
{
    explicit LoadedEngine (int numLoops = TavrineEngine::kNumLoops)
    {
        for (int i = 0; i < numLoops; ++i)
        {
            buffers.push_back (std::make_unique<juce::AudioBuffer<float>> (makeNoise (2, 8000 + 97 * i, i + 1)));
            auto* source = new CountingSource();
            sources.push_back (source);
            source->setBuffer (buffers.back().get(), false);
            engine.getLoop (i)->setSampleSource (source);
        }
    }

    std::vector<std::unique_ptr<juce::AudioBuffer<float>>> buffers;
    TavrineEngine engine;
    std::vector<juce::ReferenceCountedObjectPtr<CountingSource>> sources;
};

struct BusCase
{
    int channels;
    bool multipleOutputs;
    int expectedLeft; // the channel the loop's left side lands on
};
} // namespace

class MixerBuses : public ::testing::TestWithParam<BusCase>
{
};

// A loop on bus 3: channels 6 and 7 when the block has them and multiple
// outputs are on; bus 0 otherwise. Nothing lands anywhere else.
TEST_P (MixerBuses, ALoopOnBusThreeLandsOnItsPairOrOnBusZero)
{
    const auto& c = GetParam();
    LoadedEngine rig (1);
    auto& mixer = rig.engine.getLoopMixer();
    auto* loop = rig.engine.getLoop (0);
    loop->outputBus.write (3);
    mixer.setMultipleOutputsEnabled (c.multipleOutputs);
    mixer.prepareToPlay (128, 44100.0);
    loop->trigger.write (true);

    juce::AudioBuffer<float> out (c.channels, 256);
    renderInBlocks (mixer, out, 128);
    for (int ch = 0; ch < c.channels; ++ch)
    {
        const bool expectSignal = ch == c.expectedLeft || ch == c.expectedLeft + 1;
        EXPECT_EQ (out.getMagnitude (ch, 0, 256) > 0.0f, expectSignal) << "channel " << ch;
    }
    mixer.releaseResources();
}

INSTANTIATE_TEST_SUITE_P (Channels, MixerBuses,
                          ::testing::Values (BusCase { 2, true, 0 }, BusCase { 8, true, 6 }, BusCase { 32, true, 6 },
                                             BusCase { 8, false, 0 }, BusCase { 32, false, 0 }, BusCase { 6, true, 0 }));

TEST (MixerIdle, SkipsEveryLoopThatIsNotActive)
{
    LoadedEngine rig;
    auto& mixer = rig.engine.getLoopMixer();
    mixer.prepareToPlay (128, 44100.0);
    juce::AudioBuffer<float> out (2, 128);
    for (int block = 0; block < 10; ++block)
        mixer.getNextAudioBlock (juce::AudioSourceChannelInfo (out));
    for (auto& source : rig.sources)
        EXPECT_EQ (source->renders.load(), 0);
    EXPECT_EQ (out.getMagnitude (0, 128), 0.0f);

    rig.engine.getLoop (17)->trigger.write (true);
    mixer.getNextAudioBlock (juce::AudioSourceChannelInfo (out));
    for (int i = 0; i < (int) rig.sources.size(); ++i)
        EXPECT_EQ (rig.sources[(size_t) i]->renders.load() > 0, i == 17) << "loop " << i;
    mixer.releaseResources();
}

TEST (LoopAllocation, SeventyTwoLoopsPlayingAndRetriggeringAllocateNothing)
{
    LoadedEngine rig;
    auto& engine = rig.engine;
    for (int i = 0; i < engine.getNumLoops(); ++i)
    {
        auto* loop = engine.getLoop (i);
        loop->getEqSource().filterType.write (juce::String ("Low"));
        // Releases that run, so that retriggers render their tails.
        loop->getEnvelopeSource().envelopeRelease.write (300 + i);
    }
    engine.getAudioSource()->prepareToPlay (128, 44100.0);
    juce::AudioBuffer<float> out (2, 128);
    auto block = [&] { engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (out)); };
    block();

    const auto allocations = allocationsOnAudioThread ([&] {
        for (int i = 0; i < engine.getNumLoops(); ++i)
            engine.triggerKey (i, TavrineEngine::Key::on);
        for (int b = 0; b < 200; ++b)
        {
            block();
            const int key = (b * 7) % engine.getNumLoops();
            engine.triggerKey (key, b % 2 == 0 ? TavrineEngine::Key::off : TavrineEngine::Key::on);
            if (b % 13 == 0)
                engine.triggerKey ((key + 1) % engine.getNumLoops(), TavrineEngine::Key::on);
        }
    });
    EXPECT_EQ (allocations, 0u);
    int playing = 0;
    for (auto* loop : engine.getLoops())
        playing += loop->playing.read() ? 1 : 0;
    EXPECT_GT (playing, 20);
    engine.getAudioSource()->releaseResources();
}

// Under TSan: a writer thread moves every kind of loop parameter the audio
// thread reads while the engine renders.
TEST (LoopThreads, AWriterMovingLoopParametersWhileTheEngineRenders)
{
    LoadedEngine rig (8);
    auto& engine = rig.engine;
    engine.getAudioSource()->prepareToPlay (128, 44100.0);
    for (int i = 0; i < 8; ++i)
        engine.triggerKey (i, TavrineEngine::Key::on);

    // A bounded number of writes: the asynchronous side of each write waits
    // in the parameter FIFO for the message thread, which this test keeps
    // busy.
    std::atomic<bool> writerDone { false };
    std::thread writer ([&] {
        for (int n = 0; n < 2000; ++n)
        {
            auto* loop = engine.getLoop (n % 8);
            const double x = (n % 100) / 100.0;
            loop->gainXy.write (2.0 * x);
            loop->balanceXy.write (2.0 * x - 1.0);
            loop->filterFrequencyXy.write (200.0 + 10000.0 * x);
            loop->resamplingRatioXy.write (0.5 + x);
            loop->nextBeginLoop.write (x);
            loop->nextLoopLength.write (0.25 + 0.5 * x);
            loop->getEnvelopeSource().envelopeAttack.write (n % 500);
            loop->outputBus.write (n % 16);
            std::this_thread::yield();
        }
        writerDone.store (true);
    });

    juce::AudioBuffer<float> out (2, 128);
    bool finite = true;
    for (int b = 0; b < 100 || ! writerDone.load(); ++b)
    {
        engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (out));
        for (int c = 0; c < 2; ++c)
            for (int i = 0; i < 128; ++i)
                finite = finite && std::isfinite (out.getSample (c, i));
    }
    writer.join();
    EXPECT_TRUE (finite);
    engine.getAudioSource()->releaseResources();
}

namespace
{
// What the sample source will be: a memory source with parameters of its own,
// some of which the loop otherwise stands in for.
class NamedSampleSource : public MemoryAudioSource
{
public:
    NamedSampleSource()
    {
        addParameter (fileName.getParameter());
        addParameter (reverse.getParameter());
    }
    qvrControllableHandle::StringParamDefHandle fileName { "fileName" };
    qvrControllableHandle::BoolParamDefHandle reverse { "reverse" };
};
} // namespace

TEST (LoopSampleSource, ItsParametersArePublishedUnderTheLoopsPath)
{
    TavrineEngine engine;
    juce::ReferenceCountedObjectPtr<NamedSampleSource> source (new NamedSampleSource());
    auto* loop = engine.getLoop (4);
    loop->setSampleSource (source.get());
    EXPECT_EQ (loop->getSampleSource(), source.get());
    EXPECT_TRUE (source->sourceLooping.read());

    auto* root = engine.getControllable();
    auto name = root->findParameter ("loop4.fileName");
    ASSERT_NE (name, nullptr);
    name->getValue()->setString ("drums_s_1.wav");
    EXPECT_EQ (source->fileName.getParameter()->getValue()->getString(), "drums_s_1.wav");

    // The source's own "reverse" wins over the loop's stand-in, and the
    // loop's handle reads it.
    auto reverse = root->findParameter ("loop4.reverse");
    ASSERT_NE (reverse, nullptr);
    reverse->getValue()->setBool (true);
    EXPECT_TRUE (source->reverse.read());
    EXPECT_TRUE (loop->reverse.read());
    // The stand-ins remain for what the source does not define.
    EXPECT_NE (root->findParameter ("loop4.globalReverse"), nullptr);

    juce::AudioBuffer<float> sample (makeConstant (2, 500, 0.5f));
    source->setBuffer (&sample, false);
    EXPECT_EQ (loop->totalLength.read(), 500);
    EXPECT_EQ (root->findParameter ("loop4.totalLength")->getValue()->getInt(), 500);
    source->setBuffer (nullptr, false);
}
