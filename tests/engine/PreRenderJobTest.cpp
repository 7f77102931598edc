#include <gtest/gtest.h>

#include <cmath>

#include "engine/TavrineLoopPreRenderJob.h"
#include "samples/SampleKey.h"
#include "samples/TavrineSampleManager.h"
#include "tests/audio/AudioSourceTestSupport.h"
#include "tests/support/TempDirectory.h"

using namespace tavrine::test;
using qvrControllableHandle::FloatParamDefHandle;
using qvrControllableHandle::IntParamDefHandle;

namespace
{
PreparedSample::Ptr makeSample (const juce::String& url, const juce::AudioBuffer<float>& audio,
                                PreparedSamplePool* pool = nullptr)
{
    auto forward = std::make_unique<juce::AudioSampleBuffer> (audio);
    auto reverse = PreparedSample::makeReverse (*forward);
    return new PreparedSample (SampleKey::make (url, {}), std::move (forward), std::move (reverse), pool);
}

double rms (const juce::AudioSampleBuffer& buffer, int channel, int start, int length)
{
    double sum = 0.0;
    for (int i = start; i < start + length; ++i)
        sum += (double) buffer.getSample (channel, i) * buffer.getSample (channel, i);
    return std::sqrt (sum / length);
}

// A pre-render chain with the tempo parameters a sample source would give it,
// and a real pool with its cache in a directory of its own.
class PreRenderJobTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        sourceBpm.defaultValue = 120.0;
        relativeBpm.defaultValue = 1.0;
        masterBpm.defaultValue = 120.0;
        resamplingMode.defaultValue = 1;
        TavrineLoopPreRenderChain::SignatureSources sources;
        sources.sourceBpm = sourceBpm.getParameter();
        sources.relativeBpm = relativeBpm.getParameter();
        sources.masterBpm = masterBpm.getParameter();
        sources.resamplingMode = resamplingMode.getParameter();
        chain->setSignatureSources (sources);
    }

    int runWith (const PreparedSample::Ptr& source)
    {
        job->setSource (url, source);
        return job->run (manager);
    }

    void setFactor (double factor) { chain->getStretchSource().stretchFactor.write (factor); }
    // As the sample source does: the factor follows the tempi, which are a
    // part of the signature.
    void setTempo (double master, double relative = 1.0)
    {
        masterBpm.write (master);
        relativeBpm.write (relative);
        setFactor (sourceBpm.read() / master / relative);
    }

    const juce::String url { "/samples/Loop_120_test.wav" };
    TempDirectory cache { "tavrine-prerender" };
    TavrineSampleManager manager { cache.root };
    TavrineLoopPreRenderChainPtr chain { new TavrineLoopPreRenderChain() };
    TavrineLoopPreRenderJobPtr job { new TavrineLoopPreRenderJob (*chain) };
    FloatParamDefHandle sourceBpm { "sourceBpm" }, relativeBpm { "relativeBpm" }, masterBpm { "masterBpm" };
    IntParamDefHandle resamplingMode { "resamplingMode" };
};
} // namespace

//==============================================================================
// The length of a render is the stretch factor times the source's length,
// rounded, on two channels whatever the source has; the variant is listed
// under the key of URL and signature.
struct RenderLengthCase
{
    double factor;
    int sourceLength;
    int sourceChannels;
};

class PreRenderLengthTest : public PreRenderJobTest,
                            public ::testing::WithParamInterface<RenderLengthCase>
{};

TEST_P (PreRenderLengthTest, RendersRoundedFactorTimesLengthOnTwoChannels)
{
    const auto c = GetParam();
    setFactor (c.factor);
    ASSERT_EQ (runWith (makeSample (url, makeSine (c.sourceChannels, c.sourceLength, 441.0))),
               TavrineLoopPreRenderJob::kResultDone);
    ASSERT_NE (job->sample, nullptr);
    EXPECT_EQ (job->getNumRenders(), 1);
    EXPECT_EQ (job->sample->getForward().getNumSamples(), (int) std::lround (c.factor * c.sourceLength));
    EXPECT_EQ (job->sample->getForward().getNumChannels(), 2);
    EXPECT_EQ (job->sample->getKey(), SampleKey::make (url, chain->getRenderSignature()));
    EXPECT_TRUE (manager.isAvailable (job->sample->getKey(), false));
}

INSTANTIATE_TEST_SUITE_P (Factors, PreRenderLengthTest,
                          ::testing::Values (RenderLengthCase { 120.0 / 90.0, 44100, 2 }, // a 120 bpm loop at 90
                                             RenderLengthCase { 120.0 / 97.0, 44101, 2 },
                                             RenderLengthCase { 0.5, 30001, 2 }, // relative tempo doubled
                                             RenderLengthCase { 2.0, 10000, 1 }));

TEST_F (PreRenderJobTest, TheRenderKeepsTheSignalFadesItsEdgesAndMirrorsItsReverse)
{
    setFactor (120.0 / 90.0);
    ASSERT_EQ (runWith (makeSample (url, makeSine (2, 44100, 441.0))), 0);
    const auto& forward = job->sample->getForward();
    const auto& reverse = job->sample->getReverse();
    const int length = forward.getNumSamples();
    for (int channel = 0; channel < 2; ++channel)
    {
        // A sine of amplitude 0.5 stretched in time keeps its level (RMS
        // 0.354) away from the edges: not silence, not the source played twice.
        EXPECT_NEAR (rms (forward, channel, length / 4, length / 2), 0.3536, 0.06) << "channel " << channel;
        EXPECT_EQ (forward.getSample (channel, 0), 0.0f);
        // The fade-out ends at the last sample with 1/128 of the signal left.
        EXPECT_LE (std::abs (forward.getSample (channel, length - 1)), 0.5f / 128.0f + 1.0e-6f);
        for (int i = 0; i < length; ++i)
            ASSERT_EQ (reverse.getSample (channel, i), forward.getSample (channel, length - 1 - i)) << i;
    }
}

// A loop's beats stay on the grid: a burst at input sample n starts near
// factor x n in the render, with no latency of the stretcher in front.
TEST_F (PreRenderJobTest, TransientsLandWhereTheFactorPutsThem)
{
    auto audio = makeConstant (2, 44100, 0.0f);
    for (int onset : { 4410, 22050 })
        for (int c = 0; c < 2; ++c)
            for (int k = 0; k < 64; ++k)
                audio.setSample (c, onset + k, 0.8f * (float) std::sin (k * 0.3));
    setFactor (4.0 / 3.0);
    ASSERT_EQ (runWith (makeSample (url, audio)), 0);

    const auto& out = job->sample->getForward();
    auto firstAbove = [&out] (int from) {
        for (int i = from; i < out.getNumSamples(); ++i)
            if (std::abs (out.getSample (0, i)) > 0.05f)
                return i;
        return -1;
    };
    EXPECT_NEAR (firstAbove (0), 5880, 64);
    EXPECT_NEAR (firstAbove (20000), 29400, 64);
}

TEST_F (PreRenderJobTest, FadesRampInOverSixteenAndOutOverOneHundredTwentyEightSamples)
{
    auto ones = makeConstant (2, 1000, 1.0f);
    TavrineLoopPreRenderJob::applyFades (ones);
    for (int channel = 0; channel < 2; ++channel)
    {
        EXPECT_FLOAT_EQ (ones.getSample (channel, 0), 0.0f);
        EXPECT_FLOAT_EQ (ones.getSample (channel, 8), 0.5f);
        EXPECT_FLOAT_EQ (ones.getSample (channel, 16), 1.0f);
        EXPECT_FLOAT_EQ (ones.getSample (channel, 1000 - 129), 1.0f);
        EXPECT_FLOAT_EQ (ones.getSample (channel, 1000 - 128), 1.0f);
        EXPECT_FLOAT_EQ (ones.getSample (channel, 1000 - 64), 0.5f);
        EXPECT_FLOAT_EQ (ones.getSample (channel, 999), 1.0f / 128.0f);
    }
}

//==============================================================================
// Settings within the tolerance of unity play the loaded sample itself: no
// copy, no render; just beyond it, a render.
struct UnityCase
{
    double stretch, pitchXy, pitchFine, formantXy;
    bool renders;
};

class PreRenderUnityTest : public PreRenderJobTest,
                           public ::testing::WithParamInterface<UnityCase>
{};

TEST_P (PreRenderUnityTest, RendersOnlyWhenASettingDepartsFromUnity)
{
    const auto c = GetParam();
    setFactor (c.stretch);
    chain->pitchSemitonesXy.write (c.pitchXy);
    chain->pitchSemitonesFine.write (c.pitchFine);
    chain->formantFactorXy.write (c.formantXy);
    const auto source = makeSample (url, makeSine (2, 8192, 441.0));

    ASSERT_EQ (runWith (source), 0);
    EXPECT_EQ (job->getNumRenders(), c.renders ? 1 : 0);
    EXPECT_EQ (job->sample == source, ! c.renders);
    // Either way the chain lets go of the source sample.
    EXPECT_EQ (chain->getSourceSample(), nullptr);
}

INSTANTIATE_TEST_SUITE_P (
    Settings, PreRenderUnityTest,
    ::testing::Values (UnityCase { 1.0, 0.0, 0.0, 1.0, false }, UnityCase { 1.0005, 0.0, 0.0, 1.0, false },
                       UnityCase { 0.9995, 0.0, 0.0, 1.0, false },
                       UnityCase { 1.0, 0.7, 0.0, 1.0, false }, // the pad counts whole steps
                       UnityCase { 1.0, 0.0, 0.0009, 1.0, false }, UnityCase { 1.0, 0.0, 0.0, 1.0009, false },
                       UnityCase { 1.002, 0.0, 0.0, 1.0, true }, UnityCase { 1.0, 1.0, 0.0, 1.0, true },
                       UnityCase { 1.0, -1.0, 0.0, 1.0, true }, UnityCase { 1.0, 0.0, 0.002, 1.0, true },
                       UnityCase { 1.0, 0.0, 0.0, 0.998, true }));

//==============================================================================
TEST_F (PreRenderJobTest, ASettingReturnedToAnEarlierValueFindsThatRenderInThePool)
{
    const auto source = makeSample (url, makeSine (2, 8192, 441.0));
    setTempo (90.0);
    runWith (source);
    const auto first = job->sample;
    setTempo (90.0, 2.0);
    runWith (source);
    const auto second = job->sample;
    setTempo (90.0);
    ASSERT_EQ (runWith (source), 0);

    EXPECT_EQ (job->getNumRenders(), 2);
    EXPECT_NE (first, second);
    EXPECT_EQ (job->sample, first);
    // After a hit the chain keeps its source until it is given the next one.
    EXPECT_EQ (chain->getSourceSample(), source);
}

TEST_F (PreRenderJobTest, AVariantInTheRenderCacheIsReadInsteadOfRendered)
{
    setTempo (97.0);
    runWith (makeSample (url, makeNoise (2, 8192, 7)));
    auto rendered = job->sample;
    const int length = rendered->getForward().getNumSamples();
    manager.saveSample (rendered, SamplePoolManager::SaveMode::now);
    const auto key = rendered->getKey();
    rendered = nullptr;
    job->sample = nullptr;
    ASSERT_FALSE (manager.isAvailable (key, false));

    ASSERT_EQ (runWith (makeSample (url, makeNoise (2, 8192, 7))), 0);
    ASSERT_NE (job->sample, nullptr);
    EXPECT_EQ (job->getNumRenders(), 1);
    EXPECT_EQ (job->sample->getKey(), key);
    EXPECT_EQ (job->sample->getForward().getNumSamples(), length);
}

TEST_F (PreRenderJobTest, WithoutASourceSampleTheResultIsOneAndNoSample)
{
    job->sample = makeSample (url, makeSine (2, 100, 441.0));
    EXPECT_EQ (runWith (nullptr), TavrineLoopPreRenderJob::kResultNoSourceSample);
    EXPECT_EQ (job->sample, nullptr);
}

TEST_F (PreRenderJobTest, TheSourceLoopingFlagIsRestoredAfterARender)
{
    auto& memory = chain->getMemorySource();
    for (bool looping : { true, false })
    {
        setTempo (looping ? 160.0 : 150.0);
        memory.sourceLooping.write (looping);
        ASSERT_EQ (runWith (makeSample (url, makeSine (2, 4096 + (looping ? 1 : 0), 441.0))), 0);
        EXPECT_EQ (memory.sourceLooping.read(), looping);
    }
    EXPECT_EQ (job->getNumRenders(), 2);
}

// The chain is told the length factor, the pad and fine pitch and the pad
// formant; the stretch source gets the factor's inverse view, the summed
// pitch and the formant.
TEST_F (PreRenderJobTest, TheChainsSettingsDriveItsStretchSource)
{
    auto& stretch = chain->getStretchSource();
    setFactor (4.0 / 3.0);
    EXPECT_NEAR (chain->inverseStretchFactor->getValue()->getFloat(), 0.75, 1.0e-9);
    chain->inverseStretchFactor->getValue()->setFloat (0.5);
    EXPECT_NEAR (stretch.stretchFactor.read(), 2.0, 1.0e-9);

    chain->pitchSemitonesXy.write (7.0);
    chain->pitchSemitonesFine.write (0.25);
    EXPECT_NEAR (stretch.pitchFactor.read(), std::pow (2.0, 7.25 / 12.0), 1.0e-6);
    chain->formantFactorXy.write (1.5);
    EXPECT_NEAR (stretch.formantFactor.read(), 1.5, 1.0e-9);
    EXPECT_EQ (stretch.meridexProcMode->getValue()->getString(), "Efficient V3");
}

//==============================================================================
// Everything named in the signature is a part of a render's identity, and
// "Pitch-Speed" marks it; a resampling mode that is not "Pitch-Speed" is not.
TEST_F (PreRenderJobTest, EachListedSettingChangesTheSignature)
{
    const auto base = chain->getRenderSignature();
    EXPECT_EQ (chain->getRenderSignature(), base);

    struct Change
    {
        const char* what;
        std::function<void (bool)> apply;
    };
    const std::vector<Change> changes {
        { "sourceBpm", [this] (bool on) { sourceBpm.write (on ? 121.0 : 120.0); } },
        { "relativeBpm", [this] (bool on) { relativeBpm.write (on ? 2.0 : 1.0); } },
        { "masterBpm", [this] (bool on) { masterBpm.write (on ? 97.0 : 120.0); } },
        { "pitchSemitones.xyMode", [this] (bool on) { chain->pitchSemitonesXy.write (on ? 3.0 : 0.0); } },
        { "pitchSemitones.fine", [this] (bool on) { chain->pitchSemitonesFine.write (on ? 0.25 : 0.0); } },
        { "formantFactor.xyMode", [this] (bool on) { chain->formantFactorXy.write (on ? 1.5 : 1.0); } },
        { "crossfadeBufferSize", [this] (bool on) { chain->crossfadeBufferSize.write (on ? 64 : 128); } },
        { "meridexProcMode",
          [this] (bool on) {
              chain->getStretchSource().meridexProcMode.write (juce::String (on ? "Pro" : "Efficient V3"));
          } },
        { "resamplingMode 3", [this] (bool on) { resamplingMode.write (on ? 3 : 1); } },
    };
    for (const auto& change : changes)
    {
        change.apply (true);
        EXPECT_NE (chain->getRenderSignature(), base) << change.what;
        change.apply (false);
        EXPECT_EQ (chain->getRenderSignature(), base) << change.what;
    }

    resamplingMode.write (3);
    EXPECT_TRUE (chain->getRenderSignature().endsWith ("-beatSynched"));
    EXPECT_NE (SampleKey::make (url, chain->getRenderSignature()), SampleKey::make (url, base));
    resamplingMode.write (0);
    EXPECT_EQ (chain->getRenderSignature(), base);
}
