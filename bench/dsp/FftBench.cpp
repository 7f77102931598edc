// The floor's real FFT against FFTW (single precision, real to complex, plan
// FFTW_MEASURE), measured in the same run on the same frame. For each size the
// FFTW row is registered first; the floor rows that follow carry "x_fftw", their
// time per transform divided by FFTW's (below 1 means faster; the goal is 1.5
// or less for the tier in use). Every row carries "ns/fft", in processor time.
//
// The rate converters follow: frames of stereo input per second through the
// engines' sinc converter (quality 3) and the cores' fast interpolator.

#include "dsp/floor/CFastResample.h"
#include "dsp/floor/CResampleFloat.h"
#include "dsp/floor/CScopedPtr.h"
#include "dsp/floor/CqvrfFFT_If.h"
#include "dsp/floor/FftWindows.h"
#include "dsp/floor/VectorDispatch.h"

#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cmath>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace
{
using namespace meridex;

std::vector<float> noise (size_t n)
{
    std::mt19937 rng (42);
    std::uniform_real_distribution<float> dist (-1.0f, 1.0f);
    std::vector<float> x (n);
    for (float& v : x)
        v = dist (rng);
    return x;
}

// Nanoseconds per transform of the last FFTW run, by size.
std::map<int, double>& fftwTimes()
{
    static std::map<int, double> times;
    return times;
}

// Processor time rather than wall time: the machines these run on are shared,
// and a ratio of two wall times measured seconds apart mostly measures the
// neighbours.
template <typename Body>
double timeLoop (benchmark::State& state, Body&& body)
{
    const std::clock_t start = std::clock();
    for (auto _ : state)
        body();
    const double elapsedNs = 1.0e9 * static_cast<double> (std::clock() - start) / CLOCKS_PER_SEC;
    const double perTransform = elapsedNs / static_cast<double> (state.iterations());
    state.counters["ns/fft"] = perTransform;
    return perTransform;
}

void BM_FftFftw (benchmark::State& state)
{
    const int size = static_cast<int> (state.range (0));
    float* in = fftwf_alloc_real (static_cast<size_t> (size));
    fftwf_complex* out = fftwf_alloc_complex (static_cast<size_t> (size / 2 + 1));
    const fftwf_plan plan = fftwf_plan_dft_r2c_1d (size, in, out, FFTW_MEASURE);
    const std::vector<float> frame = noise (static_cast<size_t> (size));
    std::copy (frame.begin(), frame.end(), in); // after planning, which overwrites the arrays
    state.SetLabel ("FFTW r2c");

    fftwTimes()[size] = timeLoop (state, [&] {
        fftwf_execute (plan);
        benchmark::DoNotOptimize (out);
        benchmark::ClobberMemory();
    });

    fftwf_destroy_plan (plan);
    fftwf_free (out);
    fftwf_free (in);
}

// range (1): the tier, or -1 for the one in use.
void BM_FftFloor (benchmark::State& state)
{
    const int size = static_cast<int> (state.range (0));
    const int tier = static_cast<int> (state.range (1));
    VectorDispatch table = dispatch();
    if (tier >= 0 && ! fillDispatchTable (table, tier))
    {
        state.SkipWithError ("tier not available on this processor");
        return;
    }
    CScopedPtr<CqvrfFFT_If> fft;
    if (table.createFFT (fft.receive(), size, 1, kWindowNone) != kNoError)
    {
        state.SkipWithError ("could not create the FFT");
        return;
    }
    const std::vector<float> frame = noise (static_cast<size_t> (size));
    float* spectrum = table.allocate (size);
    state.SetLabel ((tier < 0 ? "floor, tier in use " : "floor, tier ") + std::to_string (table.tier));

    const double perTransform = timeLoop (state, [&] {
        fft->forward (spectrum, frame.data());
        benchmark::DoNotOptimize (spectrum);
        benchmark::ClobberMemory();
    });
    if (const auto found = fftwTimes().find (size); found != fftwTimes().end())
        state.counters["x_fftw"] = perTransform / found->second;

    table.free (&spectrum);
}

void BM_FftFloorInverse (benchmark::State& state)
{
    const int size = static_cast<int> (state.range (0));
    CScopedPtr<CqvrfFFT_If> fft;
    if (createFFT (fft.receive(), size, 1, kWindowNone) != kNoError)
    {
        state.SkipWithError ("could not create the FFT");
        return;
    }
    std::vector<float> spectrum = noise (static_cast<size_t> (size)), frame (static_cast<size_t> (size));
    state.SetLabel ("floor inverse, tier in use " + std::to_string (getTier()));
    const double perTransform = timeLoop (state, [&] {
        fft->inverse (frame.data(), spectrum.data());
        benchmark::DoNotOptimize (frame.data());
        benchmark::ClobberMemory();
    });
    if (const auto found = fftwTimes().find (size); found != fftwTimes().end())
        state.counters["x_fftw"] = perTransform / found->second;
}

void registerFftBenchmarks()
{
    for (int size = 256; size <= 4096; size *= 2)
    {
        benchmark::RegisterBenchmark (("BM_FftFftw/" + std::to_string (size)).c_str(), BM_FftFftw)->Arg (size);
        benchmark::RegisterBenchmark (("BM_FftFloor/" + std::to_string (size) + "/inUse").c_str(), BM_FftFloor)
            ->Args ({ size, -1 });
        for (int tier : { kTierGeneric, kTierSse2, kTierSse3, kTierSse4 })
            benchmark::RegisterBenchmark (
                ("BM_FftFloor/" + std::to_string (size) + "/tier" + std::to_string (tier)).c_str(), BM_FftFloor)
                ->Args ({ size, tier });
        benchmark::RegisterBenchmark (("BM_FftFloorInverse/" + std::to_string (size)).c_str(), BM_FftFloorInverse)
            ->Arg (size);
    }
}

// Stereo, 512 input frames per call, as a master stretcher feeds it.
void BM_ResampleFloat (benchmark::State& state)
{
    const double outputPerInput = static_cast<double> (state.range (0)) / 100.0;
    const int block = 512;
    CScopedPtr<CResampleBase> converter;
    if (CResampleBase::createInstance (converter.receive(), CResampleBase::kFloat, CResampleBase::kEngineQuality, block,
                                       2, true)
        != kNoError)
    {
        state.SkipWithError ("could not create the converter");
        return;
    }
    const std::vector<float> input = noise (2 * block);
    std::vector<float> output (static_cast<size_t> (2 * converter->getMaxOutputFrames (block, outputPerInput)));
    state.SetLabel ("sinc, quality 3, stereo, output per input " + std::to_string (outputPerInput));
    for (auto _ : state)
    {
        benchmark::DoNotOptimize (converter->process (input.data(), output.data(), outputPerInput, 1.0f, 2, block));
        benchmark::ClobberMemory();
    }
    state.counters["input frames/s"] = benchmark::Counter (static_cast<double> (state.iterations()) * block,
                                                           benchmark::Counter::kIsRate);
    state.counters["x_realtime"] = benchmark::Counter (static_cast<double> (state.iterations()) * block / 44100.0,
                                                       benchmark::Counter::kIsRate);
}

void BM_FastResample (benchmark::State& state)
{
    const double ratio = static_cast<double> (state.range (0)) / 100.0;
    const int block = 512;
    CFastResample converter (2, block, CFastResample::kHermite);
    converter.setRatio (ratio);
    const std::vector<float> left = noise (block), right = noise (block);
    std::vector<float> outLeft (static_cast<size_t> (converter.getMaxOutput (block))), outRight (outLeft.size());
    const float* in[] = { left.data(), right.data() };
    float* out[] = { outLeft.data(), outRight.data() };
    state.SetLabel ("Hermite, stereo, ratio " + std::to_string (ratio));
    for (auto _ : state)
    {
        benchmark::DoNotOptimize (converter.process (in, block, out));
        benchmark::ClobberMemory();
    }
    state.counters["input frames/s"] = benchmark::Counter (static_cast<double> (state.iterations()) * block,
                                                           benchmark::Counter::kIsRate);
    state.counters["x_realtime"] = benchmark::Counter (static_cast<double> (state.iterations()) * block / 44100.0,
                                                       benchmark::Counter::kIsRate);
}

[[maybe_unused]] const int registered = (registerFftBenchmarks(), 0);
} // namespace

BENCHMARK (BM_ResampleFloat)->ArgName ("ratio%")->Arg (80)->Arg (100)->Arg (125);
BENCHMARK (BM_FastResample)->ArgName ("ratio%")->Arg (80)->Arg (125);
