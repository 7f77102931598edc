#include <gtest/gtest.h>

#include "engine/TavrineEngine.h"
#include "tests/audio/ChainTestSources.h"

using namespace tavrine::test;

TEST (LoopMemory, ADroppedLoopMovesItsReadPositionBackAndAKeptLoopReplays)
{
    TavrineEngine engine;
    auto* dropped = engine.getLoop (0);
    auto* kept = engine.getLoop (1);
    for (auto* loop : { dropped, kept })
    {
        loop->setHeadSource (new HashSource(), true);
        loop->prepareToPlay (128, 44100.0);
        loop->totalLength.write (1000);
        loop->nextReadPosition.write (100);
        loop->playing.write (true);
    }

    juce::AudioBuffer<float> first (2, 300), replay (2, 200);
    renderInBlocks (*dropped, first, 128);
    renderInBlocks (*kept, first, 128);
    EXPECT_EQ (dropped->samplesPlayedInLoop.read(), 300);

    // As the engine's flush does for the loop being triggered and for the
    // others: the triggered loop re-reads from its sample, the others replay.
    dropped->dropMemory (200);
    kept->rewindMemory (200);
    EXPECT_EQ (dropped->nextReadPosition.read(), 900); // modulo the sample's length
    EXPECT_EQ (dropped->samplesPlayedInLoop.read(), 100);
    EXPECT_EQ (dropped->getPendingReplay(), 0);

    renderInBlocks (*kept, replay, 128);
    EXPECT_TRUE (bitIdentical (replay, first, 0, 100, 200));
    // A replay is not played again: the count since the trigger stands.
    EXPECT_EQ (kept->samplesPlayedInLoop.read(), 300);
}
