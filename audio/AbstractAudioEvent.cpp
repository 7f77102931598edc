#include "audio/AbstractAudioEvent.h"

#include "audio/AudioEventQueue.h"

namespace qvrControllableAudio
{
AbstractAudioEvent::AbstractAudioEvent (int eventPriority, const char* name, double initialTime)
    : priority (eventPriority), className (name), time (initialTime)
{
}

AbstractAudioEvent::~AbstractAudioEvent()
{
    // A queue holds a counted reference, so a queued event cannot die.
    jassert (queue.load() == nullptr);
}

void AbstractAudioEvent::setTime (double newTime)
{
    if (auto* q = queue.load())
        q->reschedule (this, newTime);
    else
        storeTime (newTime);
}

void AbstractAudioEvent::fire()
{
    // Marked before the work, so that an event which reschedules itself to
    // the present position during process is not found due again here.
    if (auto* q = queue.load())
        q->markFired (this);
    process();
}

juce::String AbstractAudioEvent::describe() const
{
    return juce::String (className) + " (Priority=" + juce::String (priority) + ")";
}
} // namespace qvrControllableAudio
