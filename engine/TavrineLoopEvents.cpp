#include "engine/TavrineLoopEvents.h"

#include <cmath>
#include <utility>

#include "controllable/api/Parameter.h"
#include "engine/TavrineLoop.h"

namespace
{
// Read position in the sample of a fraction of it.
int readPositionOf (double fraction, int totalLength) noexcept
{
    return (int) std::lround (fraction * totalLength);
}

void seekTo (TavrineLoop& loop, int position)
{
    if (loop.nextReadPosition.read() != position)
        loop.nextReadPosition.write (position);
}
} // namespace

//==============================================================================
EndOfLoopEvent::EndOfLoopEvent (TavrineLoop& owner)
    : AbstractAudioEvent (kPriority, "EndOfLoopEvent", owner.endLoopFraction.read()), loop (owner)
{
    setEnabled (loop.loopingEnabled.read());
    lastNextBegin = clampMarker (loop.nextBeginLoop.read());
    lastNextEnd = clampMarker (loop.nextEndLoop.read());
    for (auto* p : { loop.endLoopFraction.get(), loop.loopingEnabled.get(), loop.nextBeginLoop.get(),
                     loop.nextLoopLength.get() })
        p->addChangeListener (this, true);
}

EndOfLoopEvent::~EndOfLoopEvent()
{
    detach();
}

void EndOfLoopEvent::detach()
{
    if (! std::exchange (attached, false))
        return;
    for (auto* p : { loop.endLoopFraction.get(), loop.loopingEnabled.get(), loop.nextBeginLoop.get(),
                     loop.nextLoopLength.get() })
        p->removeChangeListener (this, true);
}

double EndOfLoopEvent::wrapLength (double length) noexcept
{
    if (length <= 0.0)
        return length + 1.0;
    if (length > 1.0)
        return length - 1.0;
    return length;
}

void EndOfLoopEvent::parameterChanged (qvrControllableAPI::ParameterDef* parameter)
{
    if (parameter == loop.endLoopFraction.get())
        setTime (loop.endLoopFraction.read());
    else if (parameter == loop.loopingEnabled.get())
        setEnabled (loop.loopingEnabled.read());
    else
    {
        // An end of exactly 1 stays 1 (it is the end of the sample); the
        // fire counts it as 0.
        double end = loop.nextBeginLoop.read() + loop.nextLoopLength.read();
        if (end > 1.0)
            end -= 1.0;
        else if (end < 0.0)
            end += 1.0;
        if (loop.nextEndLoop.read() != end)
            loop.nextEndLoop.write (end);
    }
}

void EndOfLoopEvent::process()
{
    const double nextBegin = clampMarker (loop.nextBeginLoop.read());
    const double nextEnd = clampMarker (loop.nextEndLoop.read());

    if (nextBegin != lastNextBegin || nextEnd != lastNextEnd)
    {
        // New markers were asked for since the last loop end: they take
        // effect now.
        if (loop.beginLoopFraction.read() != nextBegin)
            loop.beginLoopFraction.write (nextBegin);
        if (loop.endLoopFraction.read() != nextEnd)
            loop.endLoopFraction.write (nextEnd);
    }
    else
    {
        // The markers were moved directly (an editor): the automated
        // length follows them, so that the next automation starts from here.
        // A length of 0 is a whole turn, like 1: an automated 0 is left as
        // it is rather than rewritten as its equal.
        const double length = wrapLength (loop.endLoopFraction.read() - nextBegin);
        if (wrapLength (loop.nextLoopLength.read()) != length)
            loop.nextLoopLength.write (length);
        if (loop.beginLoopFraction.read() != nextBegin)
            loop.beginLoopFraction.write (nextBegin);
    }
    // Whatever the writes above derived is the state this fire leaves.
    lastNextBegin = clampMarker (loop.nextBeginLoop.read());
    lastNextEnd = clampMarker (loop.nextEndLoop.read());

    const int length = loop.totalLength.read();
    if (length <= 0)
        return;
    auto& timeline = loop.getTimeline();
    const double begin = loop.beginLoopFraction.read();
    // A position less than a step away is the begin already: moving it would
    // only disturb the sub-sample phase.
    if (std::abs (timeline.getPosition() - begin) >= timeline.getStep())
        timeline.setPosition (begin);
    seekTo (loop, readPositionOf (begin, length));
    loop.loopJumped();
}

//==============================================================================
EndOfSampleEvent::EndOfSampleEvent (TavrineLoop& owner)
    : AbstractAudioEvent (kPriority, "EndOfSampleEvent", 1.0), loop (owner)
{
}

void EndOfSampleEvent::process()
{
    loop.getTimeline().setPosition (0.0);
    seekTo (loop, 0);
}

//==============================================================================
SingleShotEndEvent::SingleShotEndEvent (TavrineLoop& owner)
    : AbstractAudioEvent (kPriority, "SingleShotEndEvent", owner.endLoopFraction.read()), loop (owner)
{
    setEnabled (! loop.loopingEnabled.read());
    loop.endLoopFraction->addChangeListener (this, true);
    loop.loopingEnabled->addChangeListener (this, true);
}

SingleShotEndEvent::~SingleShotEndEvent()
{
    detach();
}

void SingleShotEndEvent::detach()
{
    if (! std::exchange (attached, false))
        return;
    loop.endLoopFraction->removeChangeListener (this, true);
    loop.loopingEnabled->removeChangeListener (this, true);
}

void SingleShotEndEvent::parameterChanged (qvrControllableAPI::ParameterDef* parameter)
{
    if (parameter == loop.endLoopFraction.get())
        setTime (loop.endLoopFraction.read());
    else
        setEnabled (! loop.loopingEnabled.read());
}

void SingleShotEndEvent::process()
{
    // At the trigger the position stands on the begin, which may be this
    // very time: nothing has played yet, so it is not the end.
    if (loop.samplesPlayedInLoop.read() <= 0)
        return;
    loop.trigger.write (false);
    loop.playing.write (false);
    seekTo (loop, readPositionOf (loop.beginLoopFraction.read(), loop.totalLength.read()));
}
