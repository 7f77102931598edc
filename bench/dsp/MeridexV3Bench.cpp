// The "Efficient V3" engine through the offline helper: 10 s of stereo at
// 44100 Hz (a chord pad, plucked bass notes, a click pattern and a little
// noise) stretched by T = 0.5, 0.8, 1.25, 2 and 4, and shifted by -7 and +5
// semitones at T = 1. Each row carries "x_realtime": seconds of input per
// second of processor time (processor time, as the floor's benchmarks use:
// the machines are shared).

#include "dsp/MeridexOffline.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <ctime>
#include <random>
#include <vector>

namespace
{
constexpr double kRate = 44100.0;
constexpr int kSeconds = 10;
constexpr int kFrames = kSeconds * static_cast<int> (kRate);

const std::vector<std::vector<float>>& material()
{
    static const std::vector<std::vector<float>> channels = [] {
        std::vector<std::vector<float>> result (2, std::vector<float> (kFrames, 0.0f));
        std::mt19937 rng (1);
        std::uniform_real_distribution<float> dist (-1.0f, 1.0f);
        const double twoPi = 6.283185307179586;
        const double pad[] = { 261.63, 329.63, 392.0, 493.88 };
        for (int i = 0; i < kFrames; ++i)
        {
            const double t = i / kRate;
            double left = 0.0, right = 0.0;
            for (int n = 0; n < 4; ++n)
            {
                left += 0.06 * std::sin (twoPi * pad[n] * t + n);
                right += 0.06 * std::sin (twoPi * pad[n] * 1.002 * t + 2 * n);
            }
            const double beat = std::fmod (t, 0.5);
            const double bass = 0.25 * std::sin (twoPi * 55.0 * (1 + static_cast<int> (t * 2) % 3) * beat)
                                * std::exp (-6.0 * beat);
            const float click = (i % 11025 == 0) ? 0.8f : 0.0f;
            const float hiss = 0.01f * dist (rng);
            result[0][static_cast<size_t> (i)] = static_cast<float> (left + bass) + click + hiss;
            result[1][static_cast<size_t> (i)] = static_cast<float> (right + bass) + click - hiss;
        }
        return result;
    }();
    return channels;
}

void stretchTenSeconds (benchmark::State& state, double timeFactor, double semitones)
{
    const auto& input = material();
    const float* in[] = { input[0].data(), input[1].data() };
    std::vector<std::vector<float>> out;
    const std::clock_t start = std::clock();
    for (auto _ : state)
    {
        const int result = meridex::stretchOffline (in, 2, kFrames, kRate, timeFactor, semitones, 1.0, out);
        benchmark::DoNotOptimize (result);
        benchmark::DoNotOptimize (out.data());
    }
    const double seconds = static_cast<double> (std::clock() - start) / CLOCKS_PER_SEC
                           / static_cast<double> (state.iterations());
    state.counters["x_realtime"] = kSeconds / seconds;
}
} // namespace

BENCHMARK_CAPTURE (stretchTenSeconds, V3_T0_5, 0.5, 0.0)->Unit (benchmark::kMillisecond);
BENCHMARK_CAPTURE (stretchTenSeconds, V3_T0_8, 0.8, 0.0)->Unit (benchmark::kMillisecond);
BENCHMARK_CAPTURE (stretchTenSeconds, V3_T1_25, 1.25, 0.0)->Unit (benchmark::kMillisecond);
BENCHMARK_CAPTURE (stretchTenSeconds, V3_T2, 2.0, 0.0)->Unit (benchmark::kMillisecond);
BENCHMARK_CAPTURE (stretchTenSeconds, V3_T4, 4.0, 0.0)->Unit (benchmark::kMillisecond);
BENCHMARK_CAPTURE (stretchTenSeconds, V3_PitchMinus7, 1.0, -7.0)->Unit (benchmark::kMillisecond);
BENCHMARK_CAPTURE (stretchTenSeconds, V3_PitchPlus5, 1.0, 5.0)->Unit (benchmark::kMillisecond);
