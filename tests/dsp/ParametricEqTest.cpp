#include "dsp/CParametricEq.h"
#include "dsp/CParametricEqIf.h"
#include "tests/dsp/support/V3TestSignals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <memory>
#include <tuple>
#include <vector>

using namespace qvrParamEQ;

namespace
{
constexpr float kRate = 44100.0f;
constexpr double kPi = 3.141592653589793;

using EqPtr = std::unique_ptr<CParametricEqIf>;

struct Setting
{
    int type;
    float frequencyHz, q, gainDb;
};

EqPtr makeEq (const Setting& s = { kLowPass2, 1000.0f, 1.0f, 0.0f }, int channels = 1, float rate = kRate)
{
    CParametricEqIf* raw = nullptr;
    EXPECT_EQ (CParametricEqIf::createInstance (&raw, rate, channels), meridex::kNoError);
    EqPtr eq (raw);
    EXPECT_EQ (eq->setType (s.type), meridex::kNoError);
    EXPECT_EQ (eq->setParameter (kFrequency, s.frequencyHz), meridex::kNoError);
    EXPECT_EQ (eq->setParameter (kQ, s.q), meridex::kNoError);
    EXPECT_EQ (eq->setParameter (kGain, s.gainDb), meridex::kNoError);
    return eq;
}

// Low, middle and high corners at broad, Butterworth, resonant and maximum q;
// a cut and a boost for the types that have a gain.
std::vector<Setting> sweepSettings (int type)
{
    std::vector<Setting> settings;
    const bool hasGain = type >= kLowShelf1 && type <= kPeak2;
    for (float gain : hasGain ? std::vector<float> { -15.0f, 9.0f } : std::vector<float> { 0.0f })
    {
        for (float f : { 60.0f, 1000.0f, 12000.0f })
            for (float q : { 0.3f, 0.7071f, 6.0f })
                settings.push_back ({ type, f, q, gain });
        settings.push_back ({ type, 1000.0f, 24.0f, gain });
    }
    return settings;
}

std::vector<double> probeFrequencies() // 20 Hz to 20 kHz, a third of an octave apart
{
    std::vector<double> f;
    for (int i = 0; i <= 30; ++i)
        f.push_back (20.0 * std::pow (1000.0, i / 30.0));
    return f;
}

std::vector<float> noiseSignal (int length, unsigned seed, float amplitude = 0.5f)
{
    return tavrine::dsptest::noiseSamples (length, seed, -amplitude, amplitude);
}

void runMono (CParametricEqIf& eq, std::vector<float>& buffer)
{
    float* p = buffer.data();
    ASSERT_EQ (eq.process (&p, &p, static_cast<int> (buffer.size())), meridex::kNoError);
}

// Impulse response with noise off, cut where it falls below 1e-10 of its peak.
std::vector<float> impulseResponse (CParametricEqIf& eq)
{
    eq.setNoise (false);
    std::vector<float> h (1 << 16, 0.0f);
    h[0] = 1.0f;
    runMono (eq, h);
    float peak = 0.0f;
    for (float v : h)
        peak = std::max (peak, std::fabs (v));
    while (h.size() > 1 && std::fabs (h.back()) < 1e-10f * peak)
        h.pop_back();
    return h;
}

double measuredDb (const std::vector<float>& h, double frequencyHz)
{
    const double w = 2.0 * kPi * frequencyHz / kRate;
    std::complex<double> sum;
    for (size_t n = 0; n < h.size(); ++n)
        sum += static_cast<double> (h[n]) * std::polar (1.0, -w * static_cast<double> (n));
    return 10.0 * std::log10 (std::norm (sum));
}

// The audio-EQ cookbook biquads in double, independent of the filter's code;
// NaN for the first-order types, which have no cookbook form.
double cookbookDb (const Setting& s, double frequencyHz)
{
    const double w0 = 2.0 * kPi * s.frequencyHz / kRate, c = std::cos (w0), alpha = std::sin (w0) / (2.0 * s.q);
    const double a = std::pow (10.0, s.gainDb / 40.0), sa = 2.0 * std::sqrt (a) * alpha, p = a + 1, m = a - 1;
    double b[3] = {}, d[3] = { 1 + alpha, -2 * c, 1 - alpha };
    switch (s.type)
    {
        case kLowPass2:
            b[0] = (1 - c) / 2;
            b[1] = 1 - c;
            b[2] = (1 - c) / 2;
            break;
        case kHighPass2:
            b[0] = (1 + c) / 2;
            b[1] = -(1 + c);
            b[2] = (1 + c) / 2;
            break;
        case kBandPass2:
            b[0] = alpha;
            b[2] = -alpha;
            break;
        case kNotch2:
            b[0] = 1;
            b[1] = -2 * c;
            b[2] = 1;
            break;
        case kAllPass2:
            b[0] = 1 - alpha;
            b[1] = -2 * c;
            b[2] = 1 + alpha;
            break;
        case kPeak2:
            b[0] = 1 + alpha * a;
            b[1] = -2 * c;
            b[2] = 1 - alpha * a;
            d[0] = 1 + alpha / a;
            d[2] = 1 - alpha / a;
            break;
        case kLowShelf2:
            b[0] = a * (p - m * c + sa);
            b[1] = 2 * a * (m - p * c);
            b[2] = a * (p - m * c - sa);
            d[0] = p + m * c + sa;
            d[1] = -2 * (m + p * c);
            d[2] = p + m * c - sa;
            break;
        case kHighShelf2:
            b[0] = a * (p + m * c + sa);
            b[1] = -2 * a * (m + p * c);
            b[2] = a * (p + m * c - sa);
            d[0] = p - m * c + sa;
            d[1] = 2 * (m - p * c);
            d[2] = p - m * c - sa;
            break;
        default: return std::numeric_limits<double>::quiet_NaN();
    }
    const std::complex<double> z1 = std::polar (1.0, -2.0 * kPi * frequencyHz / kRate), z2 = z1 * z1;
    return 20.0 * std::log10 (std::abs ((b[0] + b[1] * z1 + b[2] * z2) / (d[0] + d[1] * z1 + d[2] * z2)));
}

// Below -80 dB both curves are rounding (float states, the depth of a zero): only "deep" is compared.
void expectSameDb (double expected, double actual, const Setting& s, double f)
{
    if (expected < -80.0)
        EXPECT_LT (actual, -70.0) << "type " << s.type << " at " << f << " Hz";
    else
        EXPECT_NEAR (expected, actual, 0.1) << "type " << s.type << " fc " << s.frequencyHz << " q " << s.q << " gain "
                                            << s.gainDb << " at " << f << " Hz";
}
} // namespace

class ParametricEqEveryType : public ::testing::TestWithParam<int>
{};

// The reported curve is what the filter does (its impulse response) and what
// the published formulas give: a wrong coefficient fails one or the other.
TEST_P (ParametricEqEveryType, ReportedCurveMatchesTheFilterAndTheCookbook)
{
    for (const Setting& s : sweepSettings (GetParam()))
    {
        EqPtr eq = makeEq (s);
        const std::vector<float> h = impulseResponse (*eq);
        for (double f : probeFrequencies())
        {
            const double reported = eq->getResponseDb (static_cast<float> (f));
            expectSameDb (measuredDb (h, f), reported, s, f);
            if (const double reference = cookbookDb (s, f); ! std::isnan (reference))
                expectSameDb (reference, reported, s, f);
        }
    }
}

TEST_P (ParametricEqEveryType, LoudInputThenSilenceStaysBoundedAndFreeOfDenormals)
{
    // Corners of the parameter space, and cut-offs past Nyquist at a lower
    // rate, which must not turn the recursion unstable.
    const int type = GetParam();
    for (const auto& [setting, rate] : { std::pair { Setting { type, 10.0f, 0.1f, -24.0f }, kRate },
                                         { { type, 10.0f, 24.0f, 24.0f }, kRate },
                                         { { type, 20000.0f, 0.1f, 24.0f }, kRate },
                                         { { type, 20000.0f, 24.0f, -24.0f }, kRate },
                                         { { type, 20000.0f, 24.0f, 24.0f }, 32000.0f },
                                         { { type, 20000.0f, 0.1f, -24.0f }, 32000.0f } })
    {
        EqPtr eq = makeEq (setting, 1, rate);
        std::vector<float> io = noiseSignal (4096, 7, 1.0f);
        io.resize (4096 + 32768, 0.0f);
        runMono (*eq, io);

        float earlyTail = 0.0f, lateTail = 0.0f;
        for (size_t i = 0; i < io.size(); ++i)
        {
            ASSERT_TRUE (std::isfinite (io[i]) && std::fabs (io[i]) < 1e4f) << "type " << type << " sample " << i;
            ASSERT_TRUE (i < 4096 || std::fpclassify (io[i]) != FP_SUBNORMAL) << "type " << type << " sample " << i;
            float& tail = i < 4096 + 16384 ? earlyTail : lateTail;
            tail = std::max (tail, i < 4096 ? 0.0f : std::fabs (io[i]));
        }
        EXPECT_LE (lateTail, earlyTail + 1e-18f)
            << "tail grows: type " << type << " fc " << setting.frequencyHz << " rate " << rate;
    }
}

INSTANTIATE_TEST_SUITE_P (AllTypes, ParametricEqEveryType, ::testing::Range (0, static_cast<int> (kNumFilterTypes)));

TEST (ParametricEqResponse, FirstOrderTypesAndZerosOfTheResponse)
{
    const float nyquist = kRate / 2.0f;
    EqPtr lowPass = makeEq ({ kLowPass1, 1000.0f, 1.0f, 0.0f }),
          highPass = makeEq ({ kHighPass1, 1000.0f, 1.0f, 0.0f });
    EXPECT_NEAR (lowPass->getResponseDb (0.0f), 0.0, 1e-3);
    EXPECT_NEAR (lowPass->getResponseDb (1000.0f), -3.0, 0.3);
    EXPECT_NEAR (highPass->getResponseDb (nyquist), 0.0, 1e-3);
    EXPECT_NEAR (highPass->getResponseDb (1000.0f), -3.0, 0.3);

    for (float f : { 100.0f, 5000.0f })
        EXPECT_NEAR (makeEq ({ kAllPass1, 1000.0f, 1.0f, 0.0f })->getResponseDb (f), 0.0, 1e-3) << f;

    // The low shelf moves DC by the gain; the high shelf moves the top end
    // against it and holds DC at exactly 0 dB.
    for (float gain : { -12.0f, 12.0f })
    {
        EqPtr lowShelf = makeEq ({ kLowShelf1, 200.0f, 1.0f, gain }),
              highShelf = makeEq ({ kHighShelf1, 200.0f, 1.0f, gain });
        EXPECT_NEAR (lowShelf->getResponseDb (0.0f), gain, 0.5);
        EXPECT_NEAR (lowShelf->getResponseDb (nyquist), 0.0, 0.5);
        EXPECT_NEAR (highShelf->getResponseDb (0.0f), 0.0, 1e-3);
        EXPECT_NEAR (highShelf->getResponseDb (nyquist), -gain, 0.5);
    }

    // Where the numerator vanishes the answer is deep but finite.
    for (const auto& [setting, atHz] : { std::pair<Setting, float> { { kNotch2, 1000.0f, 1.0f, 0.0f }, 1000.0f },
                                         { { kHighPass2, 1000.0f, 1.0f, 0.0f }, 0.0f },
                                         { { kLowPass2, 1000.0f, 1.0f, 0.0f }, nyquist } })
    {
        const float db = makeEq (setting)->getResponseDb (atHz);
        EXPECT_TRUE (std::isfinite (db) && db < -60.0f) << "type " << setting.type << ": " << db;
    }
}

TEST (ParametricEqRefusals, RefusedCallsChangeNothing)
{
    EqPtr eq = makeEq();
    const float before = eq->getResponseDb (3000.0f), nan = std::numeric_limits<float>::quiet_NaN();
    for (const auto& [index, value] : { std::pair<int, float> { kFrequency, 9.9f },
                                        { kQ, 24.1f },
                                        { kGain, -24.5f },
                                        { kFrequency, nan },
                                        { kNumParameters, 1.0f } })
        EXPECT_EQ (eq->setParameter (index, value), kInvalidArgument) << index << " " << value;
    EXPECT_EQ (eq->setType (kNumFilterTypes), kInvalidArgument);
    EXPECT_TRUE (eq->getType() == kLowPass2 && eq->getParameter (kFrequency) == 1000.0f && eq->getParameter (kQ) == 1.0f
                 && eq->getParameter (kGain) == 0.0f);
    EXPECT_EQ (eq->getResponseDb (3000.0f), before);

    std::vector<float> a (8, 0.25f);
    float* good[] = { a.data() };
    float* missing[] = { nullptr };
    for (const auto& [in, out, n] :
         { std::tuple<float**, float**, int> { good, good, 0 }, { nullptr, good, 8 }, { good, missing, 8 } })
        EXPECT_EQ (eq->process (in, out, n), kInvalidArgument);
    EXPECT_EQ (a, std::vector<float> (8, 0.25f));

    // A refused creation clears a pointer that held something before.
    for (const auto& [rate, channels] : { std::pair<float, int> { kRate, 0 }, { 0.0f, 2 }, { nan, 2 } })
    {
        CParametricEqIf* other = eq.get();
        EXPECT_EQ (CParametricEqIf::createInstance (&other, rate, channels), kInvalidArgument);
        EXPECT_EQ (other, nullptr);
    }
    EXPECT_EQ (CParametricEqIf::createInstance (nullptr, kRate, 2), kInvalidArgument);
}

TEST (ParametricEqProcess, EachChangeReachesTheNextBlockWithoutReset)
{
    // Coefficients are built once, then one setting changes; the next block
    // must run as a fresh filter with the new setting would.
    const Setting target { kPeak2, 3000.0f, 4.0f, 12.0f };
    const float targetValues[kNumParameters] = { target.frequencyHz, target.q, target.gainDb };
    const Setting starts[] = { { kNotch2, 3000.0f, 4.0f, 12.0f },
                               { kPeak2, 500.0f, 4.0f, 12.0f },
                               { kPeak2, 3000.0f, 0.5f, 12.0f },
                               { kPeak2, 3000.0f, 4.0f, -6.0f } };
    for (int changed = 0; changed < 4; ++changed)
    {
        EqPtr eq = makeEq (starts[changed]), fresh = makeEq (target);
        eq->setNoise (false); // so that the block that builds the coefficients leaves the state at zero
        fresh->setNoise (false);
        std::vector<float> silence (64, 0.0f), a = noiseSignal (256, 3), b = a;
        runMono (*eq, silence);
        ASSERT_EQ (changed == 0 ? eq->setType (target.type) : eq->setParameter (changed - 1, targetValues[changed - 1]),
                   meridex::kNoError);
        runMono (*eq, a);
        runMono (*fresh, b);
        EXPECT_EQ (a, b) << "change " << changed;
    }
}

TEST (ParametricEqProcess, OutputDoesNotDependOnBlockSizeOrChannelGrouping)
{
    // Three channels run as a pair plus a single; each must come out exactly
    // as a mono filter gives it, whatever the blocks.
    constexpr int kLength = 4099;
    for (const Setting& s : { Setting { kLowPass2, 800.0f, 6.0f, 0.0f }, Setting { kPeak2, 5000.0f, 2.0f, 9.0f },
                              Setting { kAllPass1, 300.0f, 1.0f, 0.0f } })
    {
        std::vector<std::vector<float>> inputs, reference;
        for (unsigned ch = 0; ch < 3; ++ch)
        {
            inputs.push_back (noiseSignal (kLength, 11 + ch));
            reference.push_back (inputs.back());
            EqPtr mono = makeEq (s);
            mono->setNoise (false);
            runMono (*mono, reference.back());
        }
        for (int blockSize : { 1, 3, 64, kLength })
        {
            EqPtr eq = makeEq (s, 3);
            eq->setNoise (false);
            std::vector<std::vector<float>> out (3, std::vector<float> (kLength));
            for (int done = 0; done < kLength; done += blockSize)
            {
                const float* in[] = { &inputs[0][done], &inputs[1][done], &inputs[2][done] };
                float* outs[] = { &out[0][done], &out[1][done], &out[2][done] };
                ASSERT_EQ (eq->process (in, outs, std::min (blockSize, kLength - done)), meridex::kNoError);
            }
            EXPECT_EQ (out, reference) << "type " << s.type << " block " << blockSize;
        }
    }
}

TEST (ParametricEqProcess, BypassAndResetLeaveTheStateAsDocumented)
{
    const Setting s { kBandPass2, 2000.0f, 3.0f, 0.0f };
    const std::vector<float> first = noiseSignal (100, 1, 1.0f), middle = noiseSignal (64, 2),
                             last = noiseSignal (100, 3);
    EqPtr eq = makeEq (s), plain = makeEq (s);
    std::vector<float> a = first, b = first;
    runMono (*eq, a);
    runMono (*plain, b);

    // Bypassed: in place leaves the data alone, out of place copies it, and
    // the state stays as it was, so the bypassed blocks leave no trace.
    eq->setBypass (true);
    std::vector<float> inPlace = middle, copied (middle.size(), -7.0f);
    runMono (*eq, inPlace);
    const float* in = middle.data();
    float* out = copied.data();
    ASSERT_EQ (eq->process (&in, &out, static_cast<int> (middle.size())), meridex::kNoError);
    EXPECT_EQ (inPlace, middle);
    EXPECT_EQ (copied, middle);
    eq->setBypass (false);
    a = b = last;
    runMono (*eq, a);
    runMono (*plain, b);
    EXPECT_EQ (a, b);

    // Reset forgets all that came before.
    eq->reset();
    EqPtr fresh = makeEq (s);
    a = b = last;
    runMono (*eq, a);
    runMono (*fresh, b);
    EXPECT_EQ (a, b);
}

TEST (ParametricEqCascade, GivesBitForBitWhatTheStagesGiveOneAfterAnother)
{
    // Two identical sets of stages, one run through the cascade and one stage
    // by stage: state carries across blocks, counts go past one interleaved
    // group, some stages are bypassed or missing, noise on for all/none/some.
    const Setting kinds[] = { { kLowPass2, 5000.0f, 0.5f, 0.0f },  { kHighPass2, 120.0f, 2.0f, 0.0f },
                              { kPeak2, 2500.0f, 4.0f, 9.0f },     { kNotch2, 800.0f, 1.5f, 0.0f },
                              { kBandPass2, 1500.0f, 0.7f, 0.0f }, { kLowShelf2, 300.0f, 0.7071f, -6.0f },
                              { kAllPass1, 3000.0f, 1.0f, 0.0f },  { kHighShelf1, 4000.0f, 1.0f, 12.0f },
                              { kLowPass1, 9000.0f, 1.0f, 0.0f },  { kAllPass2, 600.0f, 3.0f, 0.0f } };
    constexpr int kLength = 700;

    // 3, 4, 12 and 21 stages leave 2, 3, 10 and 19 active; blocks near
    // multiples of those start and end stages at different samples.
    for (int numStages : { 1, 3, 4, 12, 21 })
        for (int channels : { 1, 2, 3 })
            for (int noiseMode = 0; noiseMode < 3; ++noiseMode)
                for (int blockSize : { 1, 7, 9, 17, 128 })
                {
                    std::vector<EqPtr> cascaded, separate;
                    std::vector<CParametricEq*> sections;
                    for (int i = 0; i < numStages; ++i)
                    {
                        for (auto* set : { &cascaded, &separate })
                        {
                            set->push_back (makeEq (kinds[(i * 3 + noiseMode) % 10], channels));
                            set->back()->setNoise (noiseMode == 0 || (noiseMode == 2 && i % 2 == 1));
                            set->back()->setBypass (numStages > 2 && i == 1);
                        }
                        sections.push_back (dynamic_cast<CParametricEq*> (cascaded.back().get()));
                        ASSERT_NE (sections.back(), nullptr);
                    }
                    if (numStages > 5)
                        sections[3] = nullptr; // and the separate set skips it too

                    std::vector<std::vector<float>> a; // ends in silence: noise and decaying state show
                    for (int ch = 0; ch < channels; ++ch)
                    {
                        a.push_back (noiseSignal (kLength, 40u + static_cast<unsigned> (ch), 0.8f));
                        std::fill (a.back().end() - 100, a.back().end(), 0.0f);
                    }
                    std::vector<std::vector<float>> b = a;

                    for (int done = 0; done < kLength; done += blockSize)
                    {
                        const int n = std::min (blockSize, kLength - done);
                        float* pa[4] = {};
                        float* pb[4] = {};
                        for (size_t ch = 0; ch < static_cast<size_t> (channels); ++ch)
                            std::tie (pa[ch], pb[ch]) = std::pair { a[ch].data() + done, b[ch].data() + done };
                        ASSERT_EQ (CParametricEq::processCascade (sections.data(), numStages, pa, n),
                                   meridex::kNoError);
                        for (int i = 0; i < numStages; ++i)
                            ASSERT_TRUE (sections[(size_t) i] == nullptr
                                         || separate[(size_t) i]->process (pb, pb, n) == meridex::kNoError);
                    }
                    EXPECT_EQ (a, b) << numStages << " stages, " << channels << " channels, noise mode " << noiseMode
                                     << ", block " << blockSize;
                }
}

TEST (ParametricEqCascade, RefusesNullBuffersAndEmptyBlocksWithoutChangingAnything)
{
    const Setting settings[] = { { kLowPass2, 500.0f, 0.7071f, 0.0f }, { kHighPass2, 50.0f, 1.0f, 0.0f } };
    EqPtr stages[] = { makeEq (settings[0], 2), makeEq (settings[1], 2) },
          fresh[] = { makeEq (settings[0], 2), makeEq (settings[1], 2) };
    CParametricEq* sections[] = { dynamic_cast<CParametricEq*> (stages[0].get()),
                                  dynamic_cast<CParametricEq*> (stages[1].get()) };
    std::vector<std::vector<float>> a { std::vector<float> (16, 0.5f), std::vector<float> (16, -0.25f) }, b = a;
    float* both[] = { a[0].data(), a[1].data() };
    float* missing[] = { a[0].data(), nullptr };
    EXPECT_EQ (CParametricEq::processCascade (sections, 2, missing, 16), kInvalidArgument);
    EXPECT_EQ (CParametricEq::processCascade (sections, 2, nullptr, 16), kInvalidArgument);
    EXPECT_EQ (CParametricEq::processCascade (sections, 2, both, 0), kInvalidArgument);
    EXPECT_EQ (a, b);
    // The refused calls left the state alone: the stages still match fresh ones.
    float* reference[] = { b[0].data(), b[1].data() };
    ASSERT_EQ (CParametricEq::processCascade (sections, 2, both, 16), meridex::kNoError);
    for (const EqPtr& stage : fresh)
        ASSERT_EQ (stage->process (reference, reference, 16), meridex::kNoError);
    EXPECT_EQ (a, b);
}
