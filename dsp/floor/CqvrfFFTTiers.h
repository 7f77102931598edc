#pragma once

#include "dsp/floor/CqvrfFFTBase.h"

// The FFT of each tier. They share one plan and one algorithm (CqvrfFFTBase,
// FloorKernels.inl) and differ only in the instruction set their kernels were
// compiled for, so every tier gives the same transform up to rounding. Use
// createFFT rather than naming a class: it picks the tier in use.
namespace meridex
{
// Tier 0: portable code.
class CqvrfFFTGen final : public CqvrfFFTBase
{
public:
    CqvrfFFTGen() noexcept : CqvrfFFTBase (floor_detail::fftKernelsGeneric()) {}
};

#if MERIDEX_HAS_X86_TIERS
// Tier 3.
class CqvrfFFTSSE2 final : public CqvrfFFTBase
{
public:
    CqvrfFFTSSE2() noexcept : CqvrfFFTBase (floor_detail::fftKernelsSse2()) {}
};

// Tier 4.
class CqvrfFFTSSE3 final : public CqvrfFFTBase
{
public:
    CqvrfFFTSSE3() noexcept : CqvrfFFTBase (floor_detail::fftKernelsSse3()) {}
};

// Tier 5.
class CqvrfFFTSSE4 final : public CqvrfFFTBase
{
public:
    CqvrfFFTSSE4() noexcept : CqvrfFFTBase (floor_detail::fftKernelsSse4()) {}
};
#endif
} // namespace meridex
