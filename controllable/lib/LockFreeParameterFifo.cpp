#include "controllable/lib/LockFreeParameterFifo.h"

#include <cstdio>

namespace qvrControllableLib
{
LockFreeParameterFifo::LockFreeParameterFifo() : slots (new Slot[(size_t) kSize])
{
    for (std::uint32_t i = 0; i < (std::uint32_t) kSize; ++i)
        slots[i].sequence.store (i, std::memory_order_relaxed);
}

bool LockFreeParameterFifo::push (ParameterDef* parameter) noexcept
{
    std::uint32_t ticket = writePosition.load (std::memory_order_relaxed);
    for (;;)
    {
        // Acquire pairs with the reader's release of readPosition, which it
        // does after handing the slot back: a ticket below readPosition +
        // kCapacity finds its slot free.
        const auto used = (std::int32_t) (ticket - readPosition.load (std::memory_order_acquire));
        if (used < 0)
        {
            // A stale ticket the reader has already passed: take a fresh one.
            ticket = writePosition.load (std::memory_order_relaxed);
            continue;
        }
        if (used >= kCapacity)
        {
            // Only the notification is lost: the value itself was stored long
            // before. Counted here, reported by the drain on the message thread.
            freeSpaceAtOverrun.store (kCapacity - juce::jmin ((int) used, kCapacity), std::memory_order_relaxed);
            overruns.fetch_add (1, std::memory_order_relaxed);
            return false;
        }
        if (writePosition.compare_exchange_weak (ticket, ticket + 1, std::memory_order_relaxed))
            break;
    }
    Slot& slot = slots[ticket & kMask];
    slot.parameter.store (parameter, std::memory_order_relaxed);
    slot.sequence.store (ticket + 1, std::memory_order_release);
    return true;
}

bool LockFreeParameterFifo::pop (ParameterDef*& parameter) noexcept
{
    const std::uint32_t position = readPosition.load (std::memory_order_relaxed);
    Slot& slot = slots[position & kMask];
    if (slot.sequence.load (std::memory_order_acquire) != position + 1)
        return false; // empty, or its writer is between ticket and publication
    parameter = slot.parameter.exchange (nullptr, std::memory_order_relaxed);
    slot.sequence.store (position + (std::uint32_t) kSize, std::memory_order_release);
    readPosition.store (position + 1, std::memory_order_release);
    return true;
}

bool LockFreeParameterFifo::cancel (ParameterDef* parameter)
{
    bool found = false;
    const std::uint32_t end = writePosition.load (std::memory_order_acquire);
    for (std::uint32_t p = readPosition.load (std::memory_order_relaxed); p != end; ++p)
    {
        // A plain read first: every dying parameter walks the whole queue, and
        // a full queue times thousands of parameters made teardown take
        // seconds when each entry was claimed for a compare-exchange.
        auto& entry = slots[p & kMask].parameter;
        if (entry.load (std::memory_order_relaxed) != parameter)
            continue;
        ParameterDef* expected = parameter;
        if (entry.compare_exchange_strong (expected, nullptr))
            found = true;
    }
    return found;
}

void LockFreeParameterFifo::cancelAll()
{
    for (std::uint32_t i = 0; i < (std::uint32_t) kSize; ++i)
        slots[i].parameter.store (nullptr);
}

int LockFreeParameterFifo::getNumReady() const noexcept
{
    return (int) (writePosition.load (std::memory_order_acquire) - readPosition.load (std::memory_order_acquire));
}

int LockFreeParameterFifo::reportOverruns()
{
    const int count = overruns.exchange (0, std::memory_order_relaxed);
    if (count == 0)
        return 0;
    const int freeSpace = freeSpaceAtOverrun.load (std::memory_order_relaxed);
    if (count == 1)
        std::printf ("overrun in LockFreeParameterFifo, freespace is %d/%d\n", freeSpace, kSize);
    else
        std::printf ("overrun in LockFreeParameterFifo, freespace is %d/%d (%d changes lost)\n", freeSpace, kSize,
                     count);
    std::fflush (stdout);
    return count;
}
} // namespace qvrControllableLib
