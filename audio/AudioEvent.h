#pragma once

#include "controllable/lib/Controllables.h"

namespace qvrControllableAudio
{
class AudioEventQueue;

// Something that must happen at an exact position of a chain's timeline: the
// end of a loop, a slice boundary, the swap of a sample. An event is a
// controllable (it may have parameters of its own) and is held by counted
// reference, by its creator and by the queue it is in.
//
// Threads: fire and process run on the audio thread, inside the chain's
// getNextAudioBlock. setTime may be called from any thread; it takes the
// queue's lock while the event is queued.
class AudioEvent : public qvrControllableLib::BasicControllable
{
public:
    // Fixed at construction; on equal times the higher priority fires first.
    virtual int getPriority() const noexcept = 0;
    // In the unit of the timeline of the queue.
    virtual double getTime() const noexcept = 0;
    // Moves the event; a queued event is sorted into its new place.
    virtual void setTime (double newTime) = 0;
    virtual bool isEnabled() = 0;
    // Audio thread: records the event as fired at the present position, then
    // does its work.
    virtual void fire() = 0;
    // Audio thread: the event's work. Allocates nothing, never blocks.
    virtual void process() = 0;
    // "ClassName (Priority=N)". Not for the audio thread (builds a string).
    virtual juce::String describe() const = 0;

    virtual AudioEventQueue* getQueue() const noexcept = 0;
    // For AudioEventQueue only: set by add, cleared by remove.
    virtual void setQueue (AudioEventQueue* queue) noexcept = 0;
    // For AudioEventQueue only: stores the time without sorting (the queue
    // sorts under its lock right after).
    virtual void storeTime (double newTime) noexcept = 0;
};

using AudioEventPtr = juce::ReferenceCountedObjectPtr<AudioEvent>;
} // namespace qvrControllableAudio
