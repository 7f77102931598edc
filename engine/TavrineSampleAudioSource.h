#pragma once

#include <array>
#include <atomic>

#include "audio/MemoryAudioSource.h"
#include "controllable/handle/ParamDefHandle.h"
#include "engine/ReplaceSampleEvent.h"
#include "engine/TavrineLoopPreRenderChain.h"
#include "engine/TavrineLoopPreRenderJob.h"
#include "samples/SamplePreparationJob.h"

class TavrineLoop;
class TavrineSampleManager;

// What a loop plays: a prepared sample in memory, forwards or backwards, and
// the road by which a new one arrives. Changes of the file name and of the
// tempo, pitch and formant settings set "adjusting"; a 150 ms timer, once
// the settings have rested for 201 ms, sets "rendering" and asks the sample
// manager for the sample under the present settings (rendered by the job of
// this source's private TavrineLoopPreRenderChain if they depart from unity).
// The answer arms the ReplaceSampleEvent, which swaps the sample at the
// loop's next boundary, or at once while the loop is idle.
//
// States: idle (neither flag), adjusting (settling), rendering (from the
// request until the swap). "adjusting" may be set again while rendering; the
// timer then waits and renders once more after the swap. "loading" is set by
// whoever assigns "fileName" and cleared by a delivery or by a repeat of the
// key that plays.
//
// Invariants.
// 1. `currentSample` is what plays: the memory source's buffer is its
//    forward or reverse buffer, `totalLength` its length (0 without one).
// 2. A sample leaves `currentSample` only inside the swap, and then into the
//    release job or `pendingReleases`: never is a last reference dropped on
//    the audio thread.
// 3. `currentSample`, the buffer and the position change only under the
//    memory source's lock.
//
// Owned (counted) by its loop, as the root of the loop's chain; the chain,
// the render job and the event live as long as the source. Threads:
// construction, destruction and the timer on the message thread;
// parameterChanged on whichever thread writes a parameter; jobFinished on the
// preparation thread; getNextAudioBlock and the swap on the audio thread (or
// the swap on the preparation thread, for an idle loop).
class TavrineSampleAudioSource : public qvrControllableAudio::MemoryAudioSource,
                                 public qvrControllableAPI::ParameterChangeListener,
                                 private juce::Timer,
                                 public virtual SamplePreparationCallback
{
public:
    static constexpr const char* kReverse = "reverse";
    static constexpr const char* kGlobalReverse = "globalReverse";
    static constexpr const char* kSourceBpm = "sourceBpm";
    static constexpr const char* kRelativeBpm = "relativeBpm";
    static constexpr const char* kLoading = "loading";
    static constexpr const char* kFileName = "fileName";
    static constexpr const char* kResamplingMode = "resamplingMode";
    // In a file name, marks a sample without a beat: a single shot.
    static constexpr const char* kSingleShotMark = "_s_";
    static constexpr int kTimerIntervalMs = 150;
    static constexpr juce::uint32 kSettleMs = 201;

    // masterBpm and outputBpm: the master chain's tempi (outputBpm may be null).
    TavrineSampleAudioSource (TavrineLoop& loop, TavrineSampleManager& sampleManager,
                              qvrControllableAPI::ParameterDef* masterBpm, qvrControllableAPI::ParameterDef* outputBpm);
    ~TavrineSampleAudioSource() override;

    // Audio thread: the forward buffer if "reverse" and "globalReverse" are
    // equal, else the reverse buffer, read as the memory source reads.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    // The reactions to the source's, the chain's, the loop's and the master's
    // parameters, in a fixed order, on the writing thread. The tempo
    // reactions also run on the audio thread (the master chain writes the
    // master tempo there when a tempo change stops everything) and allocate
    // nothing; a file name is never written there.
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    // The delivery of a sample: arms the swap; performs it at once unless the
    // loop plays or waits for a trigger with a sample in place. Preparation
    // thread.
    void jobFinished (PreparedSample::Ptr sample, int result) override;

    // The timer's work at time nowMs (Time::getMillisecondCounter): if the
    // settings have rested for 201 ms and no render is on its way, asks for a
    // sample. Returns whether it asked. Message thread.
    bool checkDebounce (juce::uint32 nowMs);
    juce::uint32 getLastAdjustTimeMs() const noexcept { return lastAdjustTime.load(); }

    // The tempo written in a sample's name: of the part after the last "/"
    // (else the last backslash), characters 7 to 9 if character 1 is "_",
    // else 5 to 7; 0 if that is no number or the URL is empty.
    static double tempoFromName (const juce::String& url);

    // The swap, for ReplaceSampleEvent: the caller holds getSampleLock().
    // Installs `incoming` (taken, left null), keeps the position's place as a
    // fraction of the sample, and hands back the old sample in `outgoing`.
    void installSampleLocked (PreparedSample::Ptr& incoming, PreparedSample::Ptr& outgoing) noexcept;
    // After a swap, outside the lock: "rendering" false, and the length and
    // position told to their listeners.
    void signalSampleReplaced();
    const juce::CriticalSection& getSampleLock() const noexcept { return getLock(); }

    PreparedSample::Ptr getCurrentSample() const;
    TavrineLoopPreRenderChain& getChain() const noexcept { return *chain; }
    TavrineLoopPreRenderJob& getRenderJob() const noexcept { return *renderJob; }
    ReplaceSampleEvent& getReplaceEvent() const noexcept { return *replaceEvent; }
    TavrineLoop& getLoop() const noexcept { return loop; }

    qvrControllableHandle::BoolParamDefHandle reverse { kReverse };
    qvrControllableHandle::BoolParamDefHandle globalReverse { kGlobalReverse };
    qvrControllableHandle::FloatParamDefHandle sourceBpm { kSourceBpm };
    qvrControllableHandle::FloatParamDefHandle relativeBpm { kRelativeBpm };
    qvrControllableHandle::FloatParamDefHandle masterBpm;
    qvrControllableHandle::FloatParamDefHandle outputBpm;
    qvrControllableHandle::BoolParamDefHandle loading { kLoading };
    qvrControllableHandle::StringParamDefHandle fileName { kFileName };
    qvrControllableHandle::FloatParamDefHandle pitchFactor;
    qvrControllableHandle::FloatParamDefHandle pitchSemitonesXy;
    qvrControllableHandle::FloatParamDefHandle pitchSemitonesFine;
    qvrControllableHandle::FloatParamDefHandle stretchFactor;
    qvrControllableHandle::FloatParamDefHandle formantFactorXy;
    qvrControllableHandle::BoolParamDefHandle adjusting;
    qvrControllableHandle::BoolParamDefHandle rendering;
    // The loop's resampler's mode, if the loop has one.
    qvrControllableHandle::IntParamDefHandle resamplingMode;

private:
    // Invariants 1 and 3 as far as they can be seen; the caller holds the lock.
    bool checkInvariantsLocked() const noexcept;
    void timerCallback() override;
    void defineParameters();
    void bindLoopParameters();
    void listen (bool shouldListen);
    void fileNameChanged();
    void updateStretchFactor();
    bool isPitchSpeed() const;

    TavrineLoop& loop;
    TavrineSampleManager& sampleManager;
    const TavrineLoopPreRenderChainPtr chain;
    const TavrineLoopPreRenderJobPtr renderJob;
    const juce::ReferenceCountedObjectPtr<ReplaceSampleEvent> replaceEvent;
    PreparedSample::Ptr currentSample;
    std::atomic<juce::uint32> lastAdjustTime { 0 };

    JUCE_DECLARE_NON_COPYABLE (TavrineSampleAudioSource)
};

using TavrineSampleAudioSourcePtr = juce::ReferenceCountedObjectPtr<TavrineSampleAudioSource>;
