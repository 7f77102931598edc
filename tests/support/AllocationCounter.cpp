#include "tests/support/AllocationCounter.h"

#include <cstdlib>
#include <new>

// Outside the sanitizer builds the C allocator is counted too: JUCE's HeapBlock
// (AudioBuffer::setSize, MemoryBlock, String storage) goes through malloc and
// realloc, never operator new, and an audio path that grows a buffer must not
// pass for allocation-free. The sanitizers own malloc themselves, so there only
// operator new is counted.
#if ! defined(__SANITIZE_ADDRESS__) && ! defined(__SANITIZE_THREAD__) && defined(__GLIBC__)
#define TAVRINE_COUNT_C_ALLOCATIONS 1
extern "C"
{
    void* __libc_malloc (std::size_t);
    void* __libc_calloc (std::size_t, std::size_t);
    void* __libc_realloc (void*, std::size_t);
    void* __libc_memalign (std::size_t, std::size_t);
}
#endif

namespace
{
thread_local std::size_t threadAllocations = 0;

#if TAVRINE_COUNT_C_ALLOCATIONS
// operator new counts once: it takes its memory from the uncounted allocator.
void* rawMalloc (std::size_t size) noexcept
{
    return __libc_malloc (size);
}
#else
void* rawMalloc (std::size_t size) noexcept
{
    return std::malloc (size);
}
#endif

void* allocate (std::size_t size)
{
    ++threadAllocations;
    if (void* p = rawMalloc (size == 0 ? 1 : size))
        return p;
    throw std::bad_alloc();
}

void* allocateAligned (std::size_t size, std::align_val_t alignment)
{
    ++threadAllocations;
    const auto a = static_cast<std::size_t> (alignment);
    const std::size_t rounded = ((size == 0 ? 1 : size) + a - 1) / a * a;
#if TAVRINE_COUNT_C_ALLOCATIONS
    if (void* p = __libc_memalign (a, rounded))
#else
    if (void* p = std::aligned_alloc (a, rounded))
#endif
        return p;
    throw std::bad_alloc();
}
} // namespace

#if TAVRINE_COUNT_C_ALLOCATIONS
extern "C"
{
    void* malloc (std::size_t size)
    {
        ++threadAllocations;
        return __libc_malloc (size);
    }
    void* calloc (std::size_t count, std::size_t size)
    {
        ++threadAllocations;
        return __libc_calloc (count, size);
    }
    void* realloc (void* p, std::size_t size)
    {
        ++threadAllocations;
        return __libc_realloc (p, size);
    }
}
#endif

namespace tavrine::test
{
std::size_t allocationsOnThisThread() noexcept
{
    return threadAllocations;
}
} // namespace tavrine::test

void* operator new (std::size_t size)
{
    return allocate (size);
}
void* operator new[] (std::size_t size)
{
    return allocate (size);
}
void* operator new (std::size_t size, const std::nothrow_t&) noexcept
{
    ++threadAllocations;
    return rawMalloc (size == 0 ? 1 : size);
}
void* operator new[] (std::size_t size, const std::nothrow_t&) noexcept
{
    ++threadAllocations;
    return rawMalloc (size == 0 ? 1 : size);
}
void* operator new (std::size_t size, std::align_val_t a)
{
    return allocateAligned (size, a);
}
void* operator new[] (std::size_t size, std::align_val_t a)
{
    return allocateAligned (size, a);
}
void operator delete (void* p) noexcept
{
    std::free (p);
}
void operator delete[] (void* p) noexcept
{
    std::free (p);
}
void operator delete (void* p, std::size_t) noexcept
{
    std::free (p);
}
void operator delete[] (void* p, std::size_t) noexcept
{
    std::free (p);
}
void operator delete (void* p, std::align_val_t) noexcept
{
    std::free (p);
}
void operator delete[] (void* p, std::align_val_t) noexcept
{
    std::free (p);
}
void operator delete (void* p, std::size_t, std::align_val_t) noexcept
{
    std::free (p);
}
void operator delete[] (void* p, std::size_t, std::align_val_t) noexcept
{
    std::free (p);
}
