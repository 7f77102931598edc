#include "dsp/floor/CScopedPtr.h"
#include "dsp/floor/CqvrfFFT_If.h"
#include "dsp/floor/FftWindows.h"
#include "dsp/floor/VectorDispatch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace
{
using namespace meridex;

constexpr double kPi = 3.141592653589793238463;
const int kAllTiers[] = { kTierGeneric, kTierSse2, kTierSse3, kTierSse4 };

std::vector<float> noise (int n, unsigned seed)
{
    std::mt19937 rng (seed);
    std::uniform_real_distribution<float> dist (-1.0f, 1.0f);
    std::vector<float> x (static_cast<size_t> (n));
    for (float& v : x)
        v = dist (rng);
    return x;
}

// The complex spectrum of a real frame in double: an iterative radix-2
// transform, itself checked against the direct sum in NaiveDft below.
std::vector<std::complex<double>> referenceSpectrum (const std::vector<float>& x)
{
    const size_t n = x.size();
    std::vector<std::complex<double>> a (x.begin(), x.end());
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
        const double angle = -2.0 * kPi / static_cast<double> (len);
        for (size_t start = 0; start < n; start += len)
            for (size_t k = 0; k < len / 2; ++k)
            {
                const std::complex<double> w (std::cos (angle * k), std::sin (angle * k));
                const std::complex<double> u = a[start + k], v = a[start + k + len / 2] * w;
                a[start + k] = u + v;
                a[start + k + len / 2] = u - v;
            }
    }
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
{
};

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

    const std::vector<float> frame = noise (size, static_cast<unsigned> (size + tier));
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
                          ::testing::Combine (::testing::ValuesIn (kAllTiers), ::testing::Range (6, 17)),
                          [] (const ::testing::TestParamInfo<std::tuple<int, int>>& test) {
                              return "tier" + std::to_string (std::get<0> (test.param)) + "_size"
                                     + std::to_string (1 << std::get<1> (test.param));
                          });

TEST (Fft, ReferenceAndFloorAgreeWithTheDirectSumAtSmallSizes)
{
    for (int size : { 64, 128, 512 })
    {
        const std::vector<float> frame = noise (size, 7u);
        std::vector<double> direct (static_cast<size_t> (size));
        for (int k = 0; k <= size / 2; ++k)
        {
            double re = 0.0, im = 0.0;
            for (int j = 0; j < size; ++j)
            {
                re += frame[static_cast<size_t> (j)] * std::cos (2.0 * kPi * j * k / size);
                im -= frame[static_cast<size_t> (j)] * std::sin (2.0 * kPi * j * k / size);
            }
            if (k == 0)
                direct[0] = re;
            else if (k == size / 2)
                direct[1] = re;
            else
            {
                direct[static_cast<size_t> (2 * k)] = re;
                direct[static_cast<size_t> (2 * k + 1)] = im;
            }
        }
        EXPECT_LT (relativeError (pack (referenceSpectrum (frame)), direct), 1.0e-12) << size;

        CScopedPtr<CqvrfFFT_If> fft;
        ASSERT_EQ (createFFT (fft.receive(), size, 1, kWindowNone), kNoError);
        std::vector<float> spectrum (static_cast<size_t> (size));
        fft->forward (spectrum.data(), frame.data());
        EXPECT_LT (relativeError (spectrum, direct), 2.0e-6) << size;
    }
}

TEST (Fft, PackedLayoutPutsDcAndNyquistFirstThenBinPairs)
{
    const int n = 256;
    CScopedPtr<CqvrfFFT_If> fft;
    ASSERT_EQ (createFFT (fft.receive(), n, 1, kWindowNone), kNoError);
    std::vector<float> x (n), X (n);

    auto expectOnly = [&] (std::vector<std::pair<int, float>> expected, const char* what) {
        for (int i = 0; i < n; ++i)
        {
            float want = 0.0f;
            for (auto& e : expected)
                if (e.first == i)
                    want = e.second;
            EXPECT_NEAR (X[static_cast<size_t> (i)], want, 2.0e-3f) << what << " at " << i;
        }
    };

    for (int i = 0; i < n; ++i)
        x[static_cast<size_t> (i)] = 0.5f;
    fft->forward (X.data(), x.data());
    expectOnly ({ { 0, 0.5f * n } }, "constant");

    for (int i = 0; i < n; ++i)
        x[static_cast<size_t> (i)] = (i % 2 == 0) ? 1.0f : -1.0f;
    fft->forward (X.data(), x.data());
    expectOnly ({ { 1, static_cast<float> (n) } }, "alternating");

    // cos at bin 5 is real, +n/2; sin at bin 9 is imaginary, -n/2 (X[k] is the
    // sum of x[j] e^(-2 pi i j k / n)).
    for (int i = 0; i < n; ++i)
        x[static_cast<size_t> (i)] = static_cast<float> (std::cos (2.0 * kPi * 5 * i / n) + std::sin (2.0 * kPi * 9 * i / n));
    fft->forward (X.data(), x.data());
    expectOnly ({ { 10, 0.5f * n }, { 19, -0.5f * n } }, "cos + sin");
}

TEST (Fft, ForwardWindowsAndZeroPadsTheFrame)
{
    const int frameSize = 128, padding = 4, n = frameSize * padding;
    const std::vector<float> frame = noise (frameSize, 3u);
    std::vector<float> spectrum (n);

    for (int type = kWindowNone; type < kWindowTypeCount; ++type)
    {
        CScopedPtr<CqvrfFFT_If> fft;
        ASSERT_EQ (createFFT (fft.receive(), frameSize, padding, type), kNoError);
        ASSERT_EQ (fft->getFrameSize(), frameSize);
        ASSERT_EQ (fft->getFftSize(), n);

        std::vector<float> window (frameSize, 1.0f);
        fillWindow (window.data(), frameSize, type);
        std::vector<float> padded (n, 0.0f);
        for (int i = 0; i < frameSize; ++i)
            padded[static_cast<size_t> (i)] = frame[static_cast<size_t> (i)] * window[static_cast<size_t> (i)];

        // Stale values in the work area must not leak into the padding.
        std::vector<float> junk = noise (n, 11u);
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
    EXPECT_EQ (createFFT (fft.receive(), 32, 1, kWindowNone), kBadArgument);
    EXPECT_FALSE (fft);
    EXPECT_EQ (createFFT (fft.receive(), 65536, 2, kWindowNone), kBadArgument);
    EXPECT_EQ (createFFT (fft.receive(), 96, 1, kWindowNone), kBadArgument);
    EXPECT_EQ (createFFT (fft.receive(), 64, 0, kWindowNone), kBadArgument);
    EXPECT_EQ (createFFT (fft.receive(), 64, 1, kWindowTypeCount), kBadArgument);
    EXPECT_EQ (createFFT (fft.receive(), 1 << 20, 1 << 20, kWindowNone), kBadArgument); // product overflows int
    EXPECT_FALSE (fft);

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
        { kWindowNone, 1.0f, 1.0f, 1.0f },
        { kWindowSine, 0.0f, 0.70710678f, 1.0f },
        { kWindowHann, 0.0f, 0.5f, 1.0f },
        { kWindowHamming, 0.08f, 0.54f, 1.0f },
        { kWindowBlackman, 0.0f, 0.34f, 1.0f },
        { kWindowTriangle, 0.0f, 0.5f, 1.0f },
        { kWindowTriangleSquared, 0.0f, 0.25f, 1.0f },
        { kWindowZeros, 0.0f, 0.0f, 0.0f },
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
