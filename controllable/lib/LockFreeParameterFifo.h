#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include <juce_core/juce_core.h>

#include "controllable/api/ControllableAPI.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// Changes made off the message thread wait here for the message thread: a
// bounded ring with any number of writers and one reader.
//
// A writer claims a ticket (the write position) by compare-and-swap and
// publishes its entry by storing ticket + 1 in the slot's sequence; the
// reader takes a slot only when its sequence says so and hands it back by
// storing ticket + kSize. A writer never waits for anybody: a failed swap
// means another writer got its ticket, and the loop retries with the next.
//
// Invariants:
// 1. 0 <= writePosition - readPosition <= kCapacity (positions count
//    modulo 2^32; kCapacity is kSize - 1, so a full ring holds 65,535).
// 2. Slot (p mod kSize) holds sequence p while free for ticket p, p + 1 once
//    ticket p's entry is readable, p + kSize after the reader took it.
// 3. Entries are plain pointers: the FIFO does not keep a parameter alive, so
//    a parameter blanks its entries (cancel) before it dies.
// 4. The slots are allocated once, with the type; push takes no lock, makes
//    no system call, prints nothing and allocates nothing. A refused push
//    only counts: the drain reports overruns on the message thread.
//
// push: any thread. drain, cancel, cancelAll, reportOverruns: the message
// thread (one reader at a time).
class LockFreeParameterFifo
{
public:
    static constexpr int kSize = 65536;
    static constexpr int kCapacity = kSize - 1;

    LockFreeParameterFifo();

    // Any thread; no lock, no system call. False when full (counted for the
    // drain).
    bool push (ParameterDef* parameter) noexcept;

    // Message thread: hands every readable entry, in order, to `deliver`.
    // Blank entries are skipped. Stops at the first entry whose writer has
    // not finished yet (the next drain takes it). Overruns since the last
    // drain are reported first.
    template <typename Deliver>
    void drain (Deliver&& deliver)
    {
        reportOverruns();
        for (;;)
        {
            ParameterDef* parameter = nullptr;
            if (! pop (parameter))
                return;
            if (parameter != nullptr)
                deliver (parameter);
        }
    }

    // Blank every waiting entry of this parameter; true if any was found.
    bool cancel (ParameterDef* parameter);
    void cancelAll();
    int getNumReady() const noexcept;

    // Message thread: prints one line for the overruns since the last call
    // (the free space seen by the last refused writer, and how many were
    // refused if more than one); returns that count.
    int reportOverruns();

private:
    struct Slot
    {
        std::atomic<std::uint32_t> sequence { 0 };
        std::atomic<ParameterDef*> parameter { nullptr };
    };

    bool pop (ParameterDef*& parameter) noexcept;

    static constexpr std::uint32_t kMask = (std::uint32_t) kSize - 1;
    static_assert ((kSize & (kSize - 1)) == 0, "the ring wraps with a mask");

    std::unique_ptr<Slot[]> slots;
    alignas (64) std::atomic<std::uint32_t> writePosition { 0 };
    alignas (64) std::atomic<std::uint32_t> readPosition { 0 };
    alignas (64) std::atomic<int> overruns { 0 };
    std::atomic<int> freeSpaceAtOverrun { 0 };

    JUCE_DECLARE_NON_COPYABLE (LockFreeParameterFifo)
};
} // namespace qvrControllableLib
