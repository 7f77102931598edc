#include "engine/TriggerSyncMasterSource.h"

#include <algorithm>
#include <cmath>

#include "audio/AudioEventQueue.h"
#include "engine/SnapParameterFactory.h"
#include "engine/TavrineEngine.h"

using namespace qvrControllableAPI;

// The grid tick: priority 0, so that on a shared position every other event
// of the master timeline has fired before loops are started.
class TriggerSyncMasterSource::TickEvent : public qvrControllableAudio::AbstractAudioEvent
{
public:
    explicit TickEvent (TriggerSyncMasterSource& s) : AbstractAudioEvent (0, "TriggerSyncMasterEvent"), source (s) {}

    // Enabled while trigger play mode is on and a master tempo is known.
    bool isEnabled() override
    {
        return AbstractAudioEvent::isEnabled() && source.playModeOn.load() && source.tempoKnown.load();
    }

    void process() override { source.tick(); }

private:
    TriggerSyncMasterSource& source;
};

TriggerSyncMasterSource::TriggerSyncMasterSource (TavrineEngine& owner, TavrineMasterTimeline& masterTimeline,
                                                  qvrControllableAudio::AudioEventQueue& eventQueue,
                                                  SnapParameterFactory& factory, ParameterDef* triggerPlayModeParameter,
                                                  ParameterDef* masterBpmParameter)
    : engine (owner), timeline (masterTimeline), queue (&eventQueue), triggerPlayMode (triggerPlayModeParameter),
      masterBpm (masterBpmParameter)
{
    const auto grid = factory.createGrid (*this, "triggerSync", kDefaultSnapMode, false);
    triggerSyncSnapMode.bind (grid.snapMode);
    triggerSyncSnapTimes.bind (grid.snapTimes);

    static_assert (kGroupCapacity == TavrineEngine::kNumLoops, "the group holds every loop");
    event = new TickEvent (*this);
    queue->add (event.get());

    for (auto* p : { triggerSyncSnapMode.get(), triggerPlayMode.get(), masterBpm.get() })
    {
        mirror (p);
        p->addChangeListener (this, true);
    }
}

TriggerSyncMasterSource::~TriggerSyncMasterSource()
{
    for (auto* p : { triggerSyncSnapMode.get(), triggerPlayMode.get(), masterBpm.get() })
        p->removeChangeListener (this, true);
    queue->remove (event.get());
}

void TriggerSyncMasterSource::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    if (auto* upstream = getUpstreamSource())
        upstream->getNextAudioBlock (info);
    else
        info.clearActiveBufferRegion();
}

double TriggerSyncMasterSource::nextTick (double position) const
{
    const double floorBar = std::floor (position);
    const double fraction = position - floorBar;
    // The grid is i / n, the same positions the snap times list holds; the
    // list itself may be rebuilt on the message thread meanwhile.
    const int n = juce::jmax (1, snapDivisions.load());
    for (int i = 0; i <= n; ++i)
    {
        const double t = (double) i / n;
        if (t - fraction > 1.0 / (n + 1))
            return floorBar + t;
    }
    return floorBar + 1.0;
}

void TriggerSyncMasterSource::reschedule()
{
    event->setTime (nextTick (timeline.getPosition()));
}

int TriggerSyncMasterSource::indexInGroup (const TavrineLoop* loop) const noexcept
{
    for (int i = 0; i < groupSize; ++i)
        if (group[(size_t) i] == loop)
            return i;
    return -1;
}

bool TriggerSyncMasterSource::addToTriggerGroup (TavrineLoop* loop, bool start)
{
    if (! start)
    {
        // Members keep their order: the first is the one that set the grid.
        if (const int index = indexInGroup (loop); index >= 0)
        {
            std::copy (group.begin() + index + 1, group.begin() + groupSize, group.begin() + index);
            group[(size_t) --groupSize] = nullptr;
        }
        return true;
    }
    // A sample without a beat plays at once and leaves the grid alone.
    if (loop->hasNoBeat())
        return true;
    if (! isInGroup (loop) && groupSize < kGroupCapacity)
        group[(size_t) groupSize++] = loop;
    if (groupSize > 1)
        return ! playModeOn.load();

    // The first loop defines the grid: it starts now, and the grid with it.
    timeline.setPosition (0.0);
    reschedule();
    return true;
}

void TriggerSyncMasterSource::checkSyncTick (int blockSize)
{
    const double time = event->getTime();
    if (time <= 0.0)
        return;
    if (timeline.getPosition() - time > timeline.getStep() * blockSize)
        reschedule();
}

void TriggerSyncMasterSource::tick()
{
    reschedule();
    ++ticks;
    for (auto* loop : engine.getLoops())
        loop->syncTick();
}

void TriggerSyncMasterSource::mirror (ParameterDef* parameter)
{
    if (parameter == triggerPlayMode.get())
        playModeOn.store (triggerPlayMode.read());
    else if (parameter == masterBpm.get())
        tempoKnown.store (masterBpm.read() > 0.0);
    else if (parameter == triggerSyncSnapMode.get())
        snapDivisions.store (triggerSyncSnapMode.read());
}

void TriggerSyncMasterSource::parameterChanged (ParameterDef* parameter)
{
    mirror (parameter);
    rescheduleRequested.store (true);
}

void TriggerSyncMasterSource::applyRequestedReschedule()
{
    if (rescheduleRequested.exchange (false))
        reschedule();
}
