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
        // The timeline and the read position agree: a tenth into the sample.
        loop->getTimeline().setPosition (0.1);
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

// Whatever the buffer held before: an idle loop and a playing loop without a
// sample source give silence, a playing loop with one gives exactly its
// source.
TEST (LoopRender, EveryLoopOverwritesItsRegion)
{
    TavrineEngine engine;
    auto* withSource = engine.getLoop (0);
    auto* withoutSource = engine.getLoop (1);
    withSource->setHeadSource (new HashSource(), true);
    for (auto* loop : { withSource, withoutSource })
    {
        // Unity gain and no attack: the chain passes the source untouched.
        loop->gainXy.write (1.0);
        loop->getEnvelopeSource().envelopeAttack.write (0);
        loop->prepareToPlay (128, 44100.0);
    }

    juce::AudioBuffer<float> buffer (2, 96);
    for (bool playing : { false, true })
        for (auto* loop : { withSource, withoutSource })
        {
            loop->playing.write (playing);
            buffer.clear();
            for (int c = 0; c < 2; ++c)
                juce::FloatVectorOperations::fill (buffer.getWritePointer (c), 0.75f, 96);
            loop->getNextAudioBlock (juce::AudioSourceChannelInfo (&buffer, 16, 64));
            for (int c = 0; c < 2; ++c)
                for (int i = 0; i < 96; ++i)
                {
                    const bool inRegion = i >= 16 && i < 80;
                    const float expected = ! inRegion                        ? 0.75f
                                           : (playing && loop == withSource) ? HashSource::valueAt (i - 16, c)
                                                                             : 0.0f;
                    ASSERT_EQ (buffer.getSample (c, i), expected)
                        << "playing " << playing << " loop " << engine.indexOfLoop (loop) << " sample " << i;
                }
        }
}
