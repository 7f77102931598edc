#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

// Signals and measurements for the V3 engine tests, built in the test.
namespace tavrine::dsptest
{
constexpr double kPi = 3.14159265358979323846;
constexpr double kRate = 44100.0;

using Channels = std::vector<std::vector<float>>;

inline std::vector<const float*> pointers (const Channels& channels)
{
    std::vector<const float*> result;
    for (const auto& c : channels)
        result.push_back (c.data());
    return result;
}

// Sum of sines (frequency in Hz, amplitude), the same in every channel.
inline Channels chord (int frames, const std::vector<std::pair<double, double>>& partials, int channels = 2)
{
    std::vector<float> x (static_cast<size_t> (frames));
    for (int i = 0; i < frames; ++i)
    {
        double v = 0.0;
        for (const auto& [hz, amplitude] : partials)
            v += amplitude * std::sin (2.0 * kPi * hz * i / kRate);
        x[static_cast<size_t> (i)] = static_cast<float> (v);
    }
    return Channels (static_cast<size_t> (channels), x);
}

// A harmonic tone: partials 1 .. count at amplitude 0.3 / h.
inline Channels harmonicTone (int frames, double f0, int count, int channels = 2)
{
    std::vector<std::pair<double, double>> partials;
    for (int h = 1; h <= count; ++h)
        partials.emplace_back (f0 * h, 0.3 / h);
    return chord (frames, partials, channels);
}

// Single-sample clicks of the given height at the given frames.
inline Channels clickTrain (int frames, const std::vector<int>& at, float height, int channels = 2)
{
    std::vector<float> x (static_cast<size_t> (frames), 0.0f);
    for (int i : at)
        x[static_cast<size_t> (i)] = height;
    return Channels (static_cast<size_t> (channels), x);
}

// Plucked notes: decaying harmonic tones starting at the given frames.
inline Channels pluckedNotes (int frames, const std::vector<std::pair<int, double>>& notes, int channels = 2)
{
    std::vector<float> x (static_cast<size_t> (frames), 0.0f);
    for (const auto& [start, f0] : notes)
        for (int i = start; i < frames; ++i)
        {
            const double t = (i - start) / kRate;
            double v = 0.0;
            for (int h = 1; h <= 6; ++h)
                v += 0.2 / h * std::sin (2.0 * kPi * f0 * h * t) * std::exp (-t * (3.0 + h));
            x[static_cast<size_t> (i)] += static_cast<float> (v);
        }
    return Channels (static_cast<size_t> (channels), x);
}

// Seeded uniform noise, independent per channel.
inline Channels noise (int frames, float amplitude, unsigned seed, int channels = 2)
{
    std::mt19937 rng (seed);
    std::uniform_real_distribution<float> dist (-amplitude, amplitude);
    Channels result (static_cast<size_t> (channels), std::vector<float> (static_cast<size_t> (frames)));
    for (auto& c : result)
        for (float& v : c)
            v = dist (rng);
    return result;
}

inline double rms (const std::vector<float>& x, size_t from, size_t to)
{
    double sum = 0.0;
    for (size_t i = from; i < to; ++i)
        sum += static_cast<double> (x[i]) * x[i];
    return to > from ? std::sqrt (sum / static_cast<double> (to - from)) : 0.0;
}

// Amplitude of the component at `hz` in x[from .. from + length): a
// Hann-windowed projection on cosine and sine, scaled so that a sinusoid of
// amplitude A reads A.
inline double amplitudeAt (const std::vector<float>& x, size_t from, size_t length, double hz)
{
    double re = 0.0, im = 0.0, norm = 0.0;
    for (size_t i = 0; i < length; ++i)
    {
        const double w = 0.5 - 0.5 * std::cos (2.0 * kPi * static_cast<double> (i) / static_cast<double> (length));
        const double phase = 2.0 * kPi * hz * static_cast<double> (from + i) / kRate;
        re += w * x[from + i] * std::cos (phase);
        im += w * x[from + i] * std::sin (phase);
        norm += w;
    }
    return 2.0 * std::sqrt (re * re + im * im) / norm;
}

// Frequency of a periodic signal from its upward zero crossings (linear
// interpolation between samples), over x[from .. to).
inline double zeroCrossingFrequency (const std::vector<float>& x, size_t from, size_t to)
{
    double first = -1.0, last = -1.0;
    int periods = 0;
    for (size_t i = from + 1; i < to; ++i)
    {
        if (x[i - 1] < 0.0f && x[i] >= 0.0f)
        {
            const double t = static_cast<double> (i - 1) + (-x[i - 1]) / (x[i] - x[i - 1]);
            if (first < 0.0)
                first = t;
            else
            {
                last = t;
                ++periods;
            }
        }
    }
    return periods > 0 ? periods * kRate / (last - first) : 0.0;
}

// Frequency of the strongest component within 3 % of `guess`: a scan of
// amplitudeAt in quarter-hertz steps, refined by golden-section search.
inline double peakFrequency (const std::vector<float>& x, size_t from, size_t length, double guess)
{
    double best = guess, bestAmplitude = -1.0;
    for (double hz = guess * 0.97; hz <= guess * 1.03; hz += 0.25)
    {
        const double a = amplitudeAt (x, from, length, hz);
        if (a > bestAmplitude)
        {
            bestAmplitude = a;
            best = hz;
        }
    }
    double lo = best - 0.5, hi = best + 0.5;
    const double ratio = 0.6180339887498949;
    for (int i = 0; i < 40; ++i)
    {
        const double a = hi - ratio * (hi - lo);
        const double b = lo + ratio * (hi - lo);
        if (amplitudeAt (x, from, length, a) > amplitudeAt (x, from, length, b))
            hi = b;
        else
            lo = a;
    }
    return 0.5 * (lo + hi);
}

inline double cents (double measured, double wanted)
{
    return 1200.0 * std::log2 (measured / wanted);
}
} // namespace tavrine::dsptest
