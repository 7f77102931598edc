#include "dsp/floor/CFastResample.h"
#include "dsp/floor/CResampleFloat.h"
#include "dsp/floor/CScopedPtr.h"
#include "tests/dsp/support/V3TestSignals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace
{
using namespace meridex;
using tavrine::dsptest::noiseSamples;
using tavrine::dsptest::rms;

constexpr double kTwoPi = 6.283185307179586476925;

std::vector<float> sine (int n, double cyclesPerSample)
{
    std::vector<float> x (static_cast<size_t> (n));
    for (int i = 0; i < n; ++i)
        x[static_cast<size_t> (i)] = static_cast<float> (std::sin (kTwoPi * cyclesPerSample * i));
    return x;
}

// Mono through a CFastResample in blocks of the given sizes, cycling.
std::vector<float> runFast (CFastResample& converter, const std::vector<float>& input, std::vector<int> blocks)
{
    std::vector<float> output;
    std::vector<float> scratch;
    size_t at = 0;
    for (size_t b = 0; at < input.size(); ++b)
    {
        const int count = static_cast<int> (
            std::min<size_t> (static_cast<size_t> (blocks[b % blocks.size()]), input.size() - at));
        scratch.resize (static_cast<size_t> (converter.getMaxOutput (count)));
        const float* in[] = { input.data() + at };
        float* out[] = { scratch.data() };
        const int written = converter.process (in, count, out);
        EXPECT_LE (written, converter.getMaxOutput (count));
        output.insert (output.end(), scratch.begin(), scratch.begin() + written);
        at += static_cast<size_t> (count);
    }
    return output;
}

// Interleaved through a CResampleBase in blocks of input frames.
std::vector<float> runSinc (CResampleBase& converter, const std::vector<float>& input, int channels,
                            double outputPerInput, int block, float gain = 1.0f)
{
    std::vector<float> output, scratch;
    const int frames = static_cast<int> (input.size()) / channels;
    for (int at = 0; at < frames; at += block)
    {
        const int count = std::min (block, frames - at);
        scratch.assign (static_cast<size_t> (converter.getMaxOutputFrames (count, outputPerInput) * channels), 0.0f);
        const int written = converter.process (input.data() + at * channels, scratch.data(), outputPerInput, gain,
                                               channels, count);
        output.insert (output.end(), scratch.begin(), scratch.begin() + written * channels);
    }
    return output;
}

CScopedPtr<CResampleBase> makeSinc (int channels, int maxBlock, bool stereoPath = false,
                                    int quality = CResampleBase::kEngineQuality)
{
    CScopedPtr<CResampleBase> converter;
    EXPECT_EQ (CResampleBase::createInstance (converter.receive(), CResampleBase::kFloat, quality, maxBlock, channels,
                                              stereoPath),
               kNoError);
    return converter;
}

TEST (FastResample, RatioOneGivesTheInputBackTwoSamplesLateInAnyBlocks)
{
    const std::vector<float> input = noiseSamples (3000, 1u);
    for (auto kind : { CFastResample::kCubic, CFastResample::kHermite })
    {
        CFastResample converter (1, 256, kind);
        ASSERT_EQ (converter.getErrorCode(), kNoError);
        const std::vector<float> output = runFast (converter, input, { 1, 7, 64, 300, 256 }); // 300 exceeds the maximum
        ASSERT_EQ (output.size(), input.size());
        EXPECT_EQ (output[0], 0.0f);
        EXPECT_EQ (output[1], 0.0f);
        for (size_t i = 2; i < output.size(); ++i)
            ASSERT_EQ (output[i], input[i - 2]) << "kind " << kind << " at " << i;
    }
}

TEST (FastResample, InterpolatorsReproduceThePolynomialsTheyShould)
{
    // Catmull-Rom tangents are exact on quadratics; the plain cubic passes
    // through its middle points.
    auto quadratic = [] (float x) { return 0.5f * x * x - 2.0f * x + 3.0f; };
    for (float t : { 0.0f, 0.25f, 0.99f })
        EXPECT_NEAR (CFastResample::interpolateHermite (quadratic (-1), quadratic (0), quadratic (1), quadratic (2), t),
                     quadratic (t), 1.0e-5f)
            << t;
    EXPECT_EQ (CFastResample::interpolateCubic (0.3f, -1.0f, 2.0f, 0.7f, 0.0f), -1.0f);
    EXPECT_NEAR (CFastResample::interpolateCubic (0.3f, -1.0f, 2.0f, 0.7f, 1.0f), 2.0f, 1.0e-6f);
}

TEST (FastResample, HermiteFollowsARampAtTheRatioAcrossBlocks)
{
    std::vector<float> ramp (4000);
    for (size_t i = 0; i < ramp.size(); ++i)
        ramp[i] = 0.01f * static_cast<float> (i);

    for (double ratio : { 0.37, 1.0, 1.9 })
    {
        CFastResample converter (1, 512, CFastResample::kHermite);
        converter.setRatio (ratio);
        const std::vector<float> output = runFast (converter, ramp, { 37, 512, 5 });
        // Output k reads input time k * ratio, two samples late.
        for (size_t k = 0; k < output.size(); ++k)
        {
            const double time = static_cast<double> (k) * ratio - 2.0;
            if (time >= 1.0)
            {
                ASSERT_NEAR (output[k], 0.01 * time, 1.0e-4) << "ratio " << ratio << " at " << k;
            }
        }
        EXPECT_NEAR (static_cast<double> (output.size()), static_cast<double> (ramp.size()) / ratio, 1.0);
    }
}

TEST (FastResample, RefusesBadShapesAndIgnoresBadRatios)
{
    EXPECT_EQ (CFastResample (0, 64, CFastResample::kCubic).getErrorCode(), kBadArgument);
    EXPECT_EQ (CFastResample (2, 0, CFastResample::kCubic).getErrorCode(), kBadArgument);

    CFastResample converter (1, 64, CFastResample::kHermite);
    converter.setRatio (0.5);
    for (double bad : { 0.0, std::numeric_limits<double>::quiet_NaN(), 1000.0 })
        converter.setRatio (bad);
    EXPECT_EQ (converter.getRatio(), 0.5);
}

TEST (ResampleFloat, CreationRefusesQualityTypeAndShapeOutsideTheirRanges)
{
    CScopedPtr<CResampleBase> converter;
    EXPECT_EQ (CResampleBase::createInstance (converter.receive(), CResampleBase::kFloat, 0, 512, 2, false),
               kBadArgument);
    EXPECT_FALSE (converter);
    EXPECT_EQ (CResampleBase::createInstance (converter.receive(), CResampleBase::kInteger, 3, 512, 2, false),
               kBadArgument);
    EXPECT_EQ (CResampleBase::createInstance (converter.receive(), CResampleBase::kFloat, 3, 0, 2, false),
               kBadArgument);
    EXPECT_EQ (CResampleBase::createInstance (converter.receive(), CResampleBase::kFloat, 3, 512, 49, false),
               kBadChannelCount);
    EXPECT_EQ (CResampleBase::createInstance (nullptr, CResampleBase::kFloat, 3, 512, 2, false), kBadArgument);
    EXPECT_FALSE (converter);

    EXPECT_EQ (CResampleBase::createInstance (converter.receive(), CResampleBase::kFloat, 1, 512, 2, false), kNoError);
    EXPECT_EQ (CResampleBase::createInstance (converter.receive(), CResampleBase::kFloat, 120, 512, 2, false),
               kNoError);
    std::vector<float> in (64, 0.0f), out (static_cast<size_t> (converter->getMaxOutputFrames (32, 1.0) * 2));
    EXPECT_EQ (converter->process (in.data(), out.data(), 0.0, 1.0f, 2, 32), 0);
    EXPECT_EQ (converter->process (in.data(), out.data(), std::numeric_limits<double>::quiet_NaN(), 1.0f, 2, 32), 0);
    EXPECT_EQ (converter->process (in.data(), out.data(), 1.0, 1.0f, 1, 32), 0); // channels differ from creation
}

// The pass band's edge at 0.902 of Nyquist: the table starts at the cutoff and
// first crosses zero at entry 256 / 0.90234375 = 283.7.
TEST (ResampleFloat, EngineQualityTableIsTheSincAtItsCutoff)
{
    auto converter = makeSinc (1, 256);
    auto* sinc = dynamic_cast<CResampleFloat*> (converter.get());
    ASSERT_NE (sinc, nullptr);
    EXPECT_EQ (sinc->getTable()[0], 0.90234375f);
    EXPECT_GT (sinc->getTable()[283], 0.0f);
    EXPECT_LT (sinc->getTable()[284], 0.0f);
}

// A sine over an offset: output frame k lies at input time k / outputPerInput, tone
// and constant scaled by gain times the 0.99 headroom at every factor (below 1
// the stretched filter's sum must be divided out). The right wing holds back
// three frames at the slower of the two rates.
TEST (ResampleFloat, SineOverAConstantKeepsItsFrequencyPlaceAndGainAtEveryFactor)
{
    const double cycles = 0.01; // per input sample: 441 Hz at 44.1 kHz
    std::vector<float> input = sine (8192, cycles);
    for (float& v : input)
        v = 0.4f + 0.5f * v;
    const float gain = 1.5f;
    for (double outputPerInput : { 0.25, 0.5, 0.8, 1.0, 1.25, 2.0, 4.0 })
    {
        auto converter = makeSinc (1, 512);
        const std::vector<float> output = runSinc (*converter, input, 1, outputPerInput, 333, gain);
        if (outputPerInput == 1.0)
        {
            ASSERT_EQ (output.size(), input.size() - 3);
        }
        EXPECT_NEAR (static_cast<double> (output.size()), input.size() * outputPerInput,
                     1.0 + 3.0 * std::max (outputPerInput, 1.0))
            << outputPerInput;
        for (size_t k = static_cast<size_t> (8.0 * std::max (outputPerInput, 1.0)); k < output.size(); ++k)
            ASSERT_NEAR (output[k],
                         gain * 0.99
                             * (0.4 + 0.5 * std::sin (kTwoPi * cycles * static_cast<double> (k) / outputPerInput)),
                         3.0e-3)
                << "outputPerInput " << outputPerInput << " at " << k;
    }
}

TEST (ResampleFloat, StereoRoutineGivesThePerChannelResult)
{
    const std::vector<float> input = noiseSamples (2 * 5000, 9u);
    for (double outputPerInput : { 0.77, 1.0, 1.3 })
    {
        auto stereo = makeSinc (2, 700, true);
        auto perChannel = makeSinc (2, 700, false);
        EXPECT_EQ (runSinc (*stereo, input, 2, outputPerInput, 700),
                   runSinc (*perChannel, input, 2, outputPerInput, 700))
            << outputPerInput;
    }
}

TEST (ResampleFloat, InputNeededIsJustEnoughOnEveryCall)
{
    auto exact = makeSinc (2, 4096);
    auto shortOfOne = makeSinc (2, 4096);
    const std::vector<float> input = noiseSamples (2 * 200000, 13u);
    std::vector<float> out (2 * 8192);
    int at = 0;
    const double factors[] = { 0.7, 1.0, 1.6, 0.9993, 1.0 / 3.0 };
    for (int call = 0; call < 200; ++call)
    {
        const double outputPerInput = factors[call % 5];
        const int wanted = 256 + (call * 37) % 300;
        const int needed = exact->getInputNeeded (wanted, outputPerInput, 1.0f);
        ASSERT_EQ (needed, shortOfOne->getInputNeeded (wanted, outputPerInput, 1.0f));
        ASSERT_LE (at + needed, 200000);
        const int written = exact->process (input.data() + 2 * at, out.data(), outputPerInput, 1.0f, 2, needed);
        ASSERT_GE (written, wanted) << "call " << call;
        if (needed > 0)
        {
            const int first = shortOfOne->process (input.data() + 2 * at, out.data(), outputPerInput, 1.0f, 2,
                                                   needed - 1);
            ASSERT_LT (first, wanted) << "call " << call;
            const int last = shortOfOne->process (input.data() + 2 * (at + needed - 1), out.data(), outputPerInput,
                                                  1.0f, 2, 1);
            ASSERT_EQ (first + last, written);
        }
        at += needed;
    }
}
} // namespace
