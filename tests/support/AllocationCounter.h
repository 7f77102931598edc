#pragma once

#include <cstddef>

// Counts heap allocations made by the calling thread. The test binary replaces
// the global operator new, so every allocation on any thread is seen.
namespace tavrine::test
{
std::size_t allocationsOnThisThread() noexcept;

// Allocations made by the calling thread during the scope's life.
class ScopedAllocationCount
{
public:
    ScopedAllocationCount() noexcept : start (allocationsOnThisThread()) {}
    std::size_t count() const noexcept { return allocationsOnThisThread() - start; }

private:
    std::size_t start;
};
} // namespace tavrine::test
