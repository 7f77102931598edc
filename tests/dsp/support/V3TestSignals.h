#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <random>
#include <vector>

// Signals and measurements for the library's tests, built in the test.
namespace tavrine::dsptest
{
constexpr double kPi = 3.14159265358979323846;

// Radix-2 transform in double, in place (size a power of two); the inverse
// is unscaled. FftTest checks it against the direct sum.
inline void referenceFft (std::vector<std::complex<double>>& a, bool inverse)
{
    const size_t n = a.size();
    for (size_t i = 1, j = 0; i < n; ++i)
    {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap (a[i], a[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1)
    {
        const double angle = (inverse ? 2.0 : -2.0) * kPi / static_cast<double> (len);
        for (size_t start = 0; start < n; start += len)
            for (size_t k = 0; k < len / 2; ++k)
            {
                const std::complex<double> w (std::cos (angle * static_cast<double> (k)),
                                              std::sin (angle * static_cast<double> (k)));
                const std::complex<double> u = a[start + k], v = a[start + k + len / 2] * w;
                a[start + k] = u + v;
                a[start + k + len / 2] = u - v;
            }
    }
}
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

// Single-sample clicks of the given height at the given frames.
inline Channels clickTrain (int frames, const std::vector<int>& at, float height, int channels = 2)
{
    std::vector<float> x (static_cast<size_t> (frames), 0.0f);
    for (int i : at)
        x[static_cast<size_t> (i)] = height;
    return Channels (static_cast<size_t> (channels), x);
}

// Seeded uniform noise in [low, high), one channel.
inline std::vector<float> noiseSamples (int n, unsigned seed, float low = -1.0f, float high = 1.0f)
{
    std::mt19937 rng (seed);
    std::uniform_real_distribution<float> dist (low, high);
    std::vector<float> x (static_cast<size_t> (n));
    for (float& v : x)
        v = dist (rng);
    return x;
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

// Events are hits, notes or vowels, [start, end) in frames, with a note's
// frequency; bursts are the voice's consonants.
struct Segment
{
    int start = 0;
    int end = 0;
    double hz = 0.0;
};

struct Material
{
    Channels audio;
    std::vector<Segment> events;
    std::vector<Segment> bursts;
};

inline int secondsToFrames (double seconds)
{
    return static_cast<int> (std::lround (seconds * kRate));
}

// Two-pole resonator with unit gain at DC, as a formant of a voice.
struct Resonator
{
    double a1 = 0.0, a2 = 0.0, y1 = 0.0, y2 = 0.0;

    void set (double hz, double bandwidthHz)
    {
        const double r = std::exp (-kPi * bandwidthHz / kRate);
        a1 = 2.0 * r * std::cos (2.0 * kPi * hz / kRate);
        a2 = -r * r;
    }

    double process (double x)
    {
        const double y = (1.0 - a1 - a2) * x + a1 * y1 + a2 * y2;
        y2 = y1;
        y1 = y;
        return y;
    }
};

// Kick, snare and hat every 250 ms from 50 ms (tails 50 dB down by the next
// hit); the sides differ in level and noise.
inline Material drumLoop()
{
    enum
    {
        kick,
        snare,
        hat
    };
    const int pattern[] = { kick, hat, snare, kick, kick, hat, snare, hat };
    Material m;
    m.audio.assign (2, std::vector<float> (static_cast<size_t> (secondsToFrames (2.1)), 0.0f));
    for (int step = 0; step < 8; ++step)
    {
        const int start = secondsToFrames (0.05 + step * 0.25);
        m.events.push_back ({ start, start + secondsToFrames (0.25), 0.0 });
        for (int c = 0; c < 2; ++c)
        {
            std::mt19937 rng (static_cast<unsigned> (100 * step + c));
            std::uniform_real_distribution<double> white (-1.0, 1.0);
            double phase = 0.0, previous = 0.0;
            for (int i = 0; i < secondsToFrames (0.5) && start + i < secondsToFrames (2.1); ++i)
            {
                const double t = i / kRate, w = white (rng);
                double v = 0.0;
                if (pattern[step] == kick)
                {
                    phase += 2.0 * kPi * (50.0 + 100.0 * std::exp (-t / 0.03)) / kRate;
                    v = 0.8 * std::sin (phase) * std::exp (-t / 0.04);
                }
                else if (pattern[step] == snare)
                    v = (c == 0 ? 0.6 : 0.45)
                        * (0.6 * w * std::exp (-t / 0.035)
                           + 0.5 * std::sin (2.0 * kPi * 190.0 * t) * std::exp (-t / 0.04));
                else
                    v = (c == 0 ? 0.25 : 0.4) * (w - previous) * std::exp (-t / 0.012);
                previous = w;
                m.audio[static_cast<size_t> (c)][static_cast<size_t> (start + i)] += static_cast<float> (v);
            }
        }
    }
    return m;
}

// Legato bass line E1 G1 A1 D2 B1, 0.4 s a note, 8 ms glides, accented;
// band-limited sawtooth rolled off above 300 Hz, the same on both sides.
inline Material bassLine()
{
    const double notes[] = { 41.20, 49.00, 55.00, 73.42, 61.74 };
    Material m;
    std::vector<float> x (static_cast<size_t> (secondsToFrames (2.1)), 0.0f);
    double phase = 0.0, hz = notes[0];
    for (int n = 0; n < 5; ++n)
    {
        const int start = secondsToFrames (0.05 + 0.4 * n), end = start + secondsToFrames (0.4);
        m.events.push_back ({ start, end, notes[n] });
        for (int i = start; i < end; ++i)
        {
            const double t = (i - start) / kRate;
            hz += (notes[n] - hz) * std::min (1.0, 1.0 / (0.008 * kRate));
            phase = std::fmod (phase + 2.0 * kPi * hz / kRate, 2.0 * kPi);
            double v = 0.0;
            for (int h = 1; h * hz < 4000.0; ++h)
                v += std::sin (h * phase) / (h * (1.0 + (h * hz / 300.0) * (h * hz / 300.0)));
            const double fade = std::min (
                { 1.0, (i - secondsToFrames (0.05)) / (0.005 * kRate), (secondsToFrames (2.05) - i) / (0.02 * kRate) });
            x[static_cast<size_t> (i)] = static_cast<float> (0.45 * v * fade * (0.65 + 0.35 * std::exp (-t / 0.08)));
        }
    }
    m.audio.assign (2, x);
    return m;
}

// Pad A2 E3 C#4 over 2 s, two voices per note 4 cents apart, one leaning
// left and one right, so the sides differ and each side beats slowly.
inline Material chordPad()
{
    const double notes[] = { 110.0, 164.81, 277.18 };
    Material m;
    const int frames = secondsToFrames (2.0);
    m.audio.assign (2, std::vector<float> (static_cast<size_t> (frames), 0.0f));
    std::mt19937 rng (5);
    std::uniform_real_distribution<double> angle (0.0, 2.0 * kPi);
    for (double note : notes)
    {
        m.events.push_back ({ secondsToFrames (0.5), secondsToFrames (1.85), note });
        for (int voice = 0; voice < 2; ++voice)
        {
            const double hz = note * std::pow (2.0, (voice == 0 ? -2.0 : 2.0) / 1200.0);
            double start[5];
            for (double& s : start)
                s = angle (rng);
            for (int i = 0; i < frames; ++i)
            {
                const double t = i / kRate;
                const double shape = std::min (
                    { 1.0, 0.5 - 0.5 * std::cos (kPi * std::min (1.0, t / 0.4)), (2.0 - t) / 0.1 });
                double v = 0.0;
                for (int h = 1; h <= 4; ++h)
                    v += std::sin (2.0 * kPi * h * hz * t + start[h]) / h;
                for (int c = 0; c < 2; ++c)
                    m.audio[static_cast<size_t> (c)][static_cast<size_t> (i)] += static_cast<float> (
                        (c == voice ? 0.8 : 0.2) * 0.12 * shape * v);
            }
        }
    }
    return m;
}

// Intonation of the voice below: 100 Hz rising to 180 Hz at 1 s and back.
inline double speechPitchHz (double seconds)
{
    return 140.0 - 40.0 * std::cos (kPi * seconds);
}

// Seven 280 ms syllables: 50 ms of hiss round 4.5 kHz, a 190 ms vowel (a, i,
// u in turn, four formants), 40 ms of silence; the same on both sides.
inline Material speechLike()
{
    const double formants[3][4] = { { 730, 1090, 2440, 3400 }, { 270, 2290, 3010, 3700 }, { 300, 870, 2240, 3400 } };
    const double bandwidths[4] = { 80, 100, 140, 200 };
    Material m;
    std::vector<double> voiced (static_cast<size_t> (secondsToFrames (2.0)), 0.0), unvoiced (voiced);
    Resonator tract[4], hiss;
    hiss.set (4500.0, 2000.0);
    std::mt19937 rng (9);
    std::uniform_real_distribution<double> white (-1.0, 1.0);
    double phase = 0.0, previousFlow = 0.0, previousHiss = 0.0;
    for (int s = 0; s < 7; ++s)
    {
        const int burst = secondsToFrames (0.02 + 0.28 * s), vowel = burst + secondsToFrames (0.05),
                  end = vowel + secondsToFrames (0.19);
        m.bursts.push_back ({ burst, vowel, 0.0 });
        m.events.push_back ({ vowel, end, 0.0 });
        for (int f = 0; f < 4; ++f)
            tract[f].set (formants[s % 3][f], bandwidths[f]);
        for (int i = burst; i < end; ++i)
        {
            if (i < vowel)
            {
                const double h = hiss.process (white (rng));
                unvoiced[static_cast<size_t> (i)] = (h - previousHiss) * std::sin (kPi * (i - burst) / (vowel - burst));
                previousHiss = h;
            }
            phase = std::fmod (phase + speechPitchHz (i / kRate) / kRate, 1.0);
            // Glottal flow: opens over 40 % of the period, closes over 20 %.
            const double flow = phase < 0.4 ? 0.5 - 0.5 * std::cos (kPi * phase / 0.4)
                                            : (phase < 0.6 ? std::cos (kPi * (phase - 0.4) / 0.4) : 0.0);
            double y = i < vowel
                           ? 0.0
                           : (flow - previousFlow) * std::min (1.0, std::min (i - vowel, end - i) / (0.02 * kRate));
            previousFlow = flow;
            for (Resonator& r : tract)
                y = r.process (y);
            voiced[static_cast<size_t> (i)] = y;
        }
    }
    // Vowels peak at 0.6, consonants at 0.2.
    auto peak = [] (const std::vector<double>& v) {
        return std::max (*std::max_element (v.begin(), v.end()), -*std::min_element (v.begin(), v.end()));
    };
    const double voicedGain = 0.6 / peak (voiced), unvoicedGain = 0.2 / peak (unvoiced);
    std::vector<float> x (voiced.size());
    for (size_t i = 0; i < x.size(); ++i)
        x[i] = static_cast<float> (voicedGain * voiced[i] + unvoicedGain * unvoiced[i]);
    m.audio.assign (2, x);
    return m;
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
