// Tier 5 of the numeric floor, chosen when CPUID reports SSE4.2: floors by
// roundps (SSE4.1) instead of truncation and correction. Only the functions
// of this file carry the attribute, so the library still loads and runs on a
// processor without it.
// The kernels themselves are in FloorKernels.inl.

#include "dsp/floor/FloorKernels.h"

#if MERIDEX_HAS_X86_TIERS

#include <math.h>
#include <immintrin.h>

#define MERIDEX_TIER_SIMD 1
#define MERIDEX_TIER_LEVEL 5
#if defined(_MSC_VER) && ! defined(__clang__)
#define MERIDEX_TIER_FN
#else
#define MERIDEX_TIER_FN __attribute__ ((target ("sse4.2")))
#endif

namespace meridex::floor_detail
{
namespace
{
#include "dsp/floor/FloorKernels.inl"
} // namespace

const FftKernels& fftKernelsSse4() noexcept
{
    return tierFftKernels;
}

void fillVectorOpsSse4 (VectorDispatch& table) noexcept
{
    fillTierVectorOps (table);
}
} // namespace meridex::floor_detail

#endif
