#pragma once

#include <atomic>

#include "audio/AudioEvent.h"

namespace qvrControllableAudio
{
// The usual base of events: priority, queue, time and the enabled flag, and
// the firing protocol. Subclasses give their class name (for describe) and
// implement process.
//
// Threads: as AudioEvent. `time` and `enabled` are atomics because the queue
// reads them on the audio thread while other threads may set them.
class AbstractAudioEvent : public AudioEvent
{
public:
    // className is the name describe prints, e.g. "EndOfLoopEvent".
    AbstractAudioEvent (int priority, const char* className, double time = 0.0);
    ~AbstractAudioEvent() override;

    int getPriority() const noexcept override { return priority; }
    double getTime() const noexcept override { return time.load (std::memory_order_relaxed); }
    void setTime (double newTime) override;
    bool isEnabled() override { return enabled.load (std::memory_order_relaxed); }
    void setEnabled (bool shouldBeEnabled) noexcept { enabled.store (shouldBeEnabled, std::memory_order_relaxed); }
    void fire() override;
    juce::String describe() const override;

    AudioEventQueue* getQueue() const noexcept override { return queue.load(); }
    void setQueue (AudioEventQueue* newQueue) noexcept override { queue.store (newQueue); }

    void storeTime (double newTime) noexcept override { time.store (newTime, std::memory_order_relaxed); }

private:
    const int priority;
    const char* const className;
    // Not counted: the queue holds the event, not the other way round.
    std::atomic<AudioEventQueue*> queue { nullptr };
    std::atomic<double> time;
    std::atomic<bool> enabled { true };

    JUCE_DECLARE_NON_COPYABLE (AbstractAudioEvent)
};
} // namespace qvrControllableAudio
