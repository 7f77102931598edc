// Tier 4 of the numeric floor: SSE3, which multiplies interleaved complex
// numbers with addsubps and duplicated lanes instead of shuffles and a sign
// mask. Only the functions of this file carry the SSE3 attribute, so the
// library still loads and runs on a processor without it.
// The kernels themselves are in FloorKernels.inl.

#include "dsp/floor/FloorKernels.h"

#if MERIDEX_HAS_X86_TIERS

#include <math.h>
#include <immintrin.h>

#define MERIDEX_TIER_SIMD 1
#define MERIDEX_TIER_LEVEL 4
#if defined(_MSC_VER) && ! defined(__clang__)
#define MERIDEX_TIER_FN
#else
#define MERIDEX_TIER_FN __attribute__ ((target ("sse3")))
#endif

namespace meridex::floor_detail
{
namespace
{
#include "dsp/floor/FloorKernels.inl"
} // namespace

const FftKernels& fftKernelsSse3() noexcept
{
    return tierFftKernels;
}

void fillVectorOpsSse3 (VectorDispatch& table) noexcept
{
    fillTierVectorOps (table);
}
} // namespace meridex::floor_detail

#endif
