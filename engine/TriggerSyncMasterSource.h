#pragma once

#include <array>
#include <atomic>

#include "audio/AbstractAudioEvent.h"
#include "audio/AudioEventQueue.h"
#include "audio/AudioSourceProvider.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"

class TavrineEngine;
class TavrineLoop;
class TavrineMasterTimeline;
class SnapParameterFactory;

// Keeps loops started in trigger play mode on one free-running grid. The
// first loop of a group starts at once and defines the grid; later ones wait
// for the next tick; loops whose sample name holds "_s_" stay outside. The
// source passes audio through untouched; its one event in the master
// timeline's queue ticks the grid.
//
// Threads: addToTriggerGroup, checkSyncTick, reschedule and the event run on
// the audio thread. A change of the grid's parameters, on whatever thread,
// only asks for a reschedule, done at the start of the master chain's next
// block (after the timeline's own restart). The group is preallocated for
// every loop in a fixed array, so neither joining nor leaving allocates (a
// juce::Array shrinks its storage on removal, on the audio thread).
class TriggerSyncMasterSource : public qvrControllableAudio::ChainableAudioSourceProvider,
                                public juce::AudioSource,
                                public qvrControllableLib::BasicControllable,
                                private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr int kDefaultSnapMode = 4;

    // The event goes into `queue`, the master chain's queue over `timeline`.
    TriggerSyncMasterSource (TavrineEngine& engine, TavrineMasterTimeline& timeline,
                             qvrControllableAudio::AudioEventQueue& queue, SnapParameterFactory& factory,
                             qvrControllableAPI::ParameterDef* triggerPlayMode,
                             qvrControllableAPI::ParameterDef* masterBpm);
    ~TriggerSyncMasterSource() override;

    juce::AudioSource* getAudioSource() override { return this; }
    Controllable* getControllable() override { return this; }

    void prepareToPlay (int, double) override {}
    void releaseResources() override {}
    // Audio thread: the upstream, untouched.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    // The next grid position after `position` (bars): the first snap time t
    // of the current bar with t - fraction above 1 / (n + 1), else the next
    // bar's start.
    double nextTick (double position) const;
    // start: join the group (true: start now; false: wait for a tick).
    // !start: leave it (always true).
    bool addToTriggerGroup (TavrineLoop* loop, bool start);
    // After each block: a tick the timeline ran past by more than one block
    // is moved to the next grid position.
    void checkSyncTick (int blockSize);
    // Moves the event to the next tick after the timeline's position.
    void reschedule();
    // Audio thread, at the start of a block: reschedules if the grid changed.
    void applyRequestedReschedule();

    bool isInGroup (const TavrineLoop* loop) const noexcept { return indexInGroup (loop) >= 0; }
    int getGroupSize() const noexcept { return groupSize; }
    int getNumTicks() const noexcept { return ticks; }
    qvrControllableAudio::AudioEvent* getEvent() const noexcept { return event.get(); }

    qvrControllableHandle::IntParamDefHandle triggerSyncSnapMode;
    qvrControllableHandle::FloatParamDefHandle triggerSyncSnapTimes;

private:
    class TickEvent;
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;
    // On the thread of the write: copies the value the audio thread needs.
    void mirror (qvrControllableAPI::ParameterDef* parameter);
    void tick();

    TavrineEngine& engine;
    TavrineMasterTimeline& timeline;
    // Counted: the chain may let go of its queue before its stages, and the
    // event must leave the queue when this source goes.
    juce::ReferenceCountedObjectPtr<qvrControllableAudio::AudioEventQueue> queue;
    qvrControllableHandle::BoolParamDefHandle triggerPlayMode;
    qvrControllableHandle::FloatParamDefHandle masterBpm;
    int indexInGroup (const TavrineLoop* loop) const noexcept;

    static constexpr int kGroupCapacity = 72;
    std::array<TavrineLoop*, kGroupCapacity> group {};
    int groupSize = 0;
    juce::ReferenceCountedObjectPtr<qvrControllableAudio::AbstractAudioEvent> event;
    int ticks = 0;
    std::atomic<bool> rescheduleRequested { false };
    // What the audio thread reads of the grid's parameters, copied by the
    // listener: the parameters themselves may be written on another thread
    // while a block renders.
    std::atomic<bool> playModeOn { false };
    std::atomic<bool> tempoKnown { false };
    std::atomic<int> snapDivisions { kDefaultSnapMode };

    JUCE_DECLARE_NON_COPYABLE (TriggerSyncMasterSource)
};
