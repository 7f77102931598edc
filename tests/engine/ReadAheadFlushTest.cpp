#include <gtest/gtest.h>

#include "engine/TavrineEngine.h"
#include "tests/audio/ChainTestSources.h"

using namespace tavrine::test;

namespace
{
// Two loops playing and a third waiting for the first tick of the trigger
// sync grid, with the master stretcher bending the mix from 120 to 100 bpm.
// The waiting loop's start flushes the stretcher's read-ahead from inside the
// master chain's render, at sample kTick.
struct FlushScene
{
    // A quarter bar at 100 bpm.
    static constexpr int kTick = 26460;
    static constexpr int kLength = kTick + 2048;

    FlushScene()
    {
        auto& master = engine.getMasterChain();
        master.setRealtimeStretching (true);
        master.outputBpm.write (120.0);
        master.outputBpm.write (100.0);
        engine.getAudioSource()->prepareToPlay (128, 44100.0);
        for (int key : { 0, 1, 2 })
        {
            auto* loop = engine.getLoop (key);
            loop->setHeadSource (new HashSource(), true);
            loop->prepareToPlay (128, 44100.0);
            loop->totalLength.write (1 << 20);
            loop->nextReadPosition.write (1000 * key);
        }
        engine.getLoop (0)->playing.write (true);
        engine.getLoop (1)->playing.write (true);
        master.triggerPlayMode.write (true);
        engine.getLoop (2)->trigger.write (true);
    }

    // Renders kLength samples in pieces that end where `pieceEnd` says.
    juce::AudioBuffer<float> render (const std::function<int (int start)>& pieceEnd)
    {
        juce::AudioBuffer<float> out (2, kLength);
        out.clear();
        for (int start = 0; start < kLength;)
        {
            const int end = juce::jmin (kLength, pieceEnd (start));
            engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (&out, start, end - start));
            start = end;
        }
        EXPECT_EQ (engine.getMasterChain().getTriggerSync().getNumTicks(), 1);
        EXPECT_TRUE (engine.getLoop (2)->playing.read());
        return out;
    }

    TavrineEngine engine;
};

int firstDifference (const juce::AudioBuffer<float>& a, const juce::AudioBuffer<float>& b)
{
    for (int i = 0; i < a.getNumSamples(); ++i)
        for (int c = 0; c < 2; ++c)
            if (a.getSample (c, i) != b.getSample (c, i))
                return i;
    return -1;
}
} // namespace

TEST (ReadAheadFlush, AFlushInsideABlockSoundsAsTheSameFlushBetweenBlocks)
{
    static_assert (FlushScene::kTick % 128 != 0, "the tick must fall inside a block");
    FlushScene inside, between;
    const auto mid = inside.render ([] (int start) { return start + 128; });
    // The same blocks, but the one holding the tick ends on it.
    const auto cut = between.render ([] (int start) {
        const int end = start + 128 - start % 128;
        return start < FlushScene::kTick && end > FlushScene::kTick ? FlushScene::kTick : end;
    });

    ASSERT_GE (inside.engine.getNumFlushRequests(), 1);
    // The capture of what the stretcher held is in both: not silence.
    EXPECT_GT (mid.getMagnitude (0, FlushScene::kTick, 64), 0.0f);
    EXPECT_EQ (firstDifference (mid, cut), -1);
}

TEST (ReadAheadFlush, AFlushInsideABlockSoundsAsTheSameFlushWithBlocksOfOneSample)
{
    FlushScene inside, single;
    const auto mid = inside.render ([] (int start) { return start + 128; });
    const auto ones = single.render ([] (int start) { return start + 1; });
    EXPECT_EQ (firstDifference (mid, ones), -1);
}
