#pragma once

#include <array>
#include <atomic>

#include "audio/AbstractAudioEvent.h"
#include "controllable/handle/ParamDefHandle.h"
#include "samples/PreparedSample.h"
#include "samples/ReleaseSampleJob.h"

class TavrineLoop;
class TavrineSampleAudioSource;
class TavrineSampleManager;

// The swap of a loop's sample: armed with the new sample at the loop's next
// boundary, it puts the sample in place when the loop's timeline reaches that
// point (under the crossfade of the loop's chain), at once when the loop
// stops while armed, or at once on delivery when the loop is idle.
//
// The sample that leaves goes to the one ReleaseSampleJob of this event and
// the job to the preparation thread, urgently: the audio thread never drops
// the last reference to a sample. When the job's slots are all taken the old
// sample waits in `pendingReleases` and is handed over at the next swap.
//
// Invariants.
// 1. `armed` is set exactly while an arm has not been performed; `newSample`
//    is meaningful only then (it may be null: a failed load silences the loop).
// 2. Every sample the event holds in `pendingReleases` has left the source.
// 3. `newSample` and `pendingReleases` change only under the source's lock.
//
// Owned (counted) by its source and by the loop's event queue, which may keep
// it after the source is gone; it is then detached and inert. Threads: arm
// on the preparation thread holding the source's lock; perform on the audio
// thread (the timeline reached the event, or "playing" changed) or on the
// preparation thread (an idle loop); describe on any thread but the audio
// thread.
class ReplaceSampleEvent : public qvrControllableAudio::AbstractAudioEvent,
                           private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr int kPriority = 3;
    static constexpr int kMaxPendingReleases = 8;

    ReplaceSampleEvent (TavrineSampleAudioSource& source, TavrineLoop& loop, TavrineSampleManager& sampleManager);
    ~ReplaceSampleEvent() override;

    // Stores the sample (taken, left null), arms, and moves the event to
    // `time` on the loop's timeline. The caller holds the source's lock.
    void arm (PreparedSample::Ptr& sample, double time);
    bool isArmed() const noexcept { return armed.load(); }
    bool isEnabled() override { return armed.load(); }
    // Swaps the sample in if armed; nothing otherwise. Takes the source's lock.
    void perform();
    // Audio thread: the timeline reached the event.
    void process() override;
    // "ReplaceSampleEvent (Priority=3, sample=<key>)".
    juce::String describe() const override;

    // The source is going: from now on the event does nothing. Message
    // thread, from the source's destructor.
    void detachSource() noexcept;

    ReleaseSampleJob& getReleaseJob() const noexcept { return *releaseJob; }
    int getNumPendingReleases() const noexcept;

private:
    // A loop that stops (or starts) while armed takes the new sample at once.
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;
    // Hands waiting samples to the release job; true if any went. Under the
    // source's lock.
    bool handOverPendingLocked() noexcept;
    bool keepPendingLocked (PreparedSample::Ptr& sample) noexcept;

    std::atomic<TavrineSampleAudioSource*> source;
    TavrineSampleManager& sampleManager;
    qvrControllableHandle::BoolParamDefHandle playing;
    const ReleaseSampleJobPtr releaseJob;
    const SamplePreparationJob::Ptr releaseJobAsJob;
    PreparedSample::Ptr newSample;
    std::array<PreparedSample::Ptr, kMaxPendingReleases> pendingReleases;
    std::atomic<bool> armed { false };

    JUCE_DECLARE_NON_COPYABLE (ReplaceSampleEvent)
};
