#pragma once

#include "dsp/floor/CScopedPtr.h"
#include "dsp/floor/CTBuffer.h"
#include "dsp/floor/CqvrfFFT_If.h"

// The spectral envelope of one magnitude spectrum by the true-envelope method:
// a cepstrally smoothed log spectrum, raised again and again to the peaks it
// passes under, so that the envelope rides on the partials rather than
// through them. Used by CFFTSplitV3 for the formant change.
//
// Owned by its split; init allocates, compute never does. One thread.
namespace meridex
{
class CSpectralEnvelopeV3
{
public:
    // The iteration stops once no bin lies more than this (natural log) above
    // the smooth envelope, or after kMaxIterations.
    static constexpr float kThreshold = 1.0f;
    static constexpr int kMaxIterations = 16;

    CSpectralEnvelopeV3() noexcept = default;
    ~CSpectralEnvelopeV3() = default;

    CSpectralEnvelopeV3 (const CSpectralEnvelopeV3&) = delete;
    CSpectralEnvelopeV3& operator= (const CSpectralEnvelopeV3&) = delete;

    // For spectra of fftSize points (fftSize / 2 + 1 magnitudes). The lifter
    // keeps fftSize / 32 cepstral coefficients, doubled because the packed
    // spectrum interleaves real and imaginary parts. kNoError, kBadArgument or
    // kMemoryError.
    [[nodiscard]] int init (int fftSize) noexcept;

    // Lifter length in cepstral coefficients (1 .. fftSize / 2).
    void setOrder (int order) noexcept;
    int getOrder() const noexcept { return order; }

    // magnitudes and envelope: fftSize / 2 + 1 values each (may be the same
    // array). Returns the number of iterations run.
    int compute (const float* magnitudes, float* envelope) noexcept;

private:
    void buildLifter() noexcept;

    CScopedPtr<CqvrfFFT_If> fft;
    CTBuffer<float> rows;
    int size = 0;
    int order = 0;
};
} // namespace meridex
