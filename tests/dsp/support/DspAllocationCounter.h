#pragma once

#include <cstddef>

// Counts the heap allocations made by the calling thread through the global
// operator new, which the dsp test binary replaces (DspAllocationCounter.cpp).
// Plain C++: the dsp tests link no JUCE.
namespace tavrine::dsptest
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
} // namespace tavrine::dsptest
