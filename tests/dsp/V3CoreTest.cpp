// The V3 core's rules for factors (frame repeat, hop table, rounding), its
// vocoder's windows, attack classes and aux path, and the formant stage.

#include "dsp/v3/CFFTSplitV3.h"
#include "dsp/v3/CMeridexEffV3Core.h"
#include "dsp/v3/CPhaseVocoderV3.h"
#include "tests/dsp/support/V3TestSignals.h"
#include "tests/support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace
{
using namespace meridex;
using namespace tavrine::dsptest;

struct Core
{
    CMeridexEffV3Core core { 2, 44100.0f, 0.1f };
    Core() { EXPECT_EQ (core.init(), kNoError); }
    int set (float stretch, float pitch = 1.0f)
    {
        return core.setStretchPitch (&stretch, &pitch, CMeridexCoreBase::kAdjustStretch, kMovePosition);
    }
    // Runs every step of one frame; returns the output frames written.
    int runFrame (const float* const* ins, float* const* outs, const float* const* aux = nullptr)
    {
        int written = 0;
        for (int s = 0, steps = core.getStepCount(); s < steps; ++s)
            written += core.processStep (ins, aux, outs, s);
        return written;
    }
};

TEST (V3CoreFactors, FrameSizeFollowsTheRate)
{
    for (const auto& [rate, frameSize] : { std::pair { 22050.0, 2048 },
                                           { 31999.0, 2048 },
                                           { 44100.0, 4096 },
                                           { 64000.0, 8192 },
                                           { 192000.0, 16384 },
                                           { 384000.0, 32768 } })
        EXPECT_EQ (CMeridexCoreBase::frameSizeForRate (rate), frameSize) << rate;
}

// The analysis hop shrinks at 2.2, 3.2 and 5.2 as the ratio grows; past 6
// frames repeat (d of them) at N / 32, and the synthesis hop is the truncated
// analysis hop * r / d. r = 8 takes d = 3, since 8 / 2 = 4 is whole and
// would repeat in a periodic pattern.
TEST (V3CoreFactors, RepeatAndHopsFollowTheTable)
{
    Core c;
    const struct
    {
        float stretch, pitch;
        int repeat, analysis, synthesis;
    } table[] = { // In an order that also leaves a repeat for no repeat and back.
                  { 4.0f, 2.0f, 3, 128, 341 },  { 6.0f, 1.0f, 1, 64, 384 },   { 6.5f, 1.0f, 2, 128, 416 },
                  { 12.0f, 1.0f, 5, 128, 307 }, { 2.2f, 1.0f, 1, 512, 1126 }, { 2.21f, 1.0f, 1, 256, 565 },
                  { 5.21f, 1.0f, 1, 64, 333 },  { 0.25f, 1.0f, 1, 512, 128 }
    };
    for (const auto& row : table)
    {
        ASSERT_EQ (c.set (row.stretch, row.pitch), kNoError) << row.stretch;
        EXPECT_EQ (c.core.getRepeat(), row.repeat) << row.stretch << " x " << row.pitch;
        EXPECT_EQ (c.core.analysisHop(), row.analysis) << row.stretch << " x " << row.pitch;
        EXPECT_EQ (c.core.synthesisHop(), row.synthesis) << row.stretch << " x " << row.pitch;
    }
}

TEST (V3CoreFactors, FactorBelowTheMinimumIsRefusedAndChangesNothing)
{
    Core c;
    ASSERT_EQ (c.set (2.0f), kNoError);
    float stretch = 0.09f, pitch = 1.0f;
    EXPECT_EQ (c.core.setStretchPitch (&stretch, &pitch, CMeridexCoreBase::kAdjustStretch, kMovePosition),
               kBelowMinimumFactor);
    EXPECT_FLOAT_EQ (stretch, 0.09f);
    EXPECT_FLOAT_EQ (c.core.getStretchTotal(), 2.0f);
    EXPECT_EQ (c.core.synthesisHop(), 1024);
    EXPECT_EQ (c.core.setRepeatMode (CMeridexCoreBase::kRepeatLocked, CMeridexCoreBase::kRepeatAsNeeded), kNoError);
    ASSERT_EQ (c.set (7.0f), kNoError);
    EXPECT_EQ (c.core.setRepeatMode (CMeridexCoreBase::kRepeatFree, CMeridexCoreBase::kRepeatAsNeeded), kBadArgument);
}

TEST (V3CoreFactors, PitchRiseLeavesTheBinsThatWouldFoldBackEmpty)
{
    Core c;
    ASSERT_EQ (c.set (1.0f, 2.0f), kNoError);
    EXPECT_EQ (c.core.getVocoder().getUpperBin(), 1024);
    ASSERT_EQ (c.set (1.0f, 0.5f), kNoError);
    EXPECT_EQ (c.core.getVocoder().getUpperBin(), 2049);
}

// 409.6 synthesis samples per 512 analysis at T 0.8: with the pitch kept, 409
// and 410 alternate, their sum within a sample of exact; else every one is 409.
TEST (V3CoreSteps, FractionalSynthesisHopFollowsTheExactRatio)
{
    for (auto adjust : { CMeridexCoreBase::kAdjustStretch, CMeridexCoreBase::kAdjustPitch })
    {
        Core c;
        float stretch = 0.8f, pitch = 1.0f;
        ASSERT_EQ (c.core.setStretchPitch (&stretch, &pitch, adjust, kMovePosition), kNoError);
        const double exact = adjust == CMeridexCoreBase::kAdjustStretch ? 512.0 * static_cast<double> (0.8f) : 409.0;
        EXPECT_NEAR (c.core.synthesisHopExact(), exact, 1.0e-9);
        std::vector<float> in (512, 0.1f), left (c.core.getMaxOutputPerFrame()), right (left.size());
        const float* ins[] = { in.data(), in.data() };
        float* outs[] = { left.data(), right.data() };
        long long total = 0;
        int longer = 0;
        for (int frame = 1; frame <= 300; ++frame)
        {
            c.runFrame (ins, outs);
            const int hop = c.core.appliedSynthesis();
            ASSERT_TRUE (hop == 409 || hop == 410) << frame;
            longer += hop == 410 ? 1 : 0;
            total += hop;
            ASSERT_LE (std::fabs (static_cast<double> (total) - frame * exact), 1.0) << frame;
        }
        EXPECT_EQ (longer, adjust == CMeridexCoreBase::kAdjustStretch ? 180 : 0);
    }
}

TEST (V3Vocoder, SynthesisWindowKeepsWhileRunningButIsAsymmetricAfterReset)
{
    CPhaseVocoderV3 vocoder;
    ASSERT_EQ (vocoder.init (2048, 256, 307, 1.2f, 1), kNoError);
    EXPECT_FALSE (vocoder.isSynthesisWindowAsymmetric());
    vocoder.setHops (2048, 256, 179, 0.7f);
    EXPECT_FALSE (vocoder.isSynthesisWindowAsymmetric());

    vocoder.setHops (2048, 256, 307, 1.2f);
    vocoder.reset();
    vocoder.setHops (2048, 256, 179, 0.7f);
    EXPECT_TRUE (vocoder.isSynthesisWindowAsymmetric());
    const float* w = vocoder.getSynthesisWindow();
    EXPECT_LT (w[512], w[2047 - 512]); // rises late, falls slowly
    vocoder.setHops (2048, 256, 204, 0.8f);
    EXPECT_FALSE (vocoder.isSynthesisWindowAsymmetric());

    // The analysis window narrows below a ratio of 1.5 (h^4 rather than h^3).
    const double h = 0.53836 - 0.46164 * std::cos (2.0 * kPi * 512 / 2047);
    EXPECT_NEAR (vocoder.getAnalysisWindow()[512], h * h * h * h, 1.0e-6);
    vocoder.setHops (2048, 256, 512, 2.0f);
    EXPECT_NEAR (vocoder.getAnalysisWindow()[512], h * h * h, 1.0e-6);
}

constexpr int kAuxLowerBin = 70; // 1500 Hz at N = 2048

// Mono vocoder, N = 2048, analysis hop 256; frame f's hop is hop + (f % 2) *
// extra (a fractional hop's two lengths); aux is read where the output stands.
template <typename Inspect>
std::vector<float> runMono (CPhaseVocoderV3& vocoder, const std::vector<float>& input, const std::vector<float>* aux,
                            int hop, int extra, int frames, Inspect afterFrame)
{
    std::vector<float> out, block (2048);
    float* outs[] = { block.data() };
    for (int f = 0; f < frames; ++f)
    {
        vocoder.setFrameHop (hop + (f % 2) * extra);
        const float* ins[] = { input.data() + f * 256 };
        const float* auxes[] = { aux != nullptr ? aux->data() + out.size() : nullptr };
        for (int s = 0; s < CPhaseVocoderV3::kStagesPerChannel; ++s)
            vocoder.processStep (ins, aux != nullptr ? auxes : nullptr, outs, s);
        out.insert (out.end(), block.begin(), block.begin() + vocoder.getFrameHop());
        afterFrame (f);
    }
    return out;
}

// (hop, extra): frame hops of hop and hop + extra in turn.
class V3VocoderAux : public ::testing::TestWithParam<std::pair<int, int>>
{};

// Input 300 Hz and 6 kHz; aux holds the 6 kHz partial at half its level.
// Above the lower bin it must come from aux alone (not both), at unit gain,
// without hop-rate ripple, N/2 behind aux (the reading frame's centre).
TEST_P (V3VocoderAux, SteadyUpperPartialComesFromAuxAloneAtUnitGain)
{
    const auto [hop, extra] = GetParam();
    CPhaseVocoderV3 vocoder;
    ASSERT_EQ (vocoder.init (2048, 256, hop, (hop + 0.5f * extra) / 256.0f, 1), kNoError);
    vocoder.setLowerBin (kAuxLowerBin);
    const int frames = 200;
    const auto input = chord (frames * 256 + 2048, { { 300.0, 0.3 }, { 6000.0, 0.2 } }, 1)[0];
    const auto aux = chord (frames * (hop + extra), { { 6000.0, 0.1 } }, 1)[0];
    int unrouted = 0;
    const auto out = runMono (vocoder, input, &aux, hop, extra, frames, [&] (int f) {
        if (f >= 40)
            unrouted += (vocoder.isBinFromAux (14) ? 1 : 0) + (vocoder.isBinFromAux (279) ? 0 : 1);
    });
    EXPECT_EQ (unrouted, 0);

    const size_t from = 8000, to = out.size() - 2000;
    EXPECT_NEAR (amplitudeAt (out, from, 8192, 300.0), 0.3, 0.006);
    for (size_t i = from; i + 128 < to; i += 16)
        ASSERT_NEAR (amplitudeAt (out, i, 128, 6000.0), 0.1, 0.003) << i;
    std::vector<float> residual (out.begin() + static_cast<long> (from), out.begin() + static_cast<long> (to));
    for (size_t i = 0; i < residual.size(); ++i)
        residual[i] -= aux[from + i - 1024];
    EXPECT_LT (amplitudeAt (residual, 0, 8192, 6000.0), 0.002);
}

INSTANTIATE_TEST_SUITE_P (Hops, V3VocoderAux,
                          ::testing::Values (std::pair { 512, 0 }, std::pair { 179, 0 }, std::pair { 409, 1 }));

// Nothing comes from aux below the lower bin, nor from the upper bin up: aux's
// 6 kHz adds nothing to the input's, kept (lower bin past the top) or dropped
// (upper bin below it). DC and Nyquist, packed together, pass from both.
TEST (V3VocoderAuxMasks, NothingComesFromAuxOutsideTheLowerAndUpperBins)
{
    const auto input = chord (60 * 256 + 2048, { { 300.0, 0.3 }, { 6000.0, 0.2 } }, 1)[0];
    const auto aux = chord (60 * 512, { { 6000.0, 0.5 } }, 1)[0];
    for (const auto& [lower, upper] : { std::pair { 1025, 1025 }, std::pair { kAuxLowerBin, 250 } })
    {
        CPhaseVocoderV3 vocoder;
        ASSERT_EQ (vocoder.init (2048, 256, 512, 2.0f, 1), kNoError);
        vocoder.setLowerBin (lower);
        vocoder.setUpperBin (upper);
        const auto out = runMono (vocoder, input, &aux, 512, 0, 60, [] (int) {});
        EXPECT_NEAR (amplitudeAt (out, 8000, 8192, 6000.0), upper > 279 ? 0.2 : 0.0, 0.002) << upper;
        EXPECT_NEAR (amplitudeAt (out, 8000, 8192, 300.0), 0.3, 0.006) << upper;
        EXPECT_TRUE (vocoder.isBinFromAux (0));
        EXPECT_EQ (vocoder.isBinFromAux (1024), upper > 1024);
        for (int k = 1; k < 1024; ++k)
            ASSERT_FALSE ((k < lower || k >= upper) && vocoder.isBinFromAux (k)) << upper << " " << k;
    }
}

// A click over a steady partial stays with the vocoder: in the frame that
// resets its phases and the next, none of its bins comes from aux.
TEST (V3VocoderAuxMasks, AttackKeepsTheVocoderBins)
{
    auto input = chord (60 * 256 + 2048, { { 6000.0, 0.2 } }, 1)[0];
    input[9000] += 1.0f;
    const auto aux = chord (60 * 512, { { 6000.0, 0.1 } }, 1)[0];
    CPhaseVocoderV3 vocoder;
    ASSERT_EQ (vocoder.init (2048, 256, 512, 2.0f, 1), kNoError);
    vocoder.setLowerBin (kAuxLowerBin);
    std::vector<int> click;
    int clickFrame = -1, routed = 0;
    runMono (vocoder, input, &aux, 512, 0, 50, [&] (int f) {
        std::vector<int> attack;
        for (int k = kAuxLowerBin; k < 1024; ++k)
            if (vocoder.getBinClass (k) == kTransientAttack)
                attack.push_back (k);
        if (attack.size() > 900)
        {
            click = attack;
            clickFrame = f;
        }
        if (clickFrame >= 0 && f <= clickFrame + 1)
            for (int k : click)
                routed += vocoder.isBinFromAux (k) ? 1 : 0;
    });
    ASSERT_GE (clickFrame, 0);
    EXPECT_EQ (routed, 0);
}

// Through the core: aux is encoded like the input (so each channel keeps its
// own level after the decoding), read per frame with the frame's own hop,
// repeats included, and the steps allocate nothing.
class V3CoreAux : public ::testing::TestWithParam<float>
{};

TEST_P (V3CoreAux, StereoAuxJoinsAtUnitGainWithoutAllocating)
{
    Core c;
    ASSERT_EQ (c.set (GetParam()), kNoError); // 0.8: hops of 409 and 410; 7: a frame repeat
    c.core.setLowerBin (140);
    const Channels input = chord (80000, { { 300.0, 0.3 }, { 6000.0, 0.2 } });
    const Channels aux = { chord (70000, { { 6000.0, 0.1 } }, 1)[0], chord (70000, { { 6000.0, 0.04 } }, 1)[0] };
    Channels out (2, std::vector<float> (70000));
    size_t at = 0, auxAt = 0, written = 0;
    tavrine::test::ScopedAllocationCount allocations;
    while (written < 60000)
    {
        const float* ins[] = { input[0].data() + at, input[1].data() + at };
        const float* auxes[] = { aux[0].data() + auxAt, aux[1].data() + auxAt };
        float* outs[] = { out[0].data() + written, out[1].data() + written };
        at += static_cast<size_t> (c.core.getInputNeeded());
        written += static_cast<size_t> (c.runFrame (ins, outs, auxes));
        auxAt += static_cast<size_t> (c.core.appliedSynthesis());
    }
    EXPECT_EQ (allocations.count(), 0u);
    for (int ch = 0; ch < 2; ++ch)
    {
        const auto& x = out[static_cast<size_t> (ch)];
        const double level = ch == 0 ? 0.1 : 0.04;
        EXPECT_NEAR (amplitudeAt (x, 34000, 16384, 300.0), 0.3, 0.006) << ch;
        for (size_t i = 34000; i + 256 < 58000; i += 64)
            ASSERT_NEAR (amplitudeAt (x, i, 256, 6000.0), level, 0.03 * level) << ch << " " << i;
    }
}

INSTANTIATE_TEST_SUITE_P (Stretch, V3CoreAux, ::testing::Values (0.8f, 7.0f));

// Harmonics of 125 Hz shaped by a resonance at 1000 Hz keep their frequencies
// while the energy's centre moves to 1000 / factor (frame 1024 at 44.1 kHz).
TEST (V3Formant, FactorMovesTheEnvelopeNotThePartials)
{
    std::vector<std::pair<double, double>> partials;
    for (int h = 1; h <= 40; ++h)
    {
        const double hz = 125.0 * h;
        partials.emplace_back (hz, 0.05 * std::exp (-std::pow ((hz - 1000.0) / 400.0, 2.0)) + 0.002);
    }
    const Channels input = chord (16384, partials, 1);
    auto centroid = [] (const std::vector<float>& x) {
        double weighted = 0.0, total = 0.0;
        for (int h = 1; h <= 40; ++h)
        {
            const double a = amplitudeAt (x, 4096, 8192, 125.0 * h);
            weighted += a * a * 125.0 * h;
            total += a * a;
        }
        return weighted / total;
    };
    EXPECT_NEAR (centroid (input[0]), 1000.0, 50.0);

    for (float factor : { 0.625f, 1.6f })
    {
        CFFTSplitV3 split;
        ASSERT_EQ (split.init (1024, 1, 44100.0f), kNoError);
        ASSERT_EQ (split.setFormantFactor (factor), kNoError);
        std::vector<float> out (16384);
        const float* ins[] = { input[0].data() };
        float* outs[] = { out.data() };
        ASSERT_EQ (split.process (ins, 16384, outs, nullptr), 16384);
        EXPECT_NEAR (centroid (out), 1000.0 / factor, 0.15 * 1000.0 / factor) << factor;
        // Partials stay where they were: nothing grows between them.
        EXPECT_LT (amplitudeAt (out, 4096, 8192, 1062.5), 0.05 * amplitudeAt (out, 4096, 8192, 1000.0)) << factor;
    }
    CFFTSplitV3 split;
    ASSERT_EQ (split.init (1024, 1, 44100.0f), kNoError);
    EXPECT_EQ (split.setFormantFactor (0.2f), kBadArgument);
    EXPECT_EQ (split.getFormantFactor(), 1.0f);
}
} // namespace
