#include "controllable/lib/LockFreeParameterFifo.h"

#include <cstdio>

namespace qvrControllableLib
{
LockFreeParameterFifo::LockFreeParameterFifo() : buffer ((size_t) kSize)
{
    for (auto& entry : buffer)
        entry.store (nullptr, std::memory_order_relaxed);
}

bool LockFreeParameterFifo::push (ParameterDef* parameter)
{
    const juce::ScopedLock sl (writerLock);
    int start1, size1, start2, size2;
    fifo.prepareToWrite (1, start1, size1, start2, size2);
    if (size1 > 0)
    {
        buffer[(size_t) start1].store (parameter, std::memory_order_relaxed);
        fifo.finishedWrite (1);
        return true;
    }

    // Only the notification is lost: the value itself was stored long before.
    // A fixed-size buffer keeps this path free of allocation.
    std::printf ("overrun in LockFreeParameterFifo, freespace is %d/%d\n", fifo.getFreeSpace(), kSize);
    std::fflush (stdout);
    return false;
}

bool LockFreeParameterFifo::cancel (ParameterDef* parameter)
{
    int start1, size1, start2, size2;
    fifo.prepareToRead (kSize, start1, size1, start2, size2);
    bool found = false;
    auto blank = [&] (int start, int count)
    {
        for (int i = start; i < start + count; ++i)
        {
            ParameterDef* expected = parameter;
            if (buffer[(size_t) i].compare_exchange_strong (expected, nullptr))
                found = true;
        }
    };
    blank (start1, size1);
    blank (start2, size2);
    return found;
}

void LockFreeParameterFifo::cancelAll()
{
    for (auto& entry : buffer)
        entry.store (nullptr);
}
} // namespace qvrControllableLib
