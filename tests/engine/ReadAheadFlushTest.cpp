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
        // Loops 0 and 1 form the trigger group and start at once; with the
        // play mode on, loop 2 then waits for the grid.
        engine.getLoop (0)->trigger.write (true);
        engine.getLoop (1)->trigger.write (true);
        master.triggerPlayMode.write (true);
        engine.getLoop (2)->trigger.write (true);
    }

    // Renders `length` samples in pieces that end where `pieceEnd` says;
    // `afterPiece` gets the index of each piece rendered.
    juce::AudioBuffer<float> render (const std::function<int (int start)>& pieceEnd, int length = kLength,
                                     const std::function<void (int piece)>& afterPiece = {})
    {
        juce::AudioBuffer<float> out (2, length);
        out.clear();
        for (int start = 0, piece = 0; start < length; ++piece)
        {
            const int end = juce::jmin (length, pieceEnd (start));
            engine.getAudioSource()->getNextAudioBlock (juce::AudioSourceChannelInfo (&out, start, end - start));
            if (afterPiece)
                afterPiece (piece);
            start = end;
        }
        return out;
    }

    void expectTheTickStartedTheWaitingLoop()
    {
        EXPECT_EQ (engine.getMasterChain().getTriggerSync().getNumTicks(), 1);
        EXPECT_TRUE (engine.getLoop (2)->playing.read());
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

TEST (ReadAheadFlush, AFlushInsideABlockSoundsAsTheSameFlushWithBlocksOfOneSample)
{
    FlushScene inside, single;
    const auto mid = inside.render ([] (int start) { return start + 128; });
    const auto ones = single.render ([] (int start) { return start + 1; });
    inside.expectTheTickStartedTheWaitingLoop();
    single.expectTheTickStartedTheWaitingLoop();
    static_assert (FlushScene::kTick % 128 != 0, "the tick must fall inside a block");
    ASSERT_GE (inside.engine.getNumFlushRequests(), 1);
    // The capture of what the stretcher held is heard: not silence.
    EXPECT_GT (mid.getMagnitude (0, FlushScene::kTick, 64), 0.0f);
    EXPECT_EQ (firstDifference (mid, ones), -1);
}

// A flush asked for while the stretcher is pulling the loops (here by an
// event of a loop's own chain) must not render the stretcher inside itself:
// it waits for the end of the master chain's segment, which is the end of
// this block.
TEST (ReadAheadFlush, AFlushAskedForWhileTheLoopsRenderWaitsForTheEndOfTheSegment)
{
    constexpr int kLength = 8192;
    FlushScene nested, after;
    int nestedBlock = -1, afterBlock = -1, block = 0;
    auto addEvent = [&] (FlushScene& scene, bool flushInside, int& firedIn) {
        auto* loop = scene.engine.getLoop (0);
        loop->setTimeline (nullptr);
        auto* engine = &scene.engine;
        loop->getEventQueue()->add (new TestEvent (1, 5000.0, [engine, flushInside, &firedIn, &block] (TestEvent&) {
            firedIn = block;
            if (flushInside)
                engine->flushReadAhead (nullptr, nullptr);
        }));
    };
    addEvent (nested, true, nestedBlock);
    addEvent (after, false, afterBlock);
    auto blocksOf128 = [] (int start) { return start + 128; };

    block = 0;
    const auto inside = nested.render (blocksOf128, kLength, [&] (int piece) { block = piece + 1; });
    block = 0;
    const auto atEnd = after.render (blocksOf128, kLength, [&] (int piece) {
        if (piece == afterBlock)
            after.engine.flushReadAhead (nullptr, nullptr);
        block = piece + 1;
    });

    ASSERT_GT (nestedBlock, 0);
    ASSERT_EQ (nestedBlock, afterBlock);
    EXPECT_EQ (firstDifference (inside, atEnd), -1);
}
