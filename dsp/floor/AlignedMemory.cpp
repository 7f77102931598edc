#include "dsp/floor/AlignedMemory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#if defined(_MSC_VER)
#include <malloc.h>
#endif

namespace meridex
{
void* alignedAllocate (std::size_t bytes) noexcept
{
    if (bytes == 0)
        return nullptr;

    // Round up so that a vector loop may read a whole last vector of a row.
    const std::size_t rounded = (bytes + kMemoryAlignment - 1) & ~(kMemoryAlignment - 1);
    if (rounded < bytes)
        return nullptr;

    void* memory = nullptr;
#if defined(_MSC_VER)
    memory = _aligned_malloc (rounded, kMemoryAlignment);
#else
    if (posix_memalign (&memory, kMemoryAlignment, rounded) != 0)
        memory = nullptr;
#endif
    if (memory != nullptr)
        std::memset (memory, 0, rounded);
    return memory;
}

void alignedFree (void* pointer) noexcept
{
#if defined(_MSC_VER)
    _aligned_free (pointer);
#else
    std::free (pointer);
#endif
}
} // namespace meridex
