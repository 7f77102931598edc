// Tier 3 of the numeric floor: SSE2, which every x86-64 processor has, so it
// needs no attribute beyond the build's baseline.
// The kernels themselves are in FloorKernels.inl.

#include "dsp/floor/FloorKernels.h"

#if MERIDEX_HAS_X86_TIERS

#include <math.h>
#include <immintrin.h>

#define MERIDEX_TIER_SIMD 1
#define MERIDEX_TIER_LEVEL 3
#define MERIDEX_TIER_FN

namespace meridex::floor_detail
{
namespace
{
#include "dsp/floor/FloorKernels.inl"
} // namespace

const FftKernels& fftKernelsSse2() noexcept
{
    return tierFftKernels;
}

void fillVectorOpsSse2 (VectorDispatch& table) noexcept
{
    fillTierVectorOps (table);
}
} // namespace meridex::floor_detail

#endif
