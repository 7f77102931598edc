#include "dsp/floor/CqvrfCcf.h"

#include "dsp/MeridexErrors.h"
#include "dsp/floor/FftWindows.h"

#include <cmath>
#include <cstring>

namespace meridex
{
CqvrfCcf::~CqvrfCcf()
{
    release();
}

void CqvrfCcf::release() noexcept
{
    ops.free (&bufferA);
    ops.free (&bufferB);
    CqvrfFFT_If* held = fft.release();
    ops.destroyFFT (&held);
    size = 0;
    maxInputLength = 0;
}

int CqvrfCcf::init (int maxLength, bool shouldNormalise) noexcept
{
    release();
    if (maxLength < 1 || maxLength > kMaxLength)
        return kBadArgument;

    int fftSize = 64;
    while (fftSize < 2 * maxLength)
        fftSize *= 2;

    CqvrfFFT_If* made = nullptr;
    const int code = ops.createFFT (&made, fftSize, 1, kWindowNone);
    if (code != kNoError)
        return code;
    fft.reset (made);

    bufferA = ops.allocate (fftSize);
    bufferB = ops.allocate (fftSize);
    if (bufferA == nullptr || bufferB == nullptr)
    {
        release();
        return kMemoryError;
    }

    size = fftSize;
    maxInputLength = maxLength;
    normalise = shouldNormalise;
    return kNoError;
}

int CqvrfCcf::correlate (float* result, const float* a, const float* b, int lengthA, int lengthB) noexcept
{
    if (size == 0 || result == nullptr || a == nullptr || b == nullptr || lengthA < 1 || lengthB < 1
        || lengthA > maxInputLength || lengthB > maxInputLength)
        return kBadArgument;

    std::memcpy (bufferA, a, static_cast<size_t> (lengthA) * sizeof (float));
    ops.zero (bufferA + lengthA, size - lengthA);
    std::memcpy (bufferB, b, static_cast<size_t> (lengthB) * sizeof (float));
    ops.zero (bufferB + lengthB, size - lengthB);

    // The pair of transforms multiplies by the FFT size; undo it on the
    // spectrum, where it costs one pass.
    double scale = 1.0 / size;
    if (normalise)
    {
        const double meanSquareA = ops.sumSquares (a, lengthA) / static_cast<double> (lengthA);
        const double meanSquareB = ops.sumSquares (b, lengthB) / static_cast<double> (lengthB);
        const double product = meanSquareA * meanSquareB;
        if (product > 1.0e-30)
            scale /= (lengthA < lengthB ? lengthA : lengthB) * std::sqrt (product);
    }

    fft->forward (bufferA, bufferA);
    fft->forward (bufferB, bufferB);
    ops.conjugate (bufferB, size);
    ops.complexMultiply (bufferA, bufferB, size);
    ops.multiplyScalar (bufferA, static_cast<float> (scale), size);
    fft->inverse (bufferA, bufferA);

    // Negative lags sit at the end of the circular result.
    const int negativeLags = lengthB - 1;
    std::memcpy (result, bufferA + size - negativeLags, static_cast<size_t> (negativeLags) * sizeof (float));
    std::memcpy (result + negativeLags, bufferA, static_cast<size_t> (lengthA) * sizeof (float));
    return kNoError;
}
} // namespace meridex
