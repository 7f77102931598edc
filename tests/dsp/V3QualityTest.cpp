// What the "Efficient V3" engine does to sound, measured through the offline
// helper on signals built here: length, pitch, steadiness of partials, and
// where attacks land.

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
    EXPECT_EQ (stretchOffline (in.data(), static_cast<int> (input.size()), static_cast<int> (input[0].size()), kRate, timeFactor,
                               semitones, formant, out),
               meridex::kNoError);
    return out;
}

TEST (V3OfflineLength, IsExactlyTheRoundedProductForEveryFactor)
{
    const Channels input = noise (10007, 0.3f, 7);
    for (double t : { 0.5, 0.8, 1.0, 1.25, 2.0, 3.3, 4.0 })
        for (double semitones : { 0.0, -7.0, 5.0 })
        {
            const Channels out = stretched (input, t, semitones);
            ASSERT_EQ (out.size(), 2u);
            EXPECT_EQ (static_cast<long long> (out[0].size()), std::llround (t * 10007)) << "T " << t << " pitch " << semitones;
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

TEST (V3OfflineLength, NeutralFactorsGiveTheInputBack)
{
    const Channels input = pluckedNotes (12000, { { 100, 196.0 }, { 6000, 293.7 } });
    const Channels out = stretched (input, 1.0);
    for (size_t c = 0; c < 2; ++c)
        for (size_t i = 0; i < input[c].size(); ++i)
            ASSERT_NEAR (out[c][i], input[c][i], 1.0e-5f) << "channel " << c << " frame " << i;
}

// Every partial of a shifted tone moves by the same ratio: the fundamental and
// the third harmonic land within a cent.
TEST (V3Pitch, ShiftOfAHarmonicToneLandsWithinOneCent)
{
    const Channels input = harmonicTone (40000, 220.0, 6);
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

// A steady chord stretched stays steady: the amplitude of each partial, read in
// windows across the output, moves by less than 2 % and keeps its level.
TEST (V3Steadiness, StretchedChordKeepsItsPartialsSteady)
{
    const std::vector<std::pair<double, double>> partials { { 261.63, 0.15 }, { 329.63, 0.15 }, { 392.0, 0.15 }, { 523.25, 0.1 } };
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

// Noise keeps its level. Frames of noise overlap without correlation, so the
// overlap-add, exact for tones, loses up to about 2 dB on noise; a pitch rise
// also leaves out what lies above (rate / 2) / pitch.
TEST (V3Steadiness, NoiseKeepsItsLevel)
{
    const Channels input = noise (30000, 0.3f, 11);
    const double level = rms (input[0], 0, input[0].size());
    for (double t : { 0.8, 2.0 })
        for (double semitones : { 0.0, 5.0 })
        {
            const Channels out = stretched (input, t, semitones);
            const double bandLossDb = semitones > 0.0 ? -10.0 * std::log10 (std::pow (2.0, semitones / 12.0)) : 0.0;
            const double measured = rms (out[0], out[0].size() / 5, out[0].size() * 4 / 5);
            const double lossDb = 20.0 * std::log10 (measured / level) - bandLossDb;
            EXPECT_LT (lossDb, 0.5) << "T " << t << " pitch " << semitones;
            EXPECT_GT (lossDb, -2.5) << "T " << t << " pitch " << semitones;
        }
}

// A click train stretched by 2: each click stays one sharp click at twice its
// time, with nothing audible before it.
TEST (V3Attacks, ClickTrainStretchedByTwoStaysOneSharpClickPerClick)
{
    const std::vector<int> at { 5000, 17111, 29357, 41000, 52980 };
    const Channels input = clickTrain (60000, at, 0.9f);
    const Channels out = stretched (input, 2.0);
    for (int click : at)
    {
        const auto& y = out[0];
        const long want = 2L * click;
        long best = want - 2000;
        for (long i = want - 2000; i < want + 2000; ++i)
            if (std::fabs (y[static_cast<size_t> (i)]) > std::fabs (y[static_cast<size_t> (best)]))
                best = i;
        EXPECT_LE (std::labs (best - want), 1) << "click at " << click;

        double near = 0.0, before = 0.0, total = 0.0;
        for (long i = want - 2000; i < want + 2000; ++i)
        {
            const double e = static_cast<double> (y[static_cast<size_t> (i)]) * y[static_cast<size_t> (i)];
            total += e;
            if (std::labs (i - want) <= 32)
                near += e;
            else if (i < want)
                before += e;
        }
        EXPECT_GT (near / total, 0.8) << "click at " << click << " is smeared";
        EXPECT_LT (before / near, 1.0e-3) << "click at " << click << " has a pre-echo";
        EXPECT_GT (std::fabs (y[static_cast<size_t> (best)]), 0.5) << "click at " << click;
    }
}

// A tempo-locked loop needs every event at T times its input time for the
// whole file: hops that are whole numbers of samples must not let the timing
// wander as the frames add up, whatever T is.
TEST (V3Attacks, ClickTrainKeepsItsTimingOverEightSeconds)
{
    const int frames = static_cast<int> (8 * kRate);
    std::vector<int> at;
    for (int click = 3001; click < frames - 4000; click += 20011)
        at.push_back (click);
    const Channels input = clickTrain (frames, at, 0.9f);
    for (double t : { 0.8, 1.25 })
    {
        const Channels out = stretched (input, t);
        const auto& y = out[0];
        long worst = 0;
        for (int click : at)
        {
            const long want = std::lround (t * click);
            long best = want - 2000;
            for (long i = want - 2000; i < want + 2000; ++i)
                if (std::fabs (y[static_cast<size_t> (i)]) > std::fabs (y[static_cast<size_t> (best)]))
                    best = i;
            EXPECT_LE (std::labs (best - want), 2) << "T " << t << " click at " << click << " lands " << best - want;
            worst = std::max (worst, std::labs (best - want));
        }
        RecordProperty (t < 1.0 ? "worstOffsetT0_8" : "worstOffsetT1_25", static_cast<int> (worst));
    }
}

// Plucked notes keep their onsets at the stretched times (within a few
// milliseconds: the attack is placed by its largest sample, a little after
// the onset), with nothing above -34 dB before them.
TEST (V3Attacks, PluckedOnsetsLandWithoutPreEcho)
{
    const Channels input = pluckedNotes (30000, { { 8000, 196.0 }, { 20000, 261.6 } });
    for (double t : { 0.8, 1.25, 2.0 })
    {
        const Channels out = stretched (input, t);
        const size_t onset = static_cast<size_t> (8000 * t);
        const double before = rms (out[0], onset - 1500, onset - 250);
        const double after = rms (out[0], onset + 250, onset + 1750);
        EXPECT_LT (before, 0.02 * after) << "T " << t;
        EXPECT_GT (after, 0.5 * rms (input[0], 8250, 9750)) << "T " << t;

        // The second note starts over the first one's tail: the rise is
        // where it belongs, not before.
        const size_t second = static_cast<size_t> (20000 * t);
        EXPECT_GT (rms (out[0], second + 250, second + 1250), 1.5 * rms (out[0], second - 1250, second - 250)) << "T " << t;
    }
}
} // namespace
