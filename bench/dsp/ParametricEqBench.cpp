// The equaliser against a plain biquad loop written here, measured in the same
// run on the same signal and coefficients.
//
// Reading the output: "Gsamples" is channel-samples per second in billions,
// which is samples per nanosecond. Reference rows run before the equaliser
// rows with the same arguments; an equaliser row then carries "x_reference",
// the reference's time per sample over its own (above 1: the equaliser is
// faster). For the six-stage rows the time column is the cost of one stereo
// block through the whole cascade.

#include "dsp/CParametricEqIf.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace
{
using namespace qvrParamEQ;

constexpr float kRate = 44100.0f;
constexpr float kCutoffHz = 5000.0f;
constexpr float kQ = 0.7071f;
constexpr int kCascadeStages = 6; // 72 dB per octave

// One channel at a time, one sample per loop turn, state in locals: the loop
// anyone would write first.
class ReferenceBiquad
{
public:
    ReferenceBiquad (int channels, float cutoffHz, float q)
        : z1 (static_cast<size_t> (channels), 0.0f), z2 (static_cast<size_t> (channels), 0.0f)
    {
        const double w = 2.0 * 3.141592653589793 * cutoffHz / kRate;
        const double c = std::cos (w), alpha = std::sin (w) / (2.0 * q), a0 = 1.0 + alpha;
        b0 = static_cast<float> ((1.0 - c) / 2.0 / a0);
        b1 = static_cast<float> ((1.0 - c) / a0);
        b2 = b0;
        a1 = static_cast<float> (-2.0 * c / a0);
        a2 = static_cast<float> ((1.0 - alpha) / a0);
    }

    void process (const float* const* in, float* const* out, int numSamples)
    {
        for (size_t ch = 0; ch < z1.size(); ++ch)
        {
            float s1 = z1[ch], s2 = z2[ch];
            for (int i = 0; i < numSamples; ++i)
            {
                const float x = in[ch][i];
                const float y = b0 * x + s1;
                s1 = b1 * x - a1 * y + s2;
                s2 = b2 * x - a2 * y;
                out[ch][i] = y;
            }
            z1[ch] = s1;
            z2[ch] = s2;
        }
    }

private:
    float b0, b1, b2, a1, a2;
    std::vector<float> z1, z2;
};

std::unique_ptr<CParametricEqIf> makeLowPass (int channels)
{
    CParametricEqIf* raw = nullptr;
    if (CParametricEqIf::createInstance (&raw, kRate, channels) != meridex::kNoError)
        return nullptr;
    std::unique_ptr<CParametricEqIf> eq (raw);
    if (eq->setType (kLowPass2) != meridex::kNoError || eq->setParameter (kFrequency, kCutoffHz) != meridex::kNoError
        || eq->setParameter (qvrParamEQ::kQ, kQ) != meridex::kNoError)
        return nullptr;
    return eq;
}

struct Signal
{
    Signal (int channels, int length)
    {
        std::mt19937 rng (42);
        std::uniform_real_distribution<float> dist (-0.5f, 0.5f);
        for (int ch = 0; ch < channels; ++ch)
        {
            source.emplace_back (static_cast<size_t> (length));
            work.emplace_back (static_cast<size_t> (length));
            for (float& x : source.back())
                x = dist (rng);
        }
        for (int ch = 0; ch < channels; ++ch)
        {
            in.push_back (source[static_cast<size_t> (ch)].data());
            out.push_back (work[static_cast<size_t> (ch)].data());
        }
    }

    void refill (int length)
    {
        for (size_t ch = 0; ch < source.size(); ++ch)
            std::memcpy (work[ch].data(), source[ch].data(), static_cast<size_t> (length) * sizeof (float));
    }

    std::vector<std::vector<float>> source, work;
    std::vector<const float*> in;
    std::vector<float*> out;
};

// Wall-clock nanoseconds per channel-sample of the last reference run, keyed
// by (comparison, channels * 10000 + block size). The framework runs each
// benchmark several times while it settles the iteration count; the last,
// longest run is the one that stays.
std::map<std::pair<int, int>, double>& referenceTimes()
{
    static std::map<std::pair<int, int>, double> times;
    return times;
}

enum Comparison
{
    kSingleStage = 0,
    kCascade = 1
};

template <typename Body>
void runTimed (benchmark::State& state, int channels, int block, Comparison comparison, bool isReference, Body&& body)
{
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
        body();
    const double elapsedNs =
        std::chrono::duration<double, std::nano> (std::chrono::steady_clock::now() - start).count();

    const double samples = static_cast<double> (state.iterations()) * channels * block;
    state.counters["Gsamples"] = benchmark::Counter (samples / 1e9, benchmark::Counter::kIsRate);

    const double nsPerSample = elapsedNs / samples;
    const auto key = std::make_pair (static_cast<int> (comparison), channels * 10000 + block);
    if (isReference)
        referenceTimes()[key] = nsPerSample;
    else if (const auto found = referenceTimes().find (key); found != referenceTimes().end())
        state.counters["x_reference"] = found->second / nsPerSample;
}

void BM_EqReferenceBiquad (benchmark::State& state)
{
    const int channels = static_cast<int> (state.range (0)), block = static_cast<int> (state.range (1));
    ReferenceBiquad filter (channels, kCutoffHz, kQ);
    Signal signal (channels, block);
    state.SetLabel ("reference loop");
    runTimed (state, channels, block, kSingleStage, true, [&] {
        filter.process (signal.in.data(), signal.out.data(), block);
        benchmark::ClobberMemory();
    });
}

void BM_EqParametricEq (benchmark::State& state)
{
    const int channels = static_cast<int> (state.range (0)), block = static_cast<int> (state.range (1));
    auto eq = makeLowPass (channels);
    if (eq == nullptr)
    {
        state.SkipWithError ("could not create the equaliser");
        return;
    }
    Signal signal (channels, block);
    state.SetLabel ("equaliser");
    runTimed (state, channels, block, kSingleStage, false, [&] {
        benchmark::DoNotOptimize (eq->process (signal.in.data(), signal.out.data(), block));
        benchmark::ClobberMemory();
    });
}

// Six stages in place on a stereo block, as the loop's filter runs at its
// steepest slope (72 dB).
void BM_EqReferenceCascade6 (benchmark::State& state)
{
    const int block = static_cast<int> (state.range (0));
    std::vector<ReferenceBiquad> stages (kCascadeStages, ReferenceBiquad (2, kCutoffHz, kQ));
    Signal signal (2, block);
    state.SetLabel ("reference loop, 6 stages, stereo");
    runTimed (state, 2, block, kCascade, true, [&] {
        signal.refill (block);
        for (ReferenceBiquad& stage : stages)
            stage.process (signal.out.data(), signal.out.data(), block);
        benchmark::ClobberMemory();
    });
}

void BM_EqCascade6 (benchmark::State& state)
{
    const int block = static_cast<int> (state.range (0));
    std::vector<std::unique_ptr<CParametricEqIf>> stages;
    for (int i = 0; i < kCascadeStages; ++i)
    {
        stages.push_back (makeLowPass (2));
        if (stages.back() == nullptr)
        {
            state.SkipWithError ("could not create the equaliser");
            return;
        }
    }
    Signal signal (2, block);
    state.SetLabel ("equaliser, 6 stages, stereo");
    runTimed (state, 2, block, kCascade, false, [&] {
        signal.refill (block);
        for (auto& stage : stages)
            benchmark::DoNotOptimize (stage->process (signal.out.data(), signal.out.data(), block));
        benchmark::ClobberMemory();
    });
}
} // namespace

BENCHMARK (BM_EqReferenceBiquad)
    ->ArgNames ({ "channels", "block" })
    ->Args ({ 1, 128 })
    ->Args ({ 2, 128 })
    ->Args ({ 2, 1024 });
BENCHMARK (BM_EqParametricEq)
    ->ArgNames ({ "channels", "block" })
    ->Args ({ 1, 128 })
    ->Args ({ 2, 128 })
    ->Args ({ 2, 1024 });
BENCHMARK (BM_EqReferenceCascade6)->ArgName ("block")->Arg (128);
BENCHMARK (BM_EqCascade6)->ArgName ("block")->Arg (128);
