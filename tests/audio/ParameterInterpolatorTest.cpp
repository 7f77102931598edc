#include <gtest/gtest.h>

#include <vector>

#include "audio/ParameterInterpolator.h"
#include "controllable/handle/ParamDefHandle.h"
#include "tests/audio/AudioSourceTestSupport.h"

using namespace qvrControllableAudio;
using namespace tavrine::test;

namespace
{
// An owner whose in-place stage records the shadow of `target` in every call.
class Probe : public ChainableAudioSourceProvider,
              public CrossfadableSource,
              public juce::AudioSource
{
public:
    struct Call
    {
        int start, length;
        double shadow;
    };

    Probe (int subBlock, int rampSamples) : interpolator (this, this, subBlock, this)
    {
        shadow = &interpolator.addParameter (target.get(), rampSamples);
    }

    juce::AudioSource* getAudioSource() override { return &interpolator; }
    void saveCrossfadeState() override { inCrossfade = true; }
    void restoreCrossfadeState() override { inCrossfade = false; }
    void prepareToPlay (int, double) override {}
    void releaseResources() override {}
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override
    {
        calls.push_back ({ info.startSample, info.numSamples, shadow->get() });
    }

    std::vector<Call> run (int n)
    {
        calls.clear();
        interpolator.getNextAudioBlock (juce::AudioSourceChannelInfo (&block, 0, n));
        return calls;
    }

    qvrControllableHandle::FloatParamDefHandle target { "target" };
    ParameterInterpolator interpolator;
    const ShadowValue* shadow = nullptr;
    std::vector<Call> calls;
    juce::AudioBuffer<float> block { 1, 4096 };
};
} // namespace

TEST (InterpolatorRamps, WalkInSubBlocksLandExactlyAndFinishTheBlockInOneCall)
{
    Probe p (16, 100);
    p.target.write (1.0);
    const auto calls = p.run (256);
    // 100 steps of 0.01: six sub-blocks take 16 each, the seventh has 4 left and lands.
    ASSERT_EQ (calls.size(), 8u);
    for (int k = 0; k < 6; ++k)
        EXPECT_NEAR (calls[(size_t) k].shadow, 0.16 * (k + 1), 1e-12) << k;
    EXPECT_EQ (calls[6].shadow, 1.0);
    EXPECT_EQ (calls[7].start, 112);
    EXPECT_EQ (calls[7].length, 144);
    EXPECT_EQ (p.run (64).size(), 1u);
}

TEST (InterpolatorJumps, AZeroRampJumpNextAndJumpAllLandAtOnce)
{
    Probe zero (16, 0);
    zero.target.write (0.7);
    EXPECT_EQ (zero.run (100)[0].shadow, 0.7);

    Probe p (16, 100);
    p.interpolator.jumpNext (p.target.get());
    p.target.write (3.0);
    EXPECT_EQ (p.run (16)[0].shadow, 3.0);
    p.target.write (4.0); // only the next change
    EXPECT_NEAR (p.run (16)[0].shadow, 3.16, 1e-12);
    p.interpolator.jumpAll();
    EXPECT_EQ (p.shadow->get(), 4.0);
    EXPECT_FALSE (p.interpolator.isInterpolating());
}

TEST (InterpolatorCrossfade, AChangeDuringACrossfadeKeepsTheShadowThenJumpsWhenItEnds)
{
    Probe p (16, 100);
    p.saveCrossfadeState();
    p.target.write (1.0);
    auto calls = p.run (128);
    ASSERT_EQ (calls.size(), 1u);
    EXPECT_EQ (calls[0].shadow, 0.0);
    p.restoreCrossfadeState();
    calls = p.run (64);
    ASSERT_EQ (calls.size(), 1u);
    EXPECT_EQ (calls[0].shadow, 1.0);
}
