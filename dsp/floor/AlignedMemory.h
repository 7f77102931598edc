#pragma once

#include <cstddef>

// Aligned, zero-filled arrays for the stretch library. Every buffer that a
// vector routine or the FFT touches comes from here, so that routines may use
// aligned vector loads on whole rows. Allocation never throws: a null result
// is the failure, and creators turn it into kMemoryError.
//
// Called only at creation or init, never from a processing call.
namespace meridex
{
// Wide enough for 4-float vectors and for a cache line.
constexpr std::size_t kMemoryAlignment = 64;

// Returns zero-filled memory aligned to kMemoryAlignment, or null when bytes is
// 0 or the allocation fails.
void* alignedAllocate (std::size_t bytes) noexcept;

// Frees what alignedAllocate returned; null is accepted.
void alignedFree (void* pointer) noexcept;

// A zero-filled aligned array of count elements of a trivially copyable type,
// or null (count below 1 or no memory).
template <typename T>
T* allocateArray (int count) noexcept
{
    if (count < 1)
        return nullptr;
    return static_cast<T*> (alignedAllocate (static_cast<std::size_t> (count) * sizeof (T)));
}

// Frees an array from allocateArray and nulls the caller's pointer.
template <typename T>
void freeArray (T** pointer) noexcept
{
    if (pointer == nullptr)
        return;
    alignedFree (*pointer);
    *pointer = nullptr;
}
} // namespace meridex
