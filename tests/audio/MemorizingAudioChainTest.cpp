#include <gtest/gtest.h>

#include "audio/MemorizingAudioChain.h"
#include "tests/audio/ChainTestSources.h"

using namespace tavrine::test;

namespace
{
// Records what it is asked to rewind after a drop.
class RecordingMemoryChain : public MemorizingAudioChain
{
public:
    explicit RecordingMemoryChain (int capacity) : MemorizingAudioChain (capacity)
    {
        setHeadSource (head, true);
        setTimeline (nullptr);
        prepareToPlay (64, 44100.0);
    }
    HashSource* head = new HashSource();
    std::vector<int> rewinds;

protected:
    void rewind (int numSamples) override { rewinds.push_back (numSamples); }
};

using ChainPtr = juce::ReferenceCountedObjectPtr<RecordingMemoryChain>;

void expectSignal (const juce::AudioBuffer<float>& out, juce::int64 firstPosition, const char* what)
{
    for (int i = 0; i < out.getNumSamples(); ++i)
        for (int c = 0; c < 2; ++c)
            ASSERT_EQ (out.getSample (c, i), HashSource::valueAt (firstPosition + i, c)) << what << ", sample " << i;
}
} // namespace

TEST (MemorizingAudioChain, ARewindReplaysBitForBitAndTheStreamThenContinues)
{
    // A ring of 1024 (capacity 1000) that 2000 samples wrap; replays in
    // blocks of 7 end inside a block, where fresh audio must follow.
    for (int n : { 1, 300, 1023 })
    {
        ChainPtr chain (new RecordingMemoryChain (1000));
        render (*chain, 2, 2000, 64);
        chain->rewindMemory (n);
        EXPECT_EQ (chain->getPendingReplay(), n);
        expectSignal (render (*chain, 2, n, 7), 2000 - n, "replay");
        expectSignal (render (*chain, 2, 500, 64), 2000, "continuation");
        EXPECT_EQ (chain->head->position, 2500);
    }
}

TEST (MemorizingAudioChain, ARewindOfMoreThanIsHeldIsIgnored)
{
    ChainPtr chain (new RecordingMemoryChain (1000));
    render (*chain, 2, 100, 64);
    chain->rewindMemory (101);
    EXPECT_EQ (chain->getPendingReplay(), 0);
    chain->rewindMemory (60);
    chain->rewindMemory (40); // adds up to what is held
    chain->rewindMemory (1);  // one more is too many
    EXPECT_EQ (chain->getPendingReplay(), 100);
    expectSignal (render (*chain, 2, 150, 64), 0, "replay, then fresh");

    render (*chain, 2, 5000, 512); // never a whole ring, however much was played
    chain->rewindMemory (chain->getMemorySize());
    EXPECT_EQ (chain->getPendingReplay(), 0);
}

TEST (MemorizingAudioChain, DroppingForgetsTheMemoryAndRewindsTheChainByWhatWasHeld)
{
    ChainPtr chain (new RecordingMemoryChain (1000));
    render (*chain, 2, 120, 64);
    chain->rewindMemory (50);
    chain->dropMemory (500);
    EXPECT_EQ (chain->rewinds, (std::vector<int> { 120 }));
    chain->rewindMemory (1);
    expectSignal (render (*chain, 2, 64, 64), 120, "fresh");
    chain->dropMemory (10);
    EXPECT_EQ (chain->rewinds, (std::vector<int> { 120, 10 }));
}
