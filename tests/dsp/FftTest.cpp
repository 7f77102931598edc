#include "dsp/floor/CScopedPtr.h"
#include "dsp/floor/CqvrfFFT_If.h"
#include "dsp/floor/FftWindows.h"
#include "dsp/floor/VectorDispatch.h"
#include "tests/dsp/support/V3TestSignals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <tuple>
#include <vector>

namespace
{
using namespace meridex;
using tavrine::dsptest::kPi;
using tavrine::dsptest::noiseSamples;
using tavrine::dsptest::referenceFft;

const int kAllTiers[] = { kTierGeneric, kTierSse2, kTierSse3, kTierSse4 };

// The complex spectrum of a real frame in double: an iterative radix-2
// transform, itself checked against the direct sum below.
std::vector<std::complex<double>> referenceSpectrum (const std::vector<float>& x)
{
    std::vector<std::complex<double>> a (x.begin(), x.end());
    referenceFft (a, false);
    return a;
}

std::vector<double> pack (const std::vector<std::complex<double>>& spectrum)
{
    const size_t n = spectrum.size();
    std::vector<double> packed (n);
    packed[0] = spectrum[0].real();
    packed[1] = spectrum[n / 2].real();
    for (size_t k = 1; k < n / 2; ++k)
    {
        packed[2 * k] = spectrum[k].real();
        packed[2 * k + 1] = spectrum[k].imag();
    }
    return packed;
}

// Root-mean-square of (got - want) over that of want.
template <typename A, typename B>
double relativeError (const A& got, const B& want)
{
    double error = 0.0, energy = 0.0;
    for (size_t i = 0; i < want.size(); ++i)
    {
        const double d = static_cast<double> (got[i]) - static_cast<double> (want[i]);
        error += d * d;
        energy += static_cast<double> (want[i]) * static_cast<double> (want[i]);
    }
    return std::sqrt (error / energy);
}

CScopedPtr<CqvrfFFT_If> makeFft (const VectorDispatch& table, int frameSize, int zeroPadFactor, int window)
{
    CScopedPtr<CqvrfFFT_If> fft;
    EXPECT_EQ (table.createFFT (fft.receive(), frameSize, zeroPadFactor, window), kNoError);
    return fft;
}

class FftEveryTierAndSize : public ::testing::TestWithParam<std::tuple<int, int>>
{};

TEST_P (FftEveryTierAndSize, MatchesTheReferenceAndInverseGivesTheFrameTimesTheSize)
{
    const int tier = std::get<0> (GetParam());
    const int size = 1 << std::get<1> (GetParam());
    VectorDispatch table;
    if (! fillDispatchTable (table, tier))
        GTEST_SKIP() << "tier " << tier << " does not run here";

    auto fft = makeFft (table, size, 1, kWindowNone);
    ASSERT_TRUE (fft);
    ASSERT_EQ (fft->getFftSize(), size);

    const std::vector<float> frame = noiseSamples (size, static_cast<unsigned> (size + tier));
    std::vector<float> spectrum (static_cast<size_t> (size)), back (static_cast<size_t> (size));
    fft->forward (spectrum.data(), frame.data());
    EXPECT_LT (relativeError (spectrum, pack (referenceSpectrum (frame))), 2.0e-6);

    fft->inverse (back.data(), spectrum.data());
    std::vector<double> scaled (frame.begin(), frame.end());
    for (double& v : scaled)
        v *= size;
    EXPECT_LT (relativeError (back, scaled), 2.0e-6);

    // In place gives the same as out of place.
    std::vector<float> inPlace = frame;
    fft->forward (inPlace.data(), inPlace.data());
    EXPECT_EQ (inPlace, spectrum);
    fft->inverse (inPlace.data(), inPlace.data());
    EXPECT_EQ (inPlace, back);
}

INSTANTIATE_TEST_SUITE_P (Floor, FftEveryTierAndSize,
                          ::testing::Combine (::testing::ValuesIn (kAllTiers), ::testing::Range (6, 17)));

// The direct sum, packed with DC and Nyquist first, pins the reference the
// floor is read against: a swapped DC and Nyquist or a conjugated bin fails.
TEST (Fft, ReferenceAgreesWithTheDirectSum)
{
    for (int size : { 64, 512 })
    {
        const std::vector<float> frame = noiseSamples (size, 7u);
        std::vector<std::complex<double>> bins (static_cast<size_t> (size));
        for (int k = 0; k <= size / 2; ++k)
            for (int j = 0; j < size; ++j)
                bins[static_cast<size_t> (k)] += static_cast<double> (frame[static_cast<size_t> (j)])
                                                 * std::polar (1.0, -2.0 * kPi * j * k / size);
        const std::vector<double> direct = pack (bins);
        EXPECT_LT (relativeError (pack (referenceSpectrum (frame)), direct), 1.0e-12) << size;
    }
}

TEST (Fft, ForwardWindowsAndZeroPadsTheFrame)
{
    const int frameSize = 128, padding = 4, n = frameSize * padding;
    const std::vector<float> frame = noiseSamples (frameSize, 3u);
    std::vector<float> spectrum (n);

    for (int type = kWindowNone; type < kWindowTypeCount; ++type)
    {
        CScopedPtr<CqvrfFFT_If> fft;
        ASSERT_EQ (createFFT (fft.receive(), frameSize, padding, type), kNoError);
        ASSERT_EQ (fft->getFftSize(), n);

        std::vector<float> window (frameSize, 1.0f);
        fillWindow (window.data(), frameSize, type);
        std::vector<float> padded (n, 0.0f);
        for (int i = 0; i < frameSize; ++i)
            padded[static_cast<size_t> (i)] = frame[static_cast<size_t> (i)] * window[static_cast<size_t> (i)];

        // Stale values in the work area must not leak into the padding.
        std::vector<float> junk = noiseSamples (n, 11u);
        fft->forward (spectrum.data(), junk.data());
        fft->forward (spectrum.data(), frame.data());

        if (type == kWindowZeros)
        {
            for (float v : spectrum)
                ASSERT_EQ (v, 0.0f);
            continue;
        }
        EXPECT_LT (relativeError (spectrum, pack (referenceSpectrum (padded))), 2.0e-6) << "window " << type;
    }
}

TEST (Fft, InitRefusesSizesAndWindowsOutsideTheRange)
{
    CScopedPtr<CqvrfFFT_If> fft;
    // Too small, too large, not a power of two, no padding, unknown window,
    // and a size whose product overflows int.
    for (const auto& [frameSize, padding, window] : { std::tuple { 32, 1, 0 },
                                                      { 65536, 2, 0 },
                                                      { 96, 1, 0 },
                                                      { 64, 0, 0 },
                                                      { 64, 1, kWindowTypeCount },
                                                      { 1 << 20, 1 << 20, 0 } })
    {
        EXPECT_EQ (createFFT (fft.receive(), frameSize, padding, window), kBadArgument)
            << frameSize << " x " << padding;
        EXPECT_FALSE (fft);
    }

    // A failed init empties the FFT; calls are then ignored.
    ASSERT_EQ (createFFT (fft.receive(), 64, 1, kWindowHann), kNoError);
    EXPECT_EQ (fft->init (100, 1, kWindowNone), kBadArgument);
    EXPECT_EQ (fft->getFftSize(), 0);
    std::vector<float> x (64, 1.0f), y (64, 42.0f);
    fft->forward (y.data(), x.data());
    EXPECT_EQ (y[0], 42.0f);
}

TEST (FftWindows, ShapesAreSymmetricWithTheirKnownValues)
{
    const int n = 1024;
    std::vector<float> w (n);
    struct Expectation
    {
        int type;
        float atZero, atQuarter, atHalf;
    };
    const Expectation expected[] = {
        { kWindowSine, 0.0f, 0.70710678f, 1.0f },      { kWindowHann, 0.0f, 0.5f, 1.0f },
        { kWindowHamming, 0.08f, 0.54f, 1.0f },        { kWindowBlackman, 0.0f, 0.34f, 1.0f },
        { kWindowTriangleSquared, 0.0f, 0.25f, 1.0f }, { kWindowZeros, 0.0f, 0.0f, 0.0f },
    };
    for (const Expectation& e : expected)
    {
        fillWindow (w.data(), n, e.type);
        EXPECT_NEAR (w[0], e.atZero, 1.0e-6f) << e.type;
        EXPECT_NEAR (w[n / 4], e.atQuarter, 1.0e-6f) << e.type;
        EXPECT_NEAR (w[n / 2], e.atHalf, 1.0e-6f) << e.type;
        for (int i = 1; i < n; ++i)
            ASSERT_NEAR (w[static_cast<size_t> (i)], w[static_cast<size_t> (n - i)], 1.0e-6f) << e.type << " at " << i;
    }

    // Periodic Hann overlap-adds to one at half a frame.
    fillWindow (w.data(), n, kWindowHann);
    for (int i = 0; i < n / 2; ++i)
        ASSERT_NEAR (w[static_cast<size_t> (i)] + w[static_cast<size_t> (i + n / 2)], 1.0f, 1.0e-6f);
}
} // namespace
