// What the "Efficient V3" engine does to sound, through the offline helper:
// length, pitch, steadiness of partials, and where attacks land.

#include "dsp/MeridexErrors.h"
#include "dsp/MeridexOffline.h"
#include "tests/dsp/support/V3TestSignals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{
using namespace tavrine::dsptest;
using meridex::stretchOffline;

Channels stretched (const Channels& input, double timeFactor, double semitones = 0.0, double formant = 1.0)
{
    Channels out;
    const auto in = pointers (input);
    EXPECT_EQ (stretchOffline (in.data(), static_cast<int> (input.size()), static_cast<int> (input[0].size()), kRate,
                               timeFactor, semitones, formant, out),
               meridex::kNoError);
    return out;
}

TEST (V3OfflineLength, IsExactlyTheRoundedProductForEveryFactor)
{
    const Channels input = noise (10007, 0.3f, 7);
    for (double t : { 0.5, 0.8, 1.0, 3.3 })
        for (double semitones : { 0.0, -7.0, 5.0 })
        {
            const Channels out = stretched (input, t, semitones);
            ASSERT_EQ (out.size(), 2u);
            EXPECT_EQ (static_cast<long long> (out[0].size()), std::llround (t * 10007))
                << "T " << t << " pitch " << semitones;
            EXPECT_EQ (out[0].size(), out[1].size());
        }
}

TEST (V3OfflineLength, RefusesBadFactorsWithLibraryCodes)
{
    const Channels input = noise (1000, 0.3f, 1);
    const auto in = pointers (input);
    Channels out { { 1.0f } };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ (stretchOffline (in.data(), 2, 1000, kRate, 0.0, 0.0, 1.0, out), meridex::kBadArgument);
    EXPECT_TRUE (out.empty());
    EXPECT_EQ (stretchOffline (in.data(), 2, 1000, kRate, nan, 0.0, 1.0, out), meridex::kBadArgument);
    EXPECT_EQ (stretchOffline (in.data(), 2, 1000, kRate, 1.0, 0.0, 0.0, out), meridex::kBadArgument);
    // r = 0.11 * 0.5 lies below the 0.1 the program allows.
    EXPECT_EQ (stretchOffline (in.data(), 2, 1000, kRate, 0.11, -12.0, 1.0, out), meridex::kBelowMinimumFactor);
    EXPECT_EQ (stretchOffline (in.data(), 2, 1000, kRate, 1.0, 48.0, 1.0, out), meridex::kBadArgument);
    EXPECT_EQ (stretchOffline (in.data(), 0, 1000, kRate, 1.0, 0.0, 1.0, out), meridex::kBadChannelCount);
    EXPECT_EQ (stretchOffline (in.data(), 2, 1000, 4000.0, 1.0, 0.0, 1.0, out), meridex::kBadSampleRate);
    EXPECT_EQ (stretchOffline (in.data(), 2, 0, kRate, 2.0, 0.0, 1.0, out), meridex::kNoError);
    ASSERT_EQ (out.size(), 2u);
    EXPECT_TRUE (out[0].empty());
}

// Every partial of a shifted tone moves by the same ratio: the fundamental and
// the third harmonic land within a cent.
TEST (V3Pitch, ShiftOfAHarmonicToneLandsWithinOneCent)
{
    std::vector<std::pair<double, double>> partials;
    for (int h = 1; h <= 6; ++h)
        partials.emplace_back (220.0 * h, 0.3 / h);
    const Channels input = chord (40000, partials, 2);
    for (double semitones : { -7.0, 5.0 })
        for (double t : { 1.0, 1.5 })
        {
            const Channels out = stretched (input, t, semitones);
            const double ratio = std::pow (2.0, semitones / 12.0);
            const size_t from = out[0].size() / 2 - 8192;
            const double fundamental = peakFrequency (out[0], from, 16384, 220.0 * ratio);
            const double third = peakFrequency (out[1], from, 16384, 660.0 * ratio);
            EXPECT_LT (std::fabs (cents (fundamental, 220.0 * ratio)), 1.0) << semitones << " at T " << t;
            EXPECT_LT (std::fabs (cents (third, 660.0 * ratio)), 1.0) << semitones << " at T " << t;
        }
}

// Harmonics of 125 Hz under a resonance at 1 kHz, raised 5 semitones: with
// the formant factor 1 / ratio the loudest partial stays by 1 kHz (h 6), with
// 1 the envelope moves with the pitch (h 8, 1335 Hz).
TEST (V3Pitch, FormantFactorKeepsTheEnvelopeWhereItWas)
{
    std::vector<std::pair<double, double>> partials;
    for (int h = 1; h <= 30; ++h)
        partials.emplace_back (125.0 * h, 0.05 * std::exp (-std::pow ((125.0 * h - 1000.0) / 400.0, 2.0)) + 0.002);
    const Channels input = chord (40000, partials);
    const double ratio = std::pow (2.0, 5.0 / 12.0);
    for (const auto& [formant, loudest] : { std::pair { 1.0 / ratio, 6 }, std::pair { 1.0, 8 } })
    {
        const Channels out = stretched (input, 1.0, 5.0, formant);
        std::vector<double> a;
        for (int h = 1; h <= 20; ++h)
            a.push_back (amplitudeAt (out[0], 16384, 8192, 125.0 * h * ratio));
        EXPECT_EQ (std::max_element (a.begin(), a.end()) - a.begin() + 1, loudest) << formant;
    }
}

// A steady chord stretched stays steady: the amplitude of each partial, read in
// windows across the output, moves by less than 2 % and keeps its level.
TEST (V3Steadiness, StretchedChordKeepsItsPartialsSteady)
{
    const std::vector<std::pair<double, double>> partials {
        { 261.63, 0.15 }, { 329.63, 0.15 }, { 392.0, 0.15 }, { 523.25, 0.1 }
    };
    const Channels input = chord (30000, partials);
    for (double t : { 0.8, 1.25, 2.0, 4.0 })
    {
        const Channels out = stretched (input, t);
        const size_t window = 4096;
        const size_t begin = static_cast<size_t> (4096 * t) + 2048;
        const size_t end = out[0].size() - window - static_cast<size_t> (4096 * t);
        for (const auto& [hz, amplitude] : partials)
        {
            double lo = 1.0e9, hi = 0.0, sum = 0.0;
            int count = 0;
            for (size_t at = begin; at < end; at += 1024)
            {
                const double a = amplitudeAt (out[0], at, window, hz);
                lo = std::min (lo, a);
                hi = std::max (hi, a);
                sum += a;
                ++count;
            }
            ASSERT_GT (count, 3);
            const double mean = sum / count;
            EXPECT_LT ((hi - lo) / mean, 0.02) << hz << " Hz at T " << t;
            EXPECT_NEAR (mean, amplitude, 0.1 * amplitude) << hz << " Hz at T " << t;
        }
    }
}

// Every click lands at T times its input time for 8 s (whole-sample hops
// must not let the timing wander); at T 2 each stays one sharp click with
// nothing audible before it.
TEST (V3Attacks, ClickTrainKeepsItsTimingAndStaysSharp)
{
    const int frames = static_cast<int> (8 * kRate);
    std::vector<int> at;
    for (int click = 3001; click < frames - 4000; click += 20011)
        at.push_back (click);
    const Channels input = clickTrain (frames, at, 0.9f);
    for (double t : { 0.8, 1.25, 2.0 })
    {
        const Channels out = stretched (input, t);
        const auto& y = out[0];
        for (int click : at)
        {
            const long want = std::lround (t * click);
            long best = want - 2000;
            for (long i = want - 2000; i < want + 2000; ++i)
                if (std::fabs (y[static_cast<size_t> (i)]) > std::fabs (y[static_cast<size_t> (best)]))
                    best = i;
            EXPECT_LE (std::labs (best - want), t == 2.0 ? 1 : 2)
                << "T " << t << " click at " << click << " lands " << best - want;
            if (t != 2.0)
                continue;
            double near = 0.0, before = 0.0, total = 0.0;
            for (long i = want - 2000; i < want + 2000; ++i)
            {
                const double e = static_cast<double> (y[static_cast<size_t> (i)]) * y[static_cast<size_t> (i)];
                total += e;
                near += std::labs (i - want) <= 32 ? e : 0.0;
                before += std::labs (i - want) > 32 && i < want ? e : 0.0;
            }
            EXPECT_GT (near / total, 0.8) << "click at " << click << " is smeared";
            EXPECT_LT (before / near, 1.0e-3) << "click at " << click << " has a pre-echo";
            EXPECT_GT (std::fabs (y[static_cast<size_t> (best)]), 0.5) << "click at " << click;
        }
    }
}
} // namespace
