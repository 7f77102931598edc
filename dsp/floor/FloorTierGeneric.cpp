// Tier 0 of the numeric floor: portable C++, the lanes of a vector held as a
// plain struct of four floats. It runs on any processor; compilers are free to
// vectorise it for whatever the build targets.
// The kernels themselves are in FloorKernels.inl.

#include "dsp/floor/FloorKernels.h"

#include <math.h>

#define MERIDEX_TIER_SIMD 0
#define MERIDEX_TIER_LEVEL 0
#define MERIDEX_TIER_FN

namespace meridex::floor_detail
{
namespace
{
#include "dsp/floor/FloorKernels.inl"
} // namespace

const FftKernels& fftKernelsGeneric() noexcept
{
    return tierFftKernels;
}

void fillVectorOpsGeneric (VectorDispatch& table) noexcept
{
    fillTierVectorOps (table);
}
} // namespace meridex::floor_detail
