#include <gtest/gtest.h>

#include <vector>

#include "engine/TavrineEngine.h"
#include "tests/audio/AudioSourceTestSupport.h"

using namespace tavrine::test;
using qvrControllableAudio::MemoryAudioSource;

namespace
{
constexpr int kSampleLength = 4000;
constexpr int kClickEvery = 1000;

// A sample of kSampleLength with a click of 1.0 every kClickEvery samples
// (at 0, 1000, 2000, 3000), or a constant level.
juce::AudioBuffer<float> makeClicks()
{
    juce::AudioBuffer<float> clicks (2, kSampleLength);
    clicks.clear();
    for (int i = 0; i < kSampleLength; i += kClickEvery)
        for (int c = 0; c < 2; ++c)
            clicks.setSample (c, i, 1.0f);
    return clicks;
}

// One loop of an engine with a plain memory source as its root, unity gain
// and no attack, so that the chain passes the sample untouched.
struct LoopRig
{
    explicit LoopRig (juce::AudioBuffer<float> content, int maxBlock = 4096) : sample (std::move (content))
    {
        source->setBuffer (&sample, false);
        loop.setSampleSource (source.get());
        loop.gainXy.write (1.0);
        loop.getEnvelopeSource().envelopeAttack.write (0);
        loop.prepareToPlay (maxBlock, 44100.0);
    }

    juce::AudioBuffer<float> play (int length, int block)
    {
        juce::AudioBuffer<float> out (2, length);
        out.clear();
        renderInBlocks (loop, out, block);
        return out;
    }

    juce::AudioBuffer<float> sample; // outlives the source, which does not own it
    TavrineEngine engine;
    TavrineLoop& loop = *engine.getLoop (0);
    qvrControllableAudio::MemoryAudioSourcePtr source { new MemoryAudioSource() };
};

std::vector<int> clicksIn (const juce::AudioBuffer<float>& out)
{
    std::vector<int> at;
    for (int i = 0; i < out.getNumSamples(); ++i)
        if (out.getSample (0, i) > 0.5f)
            at.push_back (i);
    return at;
}

// Where the clicks of a loop from `begin` to `end` (samples; end == length is
// the end of the sample) land in `length` output samples: a reference walk,
// sample by sample, independent of the timeline.
std::vector<int> expectedClicks (int begin, int end, int length)
{
    std::vector<int> at;
    int p = begin;
    for (int n = 0; n < length; ++n)
    {
        if (p % kClickEvery == 0)
            at.push_back (n);
        ++p;
        if (p == end)
            p = begin;
        else if (p == kSampleLength)
            p = 0;
    }
    return at;
}

struct MarkerCase
{
    const char* name;
    double nextBegin, nextLength;
    int beginSample, endSample;
};

const MarkerCase kMarkerCases[] = {
    { "WholeSample", 0.0, 1.0, 0, kSampleLength },
    { "BeginAndEnd", 0.3125, 0.5, 1250, 3250 },
    // The end marker lies before the begin: the loop wraps through the end
    // of the sample, and the click at its start lands on the wrap itself.
    { "EndBeforeBegin", 0.8125, 0.5, 3250, 1250 },
};
} // namespace

class LoopClicks : public ::testing::TestWithParam<std::tuple<MarkerCase, int>>
{
};

TEST_P (LoopClicks, LandOnTheSamplesTheMarkersPutThemAtAnyBlockSize)
{
    const auto& [markers, block] = GetParam();
    LoopRig rig (makeClicks());
    rig.loop.nextBeginLoop.write (markers.nextBegin);
    rig.loop.nextLoopLength.write (markers.nextLength);
    rig.loop.trigger.write (true);
    ASSERT_TRUE (rig.loop.playing.read());

    const int length = 10000;
    const auto out = rig.play (length, block);
    EXPECT_EQ (clicksIn (out), expectedClicks (markers.beginSample, markers.endSample, length));
    EXPECT_DOUBLE_EQ (rig.loop.beginLoopFraction.read(), markers.nextBegin);
    EXPECT_EQ (rig.loop.samplesPlayedInLoop.read(), length);
}

INSTANTIATE_TEST_SUITE_P (Markers, LoopClicks,
                          ::testing::Combine (::testing::ValuesIn (kMarkerCases),
                                              ::testing::Values (1, 64, 128, 1000, 4096)),
                          [] (const auto& info)
                          {
                              return std::string (std::get<0> (info.param).name) + "_"
                                     + std::to_string (std::get<1> (info.param));
                          });

class SingleShot : public ::testing::TestWithParam<int>
{
};

TEST_P (SingleShot, StopsAtItsEndMarkerWithTheKeyHeldAndRewindsToItsBegin)
{
    LoopRig rig (makeClicks());
    rig.loop.loopingEnabled.write (false);
    rig.loop.nextBeginLoop.write (0.3125);
    rig.loop.nextLoopLength.write (0.5);
    rig.loop.trigger.write (true);

    const auto out = rig.play (6000, GetParam());
    // One pass from 1250 to 3250: clicks at 2000 and 3000, then nothing.
    EXPECT_EQ (clicksIn (out), (std::vector<int> { 750, 1750 }));
    EXPECT_FALSE (rig.loop.trigger.read());
    EXPECT_FALSE (rig.loop.playing.read());
    EXPECT_EQ (rig.loop.nextReadPosition.read(), 1250);
    EXPECT_EQ (rig.loop.getKeyState(), TavrineLoop::KeyState::idle);
    EXPECT_FALSE (rig.loop.isActive());
}

INSTANTIATE_TEST_SUITE_P (BlockSizes, SingleShot, ::testing::Values (1, 64, 1000, 4096));

TEST (LoopMarkers, ANextBeginOfOneActsAsTheStartOfTheSample)
{
    LoopRig rig (makeClicks());
    rig.loop.nextBeginLoop.write (0.5);
    rig.loop.trigger.write (true);
    EXPECT_DOUBLE_EQ (rig.loop.beginLoopFraction.read(), 0.5);
    rig.loop.trigger.write (false);
    rig.play (64, 64);

    rig.loop.nextBeginLoop.write (1.0);
    rig.loop.trigger.write (true);
    EXPECT_DOUBLE_EQ (rig.loop.beginLoopFraction.read(), 0.0);
    EXPECT_EQ (rig.loop.nextReadPosition.read(), 0);
    const auto out = rig.play (2500, 128);
    EXPECT_EQ (clicksIn (out), (std::vector<int> { 0, 1000, 2000 }));
}

// An end marker moved directly (by an editor, not through the "next"
// values) is kept at the loop end, and the automated length follows it.
TEST (LoopMarkers, ADirectlyMovedEndMarkerIsKeptAndTheLengthFollowsIt)
{
    LoopRig rig (makeClicks());
    rig.loop.trigger.write (true);
    rig.loop.endLoopFraction.write (0.75);
    const auto out = rig.play (3500, 64);
    EXPECT_EQ (clicksIn (out), (std::vector<int> { 0, 1000, 2000, 3000 }));
    EXPECT_DOUBLE_EQ (rig.loop.endLoopFraction.read(), 0.75);
    EXPECT_DOUBLE_EQ (rig.loop.nextLoopLength.read(), 0.75);
    EXPECT_DOUBLE_EQ (rig.loop.nextEndLoop.read(), 0.75);
    EXPECT_DOUBLE_EQ (rig.loop.beginLoopFraction.read(), 0.0);
    EXPECT_NEAR (rig.loop.getTimeline().getPosition(), 500.0 / kSampleLength, 1e-9);
}

// At a ratio that puts the loop's end between two output samples, rounding
// lands the timeline up to half a step past it; the end still fires, every
// time round. Blocks of one sample put the end on a block boundary, where it
// is looked for again after the timeline moved.
TEST (LoopMarkers, AnEndBetweenTwoOutputSamplesFiresEveryTimeRound)
{
    LoopRig rig (makeClicks());
    rig.loop.resamplingRatioXy.write (1.2); // 1666.67 output samples a turn
    rig.loop.nextBeginLoop.write (0.3);
    rig.loop.nextLoopLength.write (0.5);
    rig.loop.trigger.write (true);
    const double step = rig.loop.getTimeline().getStep();
    for (int block = 0; block < 300; ++block)
    {
        rig.play (64, 1);
        const double position = rig.loop.getTimeline().getPosition();
        ASSERT_GE (position, 0.3 - step) << "block " << block;
        ASSERT_LE (position, 0.8 + step) << "block " << block;
    }
}

TEST (LoopMarkers, TheNextLoopBoundaryIsTheEndMarkerOrTheEndOfTheSample)
{
    LoopRig rig (makeClicks());
    EXPECT_DOUBLE_EQ (rig.loop.getNextLoopBoundary(), 1.0);
    rig.loop.endLoopFraction.write (0.75);
    EXPECT_DOUBLE_EQ (rig.loop.getNextLoopBoundary(), 0.75);
    rig.loop.loopingEnabled.write (false);
    EXPECT_DOUBLE_EQ (rig.loop.getNextLoopBoundary(), 0.75);
    rig.loop.endLoopFraction.write (1.0);
    EXPECT_DOUBLE_EQ (rig.loop.getNextLoopBoundary(), 1.0);
}

// At twice the rate the sample lasts half as long: the timeline, and so the
// loop end, follows the resampler.
TEST (LoopResampling, ARatioOfTwoPlaysTheLoopInHalfTheSamples)
{
    LoopRig rig (makeClicks());
    rig.loop.resamplingRatioXy.write (2.0);
    EXPECT_DOUBLE_EQ (rig.loop.getResampler().resamplingRatio.read(), 2.0);
    EXPECT_DOUBLE_EQ (rig.loop.getResampler().resamplingLengthRatio.read(), 0.5);
    EXPECT_EQ (rig.loop.getResampler().outputSamplesPerSlice.read(), 2000);
    EXPECT_DOUBLE_EQ (rig.loop.resamplingSliceSum.read(), 1.0);
    rig.loop.trigger.write (true);
    rig.play (1990, 128);
    EXPECT_NEAR (rig.loop.getTimeline().getPosition(), 0.995, 1e-9);
    rig.play (20, 128);
    // Past the end of the sample and round to its start again.
    EXPECT_NEAR (rig.loop.getTimeline().getPosition(), 0.005, 1e-9);
}
