#pragma once

#include <juce_events/juce_events.h>

namespace juce
{
// JUCE's own dispatch of one message of the system queue (Linux), the piece its
// modal loop is built from; modal loops are off, so runDispatchLoopUntil is not
// there.
bool dispatchNextMessageOnSystemQueue (bool returnIfNoPendingMessages);
} // namespace juce

namespace pluginCheck
{
// Runs the message thread for a while, as a host's does between its calls.
inline void pumpMessagesFor (int milliseconds)
{
    const auto end = juce::Time::getMillisecondCounter() + (juce::uint32) milliseconds;
    while (juce::Time::getMillisecondCounter() < end)
        if (! juce::dispatchNextMessageOnSystemQueue (true))
            juce::Thread::sleep (1);
}
} // namespace pluginCheck
