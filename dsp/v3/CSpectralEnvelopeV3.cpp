#include "dsp/v3/CSpectralEnvelopeV3.h"

#include "dsp/floor/FftWindows.h"

#include <cmath>

namespace meridex
{
namespace
{
enum Row : int
{
    kLogSpectrum = 0, // A, mirrored to a symmetric sequence of size points
    kCepstrum,        // the smooth cepstrum C, packed
    kTransform,
    kSmooth, // V, the smooth log envelope
    kLifter, // packed weights
    kRows
};
} // namespace

int CSpectralEnvelopeV3::init (int fftSize) noexcept
{
    int result = createFFT (fft.receive(), fftSize, 1, kWindowNone);
    if (result != kNoError)
        return result;
    if ((result = rows.init (kRows, fftSize)) != kNoError)
        return result;
    size = fftSize;
    setOrder (fftSize / 16);
    return kNoError;
}

void CSpectralEnvelopeV3::setOrder (int newOrder) noexcept
{
    if (size == 0)
        return;
    order = newOrder < 1 ? 1 : (newOrder > size / 2 ? size / 2 : newOrder);
    buildLifter();
}

// cos^2 (pi q / (2 order)) for quefrency q below the order, mirrored; laid out
// like a packed spectrum, so that it multiplies real and imaginary parts.
void CSpectralEnvelopeV3::buildLifter() noexcept
{
    float* lifter = rows[kLifter];
    const int half = size / 2;
    auto weight = [this] (int q) {
        if (q >= order)
            return 0.0f;
        const double c = std::cos (3.14159265358979323846 * q / (2.0 * order));
        return static_cast<float> (c * c);
    };
    lifter[0] = weight (0);
    lifter[1] = weight (half);
    for (int q = 1; q < half; ++q)
        lifter[2 * q] = lifter[2 * q + 1] = weight (q);
}

int CSpectralEnvelopeV3::compute (const float* magnitudes, float* envelope) noexcept
{
    if (size == 0)
        return 0;
    const VectorDispatch& ops = dispatch();
    const int half = size / 2;
    float* a = rows[kLogSpectrum];
    float* cepstrum = rows[kCepstrum];
    float* transform = rows[kTransform];
    float* smooth = rows[kSmooth];
    const float* lifter = rows[kLifter];

    for (int k = 0; k <= half; ++k)
        a[k] = std::log (magnitudes[k] > 1.0e-24f ? magnitudes[k] : 1.0e-24f);
    for (int k = 1; k < half; ++k)
        a[size - k] = a[k];
    ops.zero (cepstrum, size);

    const float scale = 1.0f / static_cast<float> (size);
    float change = 1.0e24f;
    int iterations = 0;
    while (change > kThreshold && iterations < kMaxIterations)
    {
        fft->forward (transform, a);
        ops.subtract (transform, cepstrum, size);
        ops.multiply (transform, lifter, size);
        ops.add (cepstrum, transform, size);
        fft->inverse (smooth, cepstrum);
        ops.multiplyScalar (smooth, scale, size);

        change = 0.0f;
        for (int k = 0; k <= half; ++k)
        {
            if (smooth[k] > a[k])
                a[k] = smooth[k];
            const float gap = a[k] - smooth[k];
            change = gap > change ? gap : change;
        }
        for (int k = 1; k < half; ++k)
            a[size - k] = a[k];
        ++iterations;
    }

    for (int k = 0; k <= half; ++k)
        envelope[k] = std::exp (smooth[k]);
    return iterations;
}
} // namespace meridex
