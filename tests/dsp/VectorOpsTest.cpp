#include "dsp/floor/AlignedMemory.h"
#include "dsp/floor/CScopedPtr.h"
#include "dsp/floor/CTBuffer.h"
#include "dsp/floor/CqvrfCcf_If.h"
#include "dsp/floor/VectorDispatch.h"
#include "tests/dsp/support/V3TestSignals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace
{
using namespace meridex;
using tavrine::dsptest::noiseSamples;

constexpr float kPi = 3.14159265358979f;
const int kAllTiers[] = { kTierGeneric, kTierSse2, kTierSse3, kTierSse4 };
// Lengths that leave every possible tail after the groups of four.
const int kLengths[] = { 0, 1, 3, 4, 5, 6, 7, 8, 33 };

TEST (TierSelection, FollowsTheProcessorFlagsUnderAMaximum)
{
    CpuFeatures none, sseOnly, sse2, sse3, sse42;
    sseOnly.sse = true;
    sse2 = sseOnly;
    sse2.sse2 = true;
    sse3 = sse2;
    sse3.sse3 = true;
    sse42 = sse3;
    sse42.sse42 = true;

    EXPECT_EQ (tierForFeatures (none, -1), kTierGeneric);
    EXPECT_EQ (tierForFeatures (sseOnly, -1), kTierGeneric); // SSE without SSE2 buys nothing
    EXPECT_EQ (tierForFeatures (sse2, -1), kTierSse2);
    EXPECT_EQ (tierForFeatures (sse3, -1), kTierSse3);
    EXPECT_EQ (tierForFeatures (sse42, -1), kTierSse4);
    EXPECT_EQ (tierForFeatures (sse42, 4), kTierSse3);
    EXPECT_EQ (tierForFeatures (sse42, 2), kTierGeneric);

    EXPECT_EQ (selectTier (-1), tierForFeatures (readCpuFeatures(), -1));
    EXPECT_TRUE (dispatch().filled && isTierAvailable (getTier()));
}

TEST (CTBuffer, RowsAreAlignedZeroedAndSurviveReordering)
{
    EXPECT_EQ (allocateArray<float> (0), nullptr);
    CTBuffer<float> buffer (4, 13);
    ASSERT_EQ (buffer.getErrorCode(), kNoError);
    for (int r = 0; r < 4; ++r)
    {
        EXPECT_EQ (reinterpret_cast<std::uintptr_t> (buffer[r]) % kMemoryAlignment, 0u);
        for (int c = 0; c < 13; ++c)
            ASSERT_EQ (buffer[r][c], 0.0f);
        buffer[r][0] = static_cast<float> (r);
    }

    // A history ring: the oldest (last) row comes to the front.
    buffer.rotateRows();
    EXPECT_EQ (buffer[0][0], 3.0f);
    EXPECT_EQ (buffer[1][0], 0.0f);
    EXPECT_EQ (buffer[3][0], 2.0f);

    // Freeing after a reorder releases each row once (under ASan).
    ASSERT_EQ (buffer.init (2, 5), kNoError);
    EXPECT_EQ (buffer[1][4], 0.0f);
    buffer.rotateRows();
    buffer.resetRowOrder();

    EXPECT_EQ (CTBuffer<int>().init (-1, 4), kBadArgument);
}

class VectorOpsEveryTier : public ::testing::TestWithParam<int>
{
protected:
    void SetUp() override
    {
        if (! fillDispatchTable (ops, GetParam()))
            GTEST_SKIP() << "tier " << GetParam() << " does not run here";
        ASSERT_EQ (ops.tier, GetParam());
    }

    VectorDispatch ops;
};

TEST_P (VectorOpsEveryTier, ElementwiseOperationsCoverEveryTail)
{
    for (int n : kLengths)
    {
        // One element past the end must stay untouched.
        const std::vector<float> a0 = noiseSamples (n + 1, 1u, 0.5f, 2.0f), b = noiseSamples (n + 1, 2u, 0.5f, 2.0f);
        const std::vector<float> s = noiseSamples (n + 1, 3u); // signed
        auto check = [&] (const char* name, auto apply, auto expected, const std::vector<float>& start) {
            std::vector<float> a = start;
            apply (a.data());
            for (int i = 0; i < n; ++i)
                ASSERT_FLOAT_EQ (a[static_cast<size_t> (i)],
                                 expected (start[static_cast<size_t> (i)], b[static_cast<size_t> (i)]))
                    << name << " n=" << n << " i=" << i;
            ASSERT_EQ (a[static_cast<size_t> (n)], start[static_cast<size_t> (n)]) << name << " wrote past n=" << n;
        };
        check (
            "add", [&] (float* a) { ops.add (a, b.data(), n); }, [] (float x, float y) { return x + y; }, a0);
        check (
            "subtract", [&] (float* a) { ops.subtract (a, b.data(), n); }, [] (float x, float y) { return x - y; }, a0);
        check (
            "multiply", [&] (float* a) { ops.multiply (a, b.data(), n); }, [] (float x, float y) { return x * y; }, a0);
        check (
            "divide", [&] (float* a) { ops.divide (a, b.data(), n); }, [] (float x, float y) { return x / y; }, a0);
        check (
            "maxElementwise", [&] (float* a) { ops.maxElementwise (a, b.data(), n); },
            [] (float x, float y) { return std::max (x, y); }, a0);
        check (
            "addScalar", [&] (float* a) { ops.addScalar (a, 0.25f, n); }, [] (float x, float) { return x + 0.25f; },
            a0);
        check (
            "multiplyScalar", [&] (float* a) { ops.multiplyScalar (a, -3.0f, n); },
            [] (float x, float) { return x * -3.0f; }, a0);
        check (
            "clampBelow", [&] (float* a) { ops.clampBelow (a, 0.1f, n); },
            [] (float x, float) { return std::max (x, 0.1f); }, s);
        check (
            "zero", [&] (float* a) { ops.zero (a, n); }, [] (float, float) { return 0.0f; }, a0);
        check (
            "absolute", [&] (float* a) { ops.absolute (a, n); }, [] (float x, float) { return std::fabs (x); }, s);
        check (
            "squareRoot", [&] (float* a) { ops.squareRoot (a, n); }, [] (float x, float) { return std::sqrt (x); }, a0);
        check (
            "exp", [&] (float* a) { ops.exp (a, n); }, [] (float x, float) { return std::exp (x); }, s);
        check (
            "log", [&] (float* a) { ops.log (a, n); }, [] (float x, float) { return std::log (x); }, a0);
    }
}

TEST_P (VectorOpsEveryTier, ReductionsFindTheFirstExtremeAndSumEverything)
{
    for (int n : kLengths)
    {
        if (n == 0)
            continue;
        std::vector<float> a = noiseSamples (n, 5u);
        if (n >= 4)
        {
            // Ties, one of them in the tail: the first of equal extremes counts.
            a[static_cast<size_t> (n / 2)] = 3.0f;
            a[static_cast<size_t> (n - 2)] = 3.0f;
            a[1] = -3.0f;
            a[static_cast<size_t> (n - 1)] = -3.0f;
        }
        const auto largest = std::max_element (a.begin(), a.end());
        const auto smallest = std::min_element (a.begin(), a.end());
        float value = 0.0f;
        int index = -1;
        ops.findMax (a.data(), &value, &index, n);
        EXPECT_EQ (value, *largest) << n;
        EXPECT_EQ (index, static_cast<int> (largest - a.begin())) << n;
        ops.findMin (a.data(), &value, &index, n);
        EXPECT_EQ (value, *smallest) << n;
        EXPECT_EQ (index, static_cast<int> (smallest - a.begin())) << n;

        double sum = 0.0, squares = 0.0;
        for (float v : a)
        {
            sum += v;
            squares += static_cast<double> (v) * v;
        }
        EXPECT_NEAR (ops.sum (a.data(), n), sum, 1.0e-5) << n;
        EXPECT_NEAR (ops.sumSquares (a.data(), n), squares, 1.0e-4) << n;
    }
}

TEST_P (VectorOpsEveryTier, SpectrumOperationsKeepDcAndNyquistReal)
{
    for (int n : { 64, 70, 10 }) // 70 and 10 leave one complex pair after the fours
    {
        const std::vector<float> a0 = noiseSamples (n, 7u), b = noiseSamples (n, 8u);

        std::vector<float> product = a0;
        ops.complexMultiply (product.data(), b.data(), n);
        EXPECT_FLOAT_EQ (product[0], a0[0] * b[0]);
        EXPECT_FLOAT_EQ (product[1], a0[1] * b[1]);
        for (int k = 1; k < n / 2; ++k)
        {
            const size_t re = static_cast<size_t> (2 * k), im = re + 1;
            EXPECT_NEAR (product[re], a0[re] * b[re] - a0[im] * b[im], 1.0e-6f) << n << " bin " << k;
            EXPECT_NEAR (product[im], a0[im] * b[re] + a0[re] * b[im], 1.0e-6f) << n << " bin " << k;
        }

        std::vector<float> conjugated = a0;
        ops.conjugate (conjugated.data(), n);
        EXPECT_EQ (conjugated[1], a0[1]); // the Nyquist bin is real, not an imaginary part
        for (int i = 2; i < n; ++i)
            EXPECT_EQ (conjugated[static_cast<size_t> (i)],
                       i % 2 ? -a0[static_cast<size_t> (i)] : a0[static_cast<size_t> (i)]);

        std::vector<float> magnitudes (static_cast<size_t> (n / 2 + 1)), phases (static_cast<size_t> (n / 2 + 1));
        ops.magnitude (magnitudes.data(), a0.data(), n);
        ops.phase (phases.data(), a0.data(), n);
        EXPECT_FLOAT_EQ (magnitudes[0], 0.5f * std::fabs (a0[0]));
        EXPECT_FLOAT_EQ (magnitudes[static_cast<size_t> (n / 2)], 0.5f * std::fabs (a0[1]));
        EXPECT_EQ (phases[0], a0[0] > 0.0f ? 0.0f : kPi);
        EXPECT_EQ (phases[static_cast<size_t> (n / 2)], a0[1] > 0.0f ? 0.0f : kPi);
        for (int k = 1; k < n / 2; ++k)
        {
            const float re = a0[static_cast<size_t> (2 * k)], im = a0[static_cast<size_t> (2 * k + 1)];
            EXPECT_FLOAT_EQ (magnitudes[static_cast<size_t> (k)], std::sqrt (re * re + im * im));
            EXPECT_NEAR (phases[static_cast<size_t> (k)], std::atan2 (im, re), 1.0e-6f);
        }

        // In place, over the spectrum itself.
        std::vector<float> inPlace = a0;
        ops.magnitude (inPlace.data(), inPlace.data(), n);
        for (int k = 0; k <= n / 2; ++k)
            ASSERT_EQ (inPlace[static_cast<size_t> (k)], magnitudes[static_cast<size_t> (k)]) << n << " bin " << k;
    }
}

TEST_P (VectorOpsEveryTier, PhasesWrapIntoOneTurnAndGiveTheirSinesAndCosines)
{
    std::vector<float> x = { -1000.5f, -7.0f, -kPi, -3.0f, -0.1f, 0.0f, 0.1f, 3.0f, kPi, 7.0f, 12.6f, 1000.5f };
    const std::vector<float> original = x;
    ops.wrapPhase (x.data(), static_cast<int> (x.size()));
    for (size_t i = 0; i < x.size(); ++i)
    {
        EXPECT_GE (x[i], -kPi - 1.0e-5f) << original[i];
        EXPECT_LT (x[i], kPi + 1.0e-5f) << original[i];
        if (std::fabs (original[i]) < 100.0f)
        {
            // Same angle: the wrapped value is a whole number of turns away.
            EXPECT_NEAR (std::cos (x[i]), std::cos (original[i]), 1.0e-5f) << original[i];
            EXPECT_NEAR (std::sin (x[i]), std::sin (original[i]), 1.0e-5f) << original[i];
        }
    }

    std::vector<float> sines (original.size()), cosines (original.size());
    ops.sinCos (sines.data(), cosines.data(), original.data(), static_cast<int> (original.size()));
    // Absolute accuracy is what a rotation by a phase needs; the reduction by
    // whole quarter turns must hold it far from zero too.
    for (size_t i = 0; i < original.size(); ++i)
    {
        EXPECT_NEAR (sines[i], std::sin (static_cast<double> (original[i])), 2.5e-7) << original[i];
        EXPECT_NEAR (cosines[i], std::cos (static_cast<double> (original[i])), 2.5e-7) << original[i];
    }
}

INSTANTIATE_TEST_SUITE_P (Floor, VectorOpsEveryTier, ::testing::ValuesIn (kAllTiers),
                          [] (const ::testing::TestParamInfo<int>& test) {
                              return "tier" + std::to_string (test.param);
                          });

// The correlator against the direct sum, on every tier.
TEST_P (VectorOpsEveryTier, CorrelationPutsEachLagWhereItBelongs)
{
    CScopedPtr<CqvrfCcf_If> ccf;
    ASSERT_EQ (ops.createCcf (ccf.receive(), 40, false), kNoError);
    const int lengthA = 37, lengthB = 20;
    const std::vector<float> a = noiseSamples (lengthA, 31u), b = noiseSamples (lengthB, 32u);
    std::vector<float> result (lengthA + lengthB - 1);
    ASSERT_EQ (ccf->correlate (result.data(), a.data(), b.data(), lengthA, lengthB), kNoError);
    for (int lag = -(lengthB - 1); lag < lengthA; ++lag)
    {
        double want = 0.0;
        for (int j = 0; j < lengthB; ++j)
            if (j + lag >= 0 && j + lag < lengthA)
                want += a[static_cast<size_t> (j + lag)] * b[static_cast<size_t> (j)];
        EXPECT_NEAR (result[static_cast<size_t> (lengthB - 1 + lag)], want, 1.0e-5) << "lag " << lag;
    }

    EXPECT_EQ (ccf->correlate (result.data(), a.data(), b.data(), 41, lengthB), kBadArgument);
    EXPECT_EQ (ccf->correlate (result.data(), a.data(), b.data(), lengthA, 0), kBadArgument);
}

TEST (Correlation, NormalisedSelfCorrelationIsOneAtLagZeroAndFindsAShift)
{
    CScopedPtr<CqvrfCcf_If> ccf;
    ASSERT_EQ (createCcf (ccf.receive(), 512, true), kNoError);
    const int n = 512;
    const std::vector<float> signal = noiseSamples (n + 64, 41u);
    std::vector<float> result (2 * n - 1);

    ASSERT_EQ (ccf->correlate (result.data(), signal.data(), signal.data(), n, n), kNoError);
    EXPECT_NEAR (result[n - 1], 1.0f, 1.0e-5f);
    EXPECT_LE (*std::max_element (result.begin(), result.end()), 1.0f + 1.0e-5f);
    // b is a moved 23 samples earlier: b[j] = a[j + 23].
    ASSERT_EQ (ccf->correlate (result.data(), signal.data(), signal.data() + 23, n, n), kNoError);
    EXPECT_EQ (std::max_element (result.begin(), result.end()) - result.begin(), n - 1 + 23);

    // Silence is left alone rather than divided by zero.
    const std::vector<float> silence (n, 0.0f);
    ASSERT_EQ (ccf->correlate (result.data(), silence.data(), signal.data(), n, n), kNoError);
    EXPECT_EQ (result, std::vector<float> (2 * n - 1, 0.0f));
    EXPECT_EQ (createCcf (ccf.receive(), 0, false), kBadArgument);
    EXPECT_EQ (createCcf (ccf.receive(), 32769, false), kBadArgument);
}
} // namespace
