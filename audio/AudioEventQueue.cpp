#include "audio/AudioEventQueue.h"

#include <algorithm>

namespace qvrControllableAudio
{
namespace
{
// Sort order: ascending time; on equal time the higher priority first.
bool firesBefore (const AudioEvent& a, const AudioEvent& b) noexcept
{
    const double ta = a.getTime(), tb = b.getTime();
    if (ta != tb)
        return ta < tb;
    return a.getPriority() > b.getPriority();
}

// Compares by address, without making a counted temporary (which could
// delete an event that nobody holds yet).
auto findEvent (std::vector<AudioEventPtr>& list, const AudioEvent* event)
{
    return std::find_if (list.begin(), list.end(), [event] (const AudioEventPtr& e) { return e.get() == event; });
}
} // namespace

AudioEventQueue::AudioEventQueue (AudioEventTimeline* timelineToUse)
    : timeline (timelineToUse != nullptr ? timelineToUse : new SampleEventTimeline())
{
    firedHere.reserve (kReservedEvents);
    events.reserve (kReservedEvents);
    retired.reserve (kReservedEvents);
}

AudioEventQueue::~AudioEventQueue()
{
    for (auto& e : events)
        if (e->getQueue() == this)
            e->setQueue (nullptr);
}

bool AudioEventQueue::isRenderThread() const noexcept
{
    return renderThread.load (std::memory_order_relaxed) == juce::Thread::getCurrentThreadId();
}

void AudioEventQueue::sortLocked() noexcept
{
    // Insertion sort at any size: a reschedule displaces one event, so a pass
    // is linear in the normal case; it never allocates (the audio thread
    // reschedules from process) and keeps events of equal key in the order
    // they were added. Moving a counted pointer swaps, so counts are left alone.
    for (size_t i = 1; i < events.size(); ++i)
        for (size_t j = i; j > 0 && firesBefore (*events[j], *events[j - 1]); --j)
            std::swap (events[j], events[j - 1]);
}

bool AudioEventQueue::checkInvariantsLocked() const noexcept
{
    for (size_t i = 0; i < events.size(); ++i)
        if (events[i]->getQueue() != this || (i > 0 && firesBefore (*events[i], *events[i - 1])))
            return false;
    for (auto* fired : firedHere)
        if (std::none_of (events.begin(), events.end(), [fired] (const AudioEventPtr& e) { return e.get() == fired; }))
            return false;
    return firedHere.capacity() >= events.size() && retired.capacity() >= events.size();
}

void AudioEventQueue::add (AudioEvent* event)
{
    if (event == nullptr)
        return;
    if (auto* other = event->getQueue(); other != nullptr && other != this)
        other->remove (event);
    {
        const juce::ScopedLock sl (lock);
        if (event->getQueue() == this)
            return;
        events.emplace_back (event);
        // Keep room for every queued event in the audio thread's lists.
        if (firedHere.capacity() < events.capacity())
            firedHere.reserve (events.capacity());
        if (retired.capacity() < events.capacity())
            retired.reserve (events.capacity());
        // A re-added event leaves `retired`: events still holds it.
        if (auto found = findEvent (retired, event); found != retired.end())
            retired.erase (found);
        event->setQueue (this);
        sortLocked();
        nextIndex.store (-1);
        jassert (checkInvariantsLocked());
    }
    releaseRetiredEvents();
}

void AudioEventQueue::remove (AudioEvent* event)
{
    if (event == nullptr)
        return;
    {
        const juce::ScopedLock sl (lock);
        auto found = findEvent (events, event);
        if (found == events.end())
            return;
        // The queue's reference moves to `retired` before it leaves `events`,
        // so the count never falls to zero here (invariant 4).
        retired.push_back (*found);
        events.erase (found);
        firedHere.erase (std::remove (firedHere.begin(), firedHere.end(), event), firedHere.end());
        event->setQueue (nullptr);
        nextIndex.store (-1);
        jassert (checkInvariantsLocked());
    }
    releaseRetiredEvents();
}

void AudioEventQueue::releaseRetiredEvents()
{
    if (isRenderThread())
        return;
    std::vector<AudioEventPtr> released;
    {
        const juce::ScopedLock sl (lock);
        for (auto it = retired.begin(); it != retired.end();)
        {
            if ((*it)->getReferenceCount() == 1)
            {
                released.push_back (std::move (*it));
                it = retired.erase (it);
            }
            else
            {
                ++it;
            }
        }
    }
    // `released` dies here, outside the lock: an event's destructor may take
    // locks of its own.
}

void AudioEventQueue::reschedule (AudioEvent* event, double time)
{
    if (event == nullptr)
        return;
    const juce::ScopedLock sl (lock);
    event->storeTime (time);
    if (event->getQueue() != this)
        return;
    sortLocked();
    nextIndex.store (-1);
    jassert (checkInvariantsLocked());
}

AudioEventPtr AudioEventQueue::next (int& samplesUntil)
{
    renderThread.store (juce::Thread::getCurrentThreadId(), std::memory_order_relaxed);
    samplesUntil = -1;

    const juce::ScopedLock sl (lock);
    const int n = (int) events.size();
    if (n == 0)
        return nullptr;

    if (timeline->getPosition() != lastPosition)
        firedHere.clear();

    // A looping timeline comes back to earlier events, so the search wraps
    // round once from the cached place.
    const int start = juce::jmax (nextIndex.load(), 0) % n;
    for (int tried = 0; tried <= n; ++tried)
    {
        const int index = (start + tried) % n;
        AudioEvent* candidate = events[(size_t) index].get();
        const double time = candidate->getTime();
        if (! timeline->isReachable (time))
            continue;
        // A negative count means the timeline has no length: not reachable.
        const int until = timeline->samplesUntil (time);
        if (until < 0)
            continue;
        if (until == 0 && std::find (firedHere.begin(), firedHere.end(), candidate) != firedHere.end())
            continue;
        if (! candidate->isEnabled())
            continue;
        nextIndex.store (index);
        samplesUntil = until;
        return AudioEventPtr (candidate);
    }
    return nullptr;
}

void AudioEventQueue::markFired (AudioEvent* event)
{
    const juce::ScopedLock sl (lock);
    const double position = timeline->getPosition();
    if (position != lastPosition)
        firedHere.clear();
    lastPosition = position;
    if (event->getQueue() != this)
        return;
    if (std::find (firedHere.begin(), firedHere.end(), event) == firedHere.end())
        firedHere.push_back (event); // within capacity: at most one entry per queued event
}

int AudioEventQueue::getNumEvents() const
{
    const juce::ScopedLock sl (lock);
    return (int) events.size();
}

bool AudioEventQueue::contains (AudioEvent* event) const
{
    const juce::ScopedLock sl (lock);
    return std::any_of (events.begin(), events.end(), [event] (const AudioEventPtr& e) { return e.get() == event; });
}
} // namespace qvrControllableAudio
