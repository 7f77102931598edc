#include "tests/dsp/support/DspAllocationCounter.h"

#include <cstdlib>
#include <new>

// Replacement global operator new and delete for the dsp test binary: every
// form counts on the calling thread, then takes memory from malloc, which the
// matching deletes return it to.
namespace
{
thread_local std::size_t threadAllocations = 0;

void* allocate (std::size_t size)
{
    ++threadAllocations;
    if (void* p = std::malloc (size == 0 ? 1 : size))
        return p;
    throw std::bad_alloc();
}

void* allocateAligned (std::size_t size, std::align_val_t alignment)
{
    ++threadAllocations;
    const auto a = static_cast<std::size_t> (alignment);
    const std::size_t rounded = ((size == 0 ? 1 : size) + a - 1) / a * a;
    if (void* p = std::aligned_alloc (a, rounded))
        return p;
    throw std::bad_alloc();
}

void* allocateNoThrow (std::size_t size) noexcept
{
    ++threadAllocations;
    return std::malloc (size == 0 ? 1 : size);
}
} // namespace

namespace tavrine::dsptest
{
std::size_t allocationsOnThisThread() noexcept { return threadAllocations; }
} // namespace tavrine::dsptest

void* operator new (std::size_t size) { return allocate (size); }
void* operator new[] (std::size_t size) { return allocate (size); }
void* operator new (std::size_t size, const std::nothrow_t&) noexcept { return allocateNoThrow (size); }
void* operator new[] (std::size_t size, const std::nothrow_t&) noexcept { return allocateNoThrow (size); }
void* operator new (std::size_t size, std::align_val_t a) { return allocateAligned (size, a); }
void* operator new[] (std::size_t size, std::align_val_t a) { return allocateAligned (size, a); }
void operator delete (void* p) noexcept { std::free (p); }
void operator delete[] (void* p) noexcept { std::free (p); }
void operator delete (void* p, std::size_t) noexcept { std::free (p); }
void operator delete[] (void* p, std::size_t) noexcept { std::free (p); }
void operator delete (void* p, std::align_val_t) noexcept { std::free (p); }
void operator delete[] (void* p, std::align_val_t) noexcept { std::free (p); }
void operator delete (void* p, std::size_t, std::align_val_t) noexcept { std::free (p); }
void operator delete[] (void* p, std::size_t, std::align_val_t) noexcept { std::free (p); }
