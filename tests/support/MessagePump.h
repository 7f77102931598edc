#pragma once

#include <functional>
#include <juce_events/juce_events.h>

namespace juce
{
// JUCE's own dispatch of one message of the system queue (Linux), the piece
// that its modal loop is built from.
bool dispatchNextMessageOnSystemQueue (bool returnIfNoPendingMessages);
} // namespace juce

namespace tavrine::test
{
// Dispatches pending messages on the message thread until `done` holds or the
// time-out passes (modal loops are off, so runDispatchLoopUntil is not there).
// Returns whether `done` held.
inline bool pumpMessagesUntil (const std::function<bool()>& done, int timeoutMs = 2000)
{
    const auto end = juce::Time::getMillisecondCounter() + (juce::uint32) timeoutMs;
    while (! done())
    {
        if (juce::Time::getMillisecondCounter() > end)
            return false;
        if (! juce::dispatchNextMessageOnSystemQueue (true))
            juce::Thread::sleep (1);
    }
    return true;
}
} // namespace tavrine::test
