#pragma once

#include <atomic>
#include <vector>

#include "audio/AudioEvent.h"
#include "audio/AudioEventTimeline.h"

namespace qvrControllableAudio
{
// The events of one chain, sorted by time (on equal time the higher priority
// first; a new event goes after its equals, and a sort never swaps equals),
// and the search for the next one that is due on the chain's timeline.
//
// Invariants.
// 1. `events` is sorted at every moment the lock is free; each event in it
//    has its queue set to this queue, and no event is in it twice.
// 2. `firedHere` holds only events that are in `events` and that fired while
//    the timeline stood at `lastPosition`; next() never returns an event that
//    is due now (0 samples away) and in `firedHere`. This is what stops an
//    event that reschedules itself to the present position from firing
//    again and again.
// 3. `nextIndex` is -1 after any change of order, else the index of the last
//    event returned by next(); it only says where the search starts.
// 4. The queue never drops the last reference of an event on the render
//    thread: remove() moves the queue's reference into `retired`, and
//    retired events whose only holder is the queue are released by add(),
//    remove() or releaseRetiredEvents() on any other thread, or at
//    destruction. next() hands out a counted reference taken under the lock,
//    so an event being fired always has a holder besides `retired`.
// 5. Capacity for kReservedEvents events exists from construction in
//    `events`, `firedHere` and `retired`; below it nothing allocates.
//
// Threads: next and markFired on the audio thread (the render thread is the
// last thread that called next). add, remove and reschedule on any thread,
// including the audio thread from an event's process. The lock is held for
// the search and the sort only, never across rendering or an event's work.
class AudioEventQueue : public juce::ReferenceCountedObject
{
public:
    static constexpr int kReservedEvents = 32;

    // Without a timeline the queue counts samples (SampleEventTimeline).
    explicit AudioEventQueue (AudioEventTimeline* timeline = nullptr);
    ~AudioEventQueue() override;

    // Takes a reference, sets the event's queue and sorts it into place. An
    // event of another queue leaves that queue first.
    void add (AudioEvent* event);
    void remove (AudioEvent* event);
    // Stores the time and, if the event is in this queue, sorts again.
    void reschedule (AudioEvent* event, double time);
    // Audio thread: the next event that is due, with the number of samples
    // until it in samplesUntil; null and -1 if there is none.
    AudioEventPtr next (int& samplesUntil);
    // Audio thread: the event fired at the present position.
    void markFired (AudioEvent* event);
    // Frees removed events that nobody else holds; does nothing on the
    // render thread.
    void releaseRetiredEvents();

    AudioEventTimeline* getTimeline() const noexcept { return timeline.get(); }
    int getNumEvents() const;
    bool contains (AudioEvent* event) const;

private:
    void sortLocked() noexcept;
    // Debug check of the notes above; call with the lock held.
    bool checkInvariantsLocked() const noexcept;
    bool isRenderThread() const noexcept;

    juce::CriticalSection lock;
    const AudioEventTimelinePtr timeline;
    std::atomic<int> nextIndex { -1 };
    double lastPosition = 0.0;
    std::vector<AudioEvent*> firedHere;
    std::vector<AudioEventPtr> events;
    std::vector<AudioEventPtr> retired;
    std::atomic<juce::Thread::ThreadID> renderThread { nullptr };

    JUCE_DECLARE_NON_COPYABLE (AudioEventQueue)
};

using AudioEventQueuePtr = juce::ReferenceCountedObjectPtr<AudioEventQueue>;
} // namespace qvrControllableAudio
