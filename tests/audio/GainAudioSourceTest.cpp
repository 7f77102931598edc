#include <gtest/gtest.h>

#include "audio/GainAudioSource.h"
#include "tests/audio/AudioSourceTestSupport.h"
#include "tests/support/RecordingListener.h"

using qvrControllableAudio::GainAudioSource;
using namespace tavrine::test;

namespace
{
// A gain source that is already playing, so that changes glide.
struct Playing
{
    explicit Playing (int rampSamples)
    {
        source.gainRamp.write (rampSamples);
        source.prepareToPlay (512, 44100.0);
        curve (16);
    }
    // Runs a block of ones: channel 0 is the gain curve.
    juce::AudioBuffer<float> curve (int length)
    {
        auto block = makeConstant (2, length, 1.0f);
        source.getNextAudioBlock (juce::AudioSourceChannelInfo (block));
        return block;
    }
    GainAudioSource source;
};
} // namespace

TEST (GainRamp, ALongRampApproachesGeometricallyAndAChangeRestartsFromThePresentValue)
{
    Playing g (100);
    g.source.gain.write (0.0);
    // Each 25-sample block moves by a quarter of what is left, linearly inside the block.
    double expected = 1.0;
    for (int k = 0; k < 4; ++k)
    {
        const auto out = g.curve (25);
        EXPECT_FLOAT_EQ (out.getSample (0, 0), (float) expected) << k;
        expected *= 0.75;
        EXPECT_NEAR (g.source.getCurrentGain(), expected, 1e-12) << k;
        EXPECT_NEAR (out.getSample (0, 24) - out.getSample (0, 23), out.getSample (0, 1) - out.getSample (0, 0), 1e-6);
    }
    // The new ramp starts where the gain is and is measured over the full length again.
    g.source.gain.write (1.0);
    EXPECT_FLOAT_EQ (g.curve (40).getSample (0, 0), (float) expected);
    EXPECT_NEAR (g.source.getCurrentGain(), expected + 0.4 * (1.0 - expected), 1e-12);
    // A block at least as long as the ramp meets the target exactly and holds it.
    g.source.gain.write (0.0);
    EXPECT_EQ (g.curve (128).getMagnitude (100, 28), 0.0f);
}

TEST (GainRamp, RestoringACrossfadeTakesTheTargetAtOnce)
{
    Playing g (1000);
    g.source.gain.write (0.5);
    g.curve (100);
    g.source.saveCrossfadeState();
    g.curve (128);
    g.source.restoreCrossfadeState();
    EXPECT_TRUE (sameSamples (g.curve (32), makeConstant (2, 32, 0.5f)));
}

TEST (GainClipping, HoldsForTheReleaseTimeAfterTheFirstClipAndLaterClipsDoNotExtendIt)
{
    RecordingListener listener;
    Playing g (0);
    g.source.detectClipping.write (true);
    g.source.clipReleaseSamples.write (1000);
    g.source.gain.write (0.5);
    g.source.clipping->addChangeListener (&listener, true);
    auto block = [&] (float peak) {
        auto b = makeConstant (2, 100, 0.5f);
        b.setSample (1, 50, peak);
        g.source.getNextAudioBlock (juce::AudioSourceChannelInfo (b));
        return g.source.clipping.read();
    };

    EXPECT_FALSE (block (1.9f)); // 0.95 after the gain
    EXPECT_TRUE (block (2.5f));
    for (int k = 0; k < 9; ++k) // clips in 900 of the 1000 samples of hold
        ASSERT_TRUE (block (3.0f)) << k;
    EXPECT_FALSE (block (3.0f)); // released after 1000 samples, clip or not
    EXPECT_TRUE (block (2.1f));  // a new hold
    EXPECT_EQ (listener.calls.load(), 3);
    g.source.clipping->removeChangeListener (&listener, true);
}
