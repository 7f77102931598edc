#pragma once

#include "audio/AbstractAudioEvent.h"
#include "controllable/api/ControllableAPI.h"

class TavrineLoop;

// The events of a loop's own timeline that move its play position. All three
// are made by the loop and live in its queue for the loop's lifetime; they
// read and write the loop's parameters through its handles.
//
// Threads: process on the audio thread (inside the chain, or fired directly
// by the loop and its envelope). The listeners that move an event's time or
// enable it run on the thread that writes the parameter; setTime takes the
// queue's lock for the sort only.

// The end of the loop: at `endLoopFraction`, enabled while `loopingEnabled`.
// Takes over the "next" markers and jumps to the begin. Also keeps
// `nextEndLoop` = `nextBeginLoop` + `nextLoopLength` (wrapped into 0 .. 1).
class EndOfLoopEvent : public qvrControllableAudio::AbstractAudioEvent,
                       private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr int kPriority = 3;

    explicit EndOfLoopEvent (TavrineLoop& loop);
    ~EndOfLoopEvent() override;

    // Stops listening to the loop's parameters; the loop calls it first in
    // its destructor, as the queue may keep the event a little longer.
    void detach();

    void process() override;

    // A marker of 1 or more counts as 0 (the start of the sample).
    static double clampMarker (double marker) noexcept { return marker >= 1.0 ? 0.0 : marker; }
    // Brings a loop length or end into 0 .. 1 by one turn: not above 0
    // gains a turn, above 1 loses one.
    static double wrapLength (double length) noexcept;

private:
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    TavrineLoop& loop;
    bool attached = true;
    // The clamped "next" markers as the last fire took them over.
    double lastNextBegin = 0.0, lastNextEnd = 0.0;
};

// The end of the sample, at 1.0: the position wraps to the start. A loop
// whose end marker lies before its begin marker wraps through here.
class EndOfSampleEvent : public qvrControllableAudio::AbstractAudioEvent
{
public:
    static constexpr int kPriority = 2;

    explicit EndOfSampleEvent (TavrineLoop& loop);
    void process() override;

private:
    TavrineLoop& loop;
};

// The end of a single shot, at `endLoopFraction`, enabled while
// `loopingEnabled` is false: the key stops even while it is held, and the
// read position goes back to the begin.
class SingleShotEndEvent : public qvrControllableAudio::AbstractAudioEvent,
                           private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr int kPriority = 3;

    explicit SingleShotEndEvent (TavrineLoop& loop);
    ~SingleShotEndEvent() override;

    // As EndOfLoopEvent::detach.
    void detach();

    void process() override;

private:
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    TavrineLoop& loop;
    bool attached = true;
};
