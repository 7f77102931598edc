#pragma once

#include "dsp/floor/VectorDispatch.h"

// Internal to the numeric floor: what each tier's translation unit provides.
// The plan of a real FFT is the same data on every tier, built once at init by
// CqvrfFFTBase; only the code that walks it differs by instruction set.
namespace meridex::floor_detail
{
// One pass of the complex transform of size half = N/2 (autosort order, so no
// bit reversal is needed). A pass turns sub-transforms of `length` points at
// `stride` into sub-transforms of length / radix points at stride * radix.
struct FftStage
{
    int length = 0;
    int stride = 0;
    int radix = 0;
    // Radix-4 passes with length > 4: 24 floats per unit, the real and the
    // imaginary parts of w^p, w^2p and w^3p as four lanes each. The first pass
    // (stride 1) works on four consecutive p per unit; later passes on one p,
    // repeated in all four lanes. Null when every twiddle is 1.
    const float* twiddles = nullptr;
};

constexpr int kMaxFftStages = 10;

struct FftPlan
{
    int size = 0; // N, real points
    int half = 0; // N/2, complex points of the inner transform
    int stageCount = 0;
    FftStage stages[kMaxFftStages];
    // cos (2 pi k / N) and sin (2 pi k / N) for k = 1 .. N/4, at index k - 1:
    // the split of the complex result into the spectrum of the real input.
    const float* postCos = nullptr;
    const float* postSin = nullptr;
    // Two work areas of N floats each: real parts, then imaginary parts.
    float* bufferA = nullptr;
    float* bufferB = nullptr;
};

struct FftKernels
{
    // in: N real samples; out: N floats, packed spectrum. in may equal out.
    void (*forward) (const FftPlan& plan, const float* in, float* out);
    // in: packed spectrum; out: N samples, times N. in may equal out.
    void (*inverse) (const FftPlan& plan, const float* in, float* out);
    // out[i] = a[i] * b[i].
    void (*multiplyInto) (float* out, const float* a, const float* b, int n);
};

const FftKernels& fftKernelsGeneric() noexcept;
void fillVectorOpsGeneric (VectorDispatch& table) noexcept;

#if defined(__x86_64__) || defined(_M_X64) || defined(__i386__) || defined(_M_IX86)
#define MERIDEX_HAS_X86_TIERS 1
const FftKernels& fftKernelsSse2() noexcept;
const FftKernels& fftKernelsSse3() noexcept;
const FftKernels& fftKernelsSse4() noexcept;
void fillVectorOpsSse2 (VectorDispatch& table) noexcept;
void fillVectorOpsSse3 (VectorDispatch& table) noexcept;
void fillVectorOpsSse4 (VectorDispatch& table) noexcept;
#else
#define MERIDEX_HAS_X86_TIERS 0
#endif
} // namespace meridex::floor_detail
