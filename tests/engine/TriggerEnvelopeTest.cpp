#include <gtest/gtest.h>

#include "engine/TavrineEngine.h"
#include "tests/audio/AudioSourceTestSupport.h"

using namespace tavrine::test;

namespace
{
// A loop over a constant level of 1, so that the output is the envelope.
struct EnvelopeRig
{
    EnvelopeRig (int attack, int release) : level (makeConstant (2, 44100, 1.0f))
    {
        source->setBuffer (&level, false);
        loop.setSampleSource (source.get());
        loop.gainXy.write (1.0);
        loop.getEnvelopeSource().envelopeAttack.write (attack);
        loop.getEnvelopeSource().envelopeRelease.write (release);
        loop.prepareToPlay (4096, 44100.0);
    }

    juce::AudioBuffer<float> play (int length, int block)
    {
        juce::AudioBuffer<float> out (2, length);
        out.clear();
        renderInBlocks (loop, out, block);
        return out;
    }

    juce::AudioBuffer<float> level;
    TavrineEngine engine;
    TavrineLoop& loop = *engine.getLoop (0);
    qvrControllableAudio::MemoryAudioSourcePtr source { new qvrControllableAudio::MemoryAudioSource() };
};
} // namespace

class EnvelopeAttack : public ::testing::TestWithParam<int>
{
};

TEST_P (EnvelopeAttack, RampsOverExactlyTheAttackLength)
{
    constexpr int kAttack = 300;
    EnvelopeRig rig (kAttack, 0);
    rig.loop.trigger.write (true);
    const auto out = rig.play (1000, GetParam());
    for (int i = 0; i < 1000; ++i)
    {
        const float expected = i < kAttack ? (float) i / kAttack : 1.0f;
        ASSERT_NEAR (out.getSample (0, i), expected, 1e-5f) << "sample " << i;
        ASSERT_NEAR (out.getSample (1, i), expected, 1e-5f) << "sample " << i;
    }
}

INSTANTIATE_TEST_SUITE_P (BlockSizes, EnvelopeAttack, ::testing::Values (1, 7, 64, 128, 1000));

TEST (EnvelopeRelease, AReleaseOfZeroEndsTheLoopInTheNextBlock)
{
    EnvelopeRig rig (0, 0);
    rig.loop.trigger.write (true);
    rig.play (256, 128);
    rig.loop.trigger.write (false);
    EXPECT_EQ (rig.loop.getKeyState(), TavrineLoop::KeyState::released);

    const auto next = rig.play (128, 128);
    EXPECT_EQ (next.getMagnitude (0, 128), 0.0f);
    EXPECT_FALSE (rig.loop.playing.read());
    EXPECT_EQ (rig.loop.getKeyState(), TavrineLoop::KeyState::idle);
}

TEST (EnvelopeRelease, FallsLinearlyToSilenceOverTheReleaseLength)
{
    constexpr int kRelease = 1000;
    EnvelopeRig rig (0, kRelease);
    rig.loop.trigger.write (true);
    rig.play (500, 64);
    rig.loop.trigger.write (false);

    const auto out = rig.play (1500, 64);
    for (int i = 0; i < 1500; ++i)
    {
        const float expected = i < kRelease ? 1.0f - (float) i / kRelease : 0.0f;
        ASSERT_NEAR (out.getSample (0, i), expected, 1e-5f) << "sample " << i;
    }
    EXPECT_FALSE (rig.loop.playing.read());
    // Idle again, and back on its begin: the mixer skips it.
    rig.play (64, 64);
    EXPECT_FALSE (rig.loop.isActive());
}

// A key pressed again while its release runs: what the release still had to
// play is faded out over at most 256 samples under the new attack.
TEST (EnvelopeRetrigger, LeavesATailOfAtMost256SamplesUnderTheNewAttack)
{
    constexpr int kAttack = 512, kRelease = 4096;
    EnvelopeRig rig (kAttack, kRelease);
    rig.loop.trigger.write (true);
    rig.play (2048, 128);
    rig.loop.trigger.write (false);
    rig.play (1024, 128);
    const float levelAtRetrigger = 1.0f - 1024.0f / kRelease;

    rig.loop.trigger.write (true);
    EXPECT_EQ (rig.loop.getEnvelopeSource().getTailRemaining(), TriggerEnvelopeSource::kTailSamples);
    const auto out = rig.play (1024, 128);

    int tailLength = 0;
    for (int i = 0; i < 1024; ++i)
    {
        const float attack = juce::jmin (1.0f, (float) i / kAttack);
        const float tail = out.getSample (0, i) - attack;
        if (std::abs (tail) > 1e-5f)
            tailLength = i + 1;
        if (i < TriggerEnvelopeSource::kTailSamples)
        {
            ASSERT_NEAR (tail, levelAtRetrigger * (1.0f - (float) i / TriggerEnvelopeSource::kTailSamples), 1e-4f)
                << "sample " << i;
        }
    }
    EXPECT_GT (tailLength, 200);
    EXPECT_LE (tailLength, TriggerEnvelopeSource::kTailSamples);
    RecordProperty ("tailSamples", tailLength);
}

TEST (EnvelopeOffline, AFixedGainReplacesTheRamps)
{
    EnvelopeRig rig (1000, 0);
    rig.loop.getEnvelopeSource().setOfflineGain (0.5f);
    rig.loop.trigger.write (true);
    const auto out = rig.play (256, 64);
    for (int i = 0; i < 256; ++i)
        ASSERT_FLOAT_EQ (out.getSample (0, i), 0.5f) << "sample " << i;
}

TEST (KeyStates, FollowTriggerPlayingAndTheSampleSource)
{
    EnvelopeRig rig (0, 1000);
    auto& loop = rig.loop;
    EXPECT_EQ (loop.getKeyState(), TavrineLoop::KeyState::idle);

    // With trigger play mode on, a second key waits for the grid.
    rig.engine.getMasterChain().triggerPlayMode.write (true);
    rig.engine.getLoop (1)->trigger.write (true);
    loop.trigger.write (true);
    EXPECT_EQ (loop.getKeyState(), TavrineLoop::KeyState::waiting);
    loop.syncTick();
    EXPECT_EQ (loop.getKeyState(), TavrineLoop::KeyState::playing);
    loop.trigger.write (false);
    EXPECT_EQ (loop.getKeyState(), TavrineLoop::KeyState::released);

    // The sample source's states come first, in this order.
    loop.rendering.write (true);
    EXPECT_EQ (loop.getKeyState(), TavrineLoop::KeyState::rendering);
    loop.adjusting.write (true);
    EXPECT_EQ (loop.getKeyState(), TavrineLoop::KeyState::adjusting);
    loop.loading.write (true);
    EXPECT_EQ (loop.getKeyState(), TavrineLoop::KeyState::loading);
}
