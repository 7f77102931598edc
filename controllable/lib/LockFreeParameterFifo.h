#pragma once

#include <juce_events/juce_events.h>

#include "controllable/api/ControllableAPI.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// Changes made off the message thread wait here for the message thread.
//
// Invariants:
// 1. Writers are serialised by writerLock, held for a few instructions; the
//    reader (the message thread's drain) never takes it.
// 2. Entries are plain pointers: the FIFO does not keep a parameter alive, so
//    a parameter blanks its entries (cancel) before it dies.
// 3. The buffer is allocated once, with the type; nothing on the write path
//    allocates.
class LockFreeParameterFifo
{
public:
    static constexpr int kSize = 65536;

    LockFreeParameterFifo();

    // Any thread. False (and one line on standard output) when full.
    bool push (ParameterDef* parameter);
    // Message thread: hands every waiting entry, in order, to `deliver`.
    // Blank entries are skipped. Runs until the FIFO is empty.
    template <typename Deliver>
    void drain (Deliver&& deliver)
    {
        for (;;)
        {
            int start1, size1, start2, size2;
            fifo.prepareToRead (1, start1, size1, start2, size2);
            if (size1 == 0)
                return;
            ParameterDef* parameter = buffer[(size_t) start1].exchange (nullptr);
            fifo.finishedRead (1);
            if (parameter != nullptr)
                deliver (parameter);
        }
    }
    // Blank every waiting entry of this parameter; true if any was found.
    bool cancel (ParameterDef* parameter);
    void cancelAll();
    int getNumReady() const { return fifo.getNumReady(); }

private:
    juce::CriticalSection writerLock;
    juce::AbstractFifo fifo { kSize };
    std::vector<std::atomic<ParameterDef*>> buffer;

    JUCE_DECLARE_NON_COPYABLE (LockFreeParameterFifo)
};
} // namespace qvrControllableLib
