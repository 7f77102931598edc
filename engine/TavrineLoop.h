#pragma once

#include <atomic>

#include <memory>
#include <vector>

#include "audio/GainAudioSource.h"
#include "audio/InterpolatedBalanceSource.h"
#include "audio/MemorizingAudioChain.h"
#include "audio/MemoryAudioSource.h"
#include "audio/ParamEqSource.h"
#include "audio/SliceAwareResampler.h"
#include "controllable/handle/ParamDefHandle.h"
#include "engine/FloatValueCombiner.h"
#include "engine/TavrineLoopEvents.h"
#include "engine/TavrineLoopTimeline.h"
#include "engine/TimeStretchTypeListener.h"
#include "engine/TriggerEnvelopeSource.h"

class TavrineEngine;
class TavrineLoopMixer;

// One playable key: its parameters and its chain. The engine makes 72 at
// start-up; a loop exists whether or not a sample is assigned. The chain
// memorises what it played, so that the engine can have it replayed after
// the master stretcher drops its read-ahead.
//
// The chain, from root to output: the sample source (a plain empty
// MemoryAudioSource until setSampleSource installs the real one), the
// resampler, gain, balance, equaliser and the trigger envelope; all of them
// take part in the crossfade that hides every event of the loop's timeline.
// The timeline counts in fractions of the sample and holds the loop's end,
// the sample's end and the single shot's end.
//
// Parameters the loop publishes but does not own: `totalLength`,
// `nextReadPosition`, `sourceLooping` and whatever else the sample source
// defines ("reverse", "globalReverse", "loading", "adjusting", "rendering",
// "fileName" ...) come from the root; the loop keeps stand-ins for the
// first seven, published after the root so that the root's win. The
// handles below always point at whichever is published.
//
// Play state, as the keyboard reads it (getKeyState):
//   idle      trigger false, playing false: silent, timeline at the begin
//   waiting   trigger true,  playing false: waits for the next sync tick
//   playing   trigger true,  playing true
//   released  trigger false, playing true: envelope falling
// The envelope's trigger listener moves idle -> playing or waiting; the
// sync tick waiting -> playing; trigger off playing -> released; the end of
// the release, or of a single shot, -> idle. While the sample source says
// loading, adjusting or rendering, that is the state shown.
//
// Threads: parameters are written from the message thread or host threads and
// read on the audio thread through raw handles. `trigger` itself changes on
// the audio thread only (triggerKey); other threads set the pending trigger.
// The chain is built, and the sample source installed, on the message thread
// before audio and before the first parameter lookup.
class TavrineLoop : public qvrControllableAudio::MemorizingAudioChain,
                    private qvrControllableAPI::ParameterChangeListener
{
public:
    // Parameter names, spelled once.
    static constexpr const char* kTrigger = "trigger";
    static constexpr const char* kPlaying = "playing";
    static constexpr const char* kFreeMode = "freeMode";
    static constexpr const char* kSamplesPlayedInLoop = "samplesPlayedInLoop";
    static constexpr const char* kGainXy = "gain.xyMode";
    static constexpr const char* kGainFine = "gain.fine";
    static constexpr const char* kBalanceXy = "balance.xyMode";
    static constexpr const char* kResamplingRatioXy = "resamplingRatio.xyMode";
    static constexpr const char* kResamplingRatioFine = "resamplingRatio.fine";
    static constexpr const char* kFilterFrequencyXy = "filterFrequency.xyMode";
    static constexpr const char* kFilterGainXy = "filterGain.xyMode";
    static constexpr const char* kFilterQXy = "filterQ.xyMode";
    static constexpr const char* kColourCode = "colourCode";
    static constexpr const char* kOutputBus = "outputBus";
    static constexpr const char* kTotalLength = qvrControllableAudio::MemoryAudioSource::kTotalLength;
    static constexpr const char* kNextReadPosition = qvrControllableAudio::MemoryAudioSource::kNextReadPosition;
    static constexpr const char* kResamplingSliceSum = "resamplingSliceSum";
    static constexpr const char* kTimeStretchType = "timeStretchType";
    static constexpr const char* kTimeEffectType = "timeEffectType";
    static constexpr const char* kLoopingEnabled = "loopingEnabled";
    static constexpr const char* kBeginLoopFraction = "beginLoopFraction";
    static constexpr const char* kEndLoopFraction = "endLoopFraction";
    static constexpr const char* kNextBeginLoop = "nextBeginLoop";
    static constexpr const char* kNextEndLoop = "nextEndLoop";
    static constexpr const char* kNextLoopLength = "nextLoopLength";
    static constexpr const char* kReverse = "reverse";
    static constexpr const char* kGlobalReverse = "globalReverse";
    static constexpr const char* kLoading = "loading";
    static constexpr const char* kAdjusting = "adjusting";
    static constexpr const char* kRendering = "rendering";
    // Samples per channel the loop can replay: more than the master
    // stretcher ever holds ahead (the ring rounds it up to 32768).
    static constexpr int kMemoryCapacitySamples = 27648;

    enum class KeyState
    {
        idle,
        waiting,
        playing,
        released,
        loading,
        adjusting,
        rendering
    };

    TavrineLoop (TavrineEngine& engine, TavrineLoopMixer& mixer, int numOutputBuses);
    ~TavrineLoop() override;

    // Any thread: asks the audio thread to trigger (or release) this key at
    // the start of the next master block.
    void setPendingTrigger (bool on, float velocity);
    // Audio thread, at the start of each master block.
    void applyPendingTrigger();
    // Audio thread, on each tick of the trigger sync grid: a loop that waits
    // for the grid (triggered, not playing) starts now.
    void syncTick();
    // A sample whose file name holds "_s_" has no beat and stays out of the
    // trigger group. Set when the loop's sample changes.
    void setSampleName (const juce::String& fileName) noexcept { noBeat.store (fileName.contains ("_s_")); }
    bool hasNoBeat() const noexcept { return noBeat.load(); }
    // Audio thread: whether the mixer must render this loop: playing or
    // triggered, or a jump back to the begin is still to come.
    bool isActive() const noexcept;
    // Writes the velocity to `gain.fine` if it changed.
    void setVelocity (double velocity);
    KeyState getKeyState() const noexcept;

    // Message thread, before audio and before the first parameter lookup:
    // makes `source` the root of the chain (the loop holds a counted
    // reference) and publishes its parameters under the loop's path. The
    // source is set to loop, so that the crossfade at the sample's end
    // continues into its start.
    void setSampleSource (qvrControllableAudio::MemoryAudioSource* source);
    qvrControllableAudio::MemoryAudioSource* getSampleSource() const noexcept { return sampleSource.get(); }
    // As setSampleSource for any head; the first link is linked to it anew.
    void setHead (qvrControllableAudio::AudioSourceProvider* provider) override;

    // Message thread: ties `timeStretchType` to the stretch source's
    // `meridexProcMode` and the resampler's `resamplingMode`
    // (TimeStretchTypeListener). setSampleSource does it when the root
    // publishes `meridexProcMode`; otherwise whoever builds the stretch
    // source calls it. A second call replaces the first.
    void bindTimeStretchParameters (qvrControllableAPI::ParameterDef* meridexProcMode);

    TavrineLoopTimeline& getTimeline() noexcept { return *timeline; }
    // Where on the timeline the next loop end falls: the end marker (0 and 1
    // meaning the end of the sample, 1.0), looping or as a single shot.
    double getNextLoopBoundary() const noexcept;
    // Message thread: one more event in the loop's timeline (a sample swap).
    void addTimelineEvent (qvrControllableAudio::AudioEvent* event);

    // Audio thread.
    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    // Audio thread, for the envelope and the loop's events: the count since
    // the trigger starts again and the loop jumps to its begin.
    void restartAtBegin();
    // Audio thread: the timeline jumped; what counts per slice starts again.
    void loopJumped() noexcept;
    // Audio thread: asks the trigger group to take the loop in (start) or
    // out; true if the loop may play now.
    bool enterTriggerGroup (bool start);
    // Set by the trigger-off listener, taken by the next block.
    void requestRelease() noexcept { releaseRequested.store (true); }
    void clearReleaseRequest() noexcept { releaseRequested.store (false); }

    TavrineEngine& getEngine() const noexcept { return engine; }
    int getOutputBus() const noexcept { return outputBus.read(); }
    TriggerEnvelopeSource& getEnvelopeSource() noexcept { return *envelope; }
    qvrControllableAudio::SliceAwareResampler& getResampler() noexcept { return *resampler; }
    qvrControllableAudio::GainAudioSource& getGainSource() noexcept { return *gainSource; }
    qvrControllableAudio::ParamEqSource& getEqSource() noexcept { return *eq; }
    EndOfLoopEvent& getEndOfLoopEvent() noexcept { return *endOfLoop; }

    qvrControllableHandle::BoolParamDefHandle trigger { kTrigger };
    qvrControllableHandle::BoolParamDefHandle playing { kPlaying };
    qvrControllableHandle::BoolParamDefHandle freeMode { kFreeMode };
    qvrControllableHandle::IntParamDefHandle samplesPlayedInLoop { kSamplesPlayedInLoop };
    qvrControllableHandle::FloatParamDefHandle gainXy { kGainXy };
    qvrControllableHandle::FloatParamDefHandle gainFine { kGainFine };
    qvrControllableHandle::FloatParamDefHandle balanceXy { kBalanceXy };
    qvrControllableHandle::FloatParamDefHandle resamplingRatioXy { kResamplingRatioXy };
    qvrControllableHandle::FloatParamDefHandle resamplingRatioFine { kResamplingRatioFine };
    qvrControllableHandle::FloatParamDefHandle filterFrequencyXy { kFilterFrequencyXy };
    qvrControllableHandle::FloatParamDefHandle filterGainXy { kFilterGainXy };
    qvrControllableHandle::FloatParamDefHandle filterQXy { kFilterQXy };
    qvrControllableHandle::StringParamDefHandle colourCode { kColourCode };
    qvrControllableHandle::IntParamDefHandle outputBus { kOutputBus };
    qvrControllableHandle::FloatParamDefHandle resamplingSliceSum { kResamplingSliceSum };
    qvrControllableHandle::StringParamDefHandle timeStretchType { kTimeStretchType };
    qvrControllableHandle::StringParamDefHandle timeEffectType;
    qvrControllableHandle::BoolParamDefHandle loopingEnabled { kLoopingEnabled };
    qvrControllableHandle::FloatParamDefHandle beginLoopFraction { kBeginLoopFraction };
    qvrControllableHandle::FloatParamDefHandle endLoopFraction { kEndLoopFraction };
    qvrControllableHandle::FloatParamDefHandle nextBeginLoop { kNextBeginLoop };
    qvrControllableHandle::FloatParamDefHandle nextEndLoop { kNextEndLoop };
    qvrControllableHandle::FloatParamDefHandle nextLoopLength { kNextLoopLength };

    // Bound to the sample source's parameter of the name, else to the loop's
    // stand-in.
    qvrControllableHandle::IntParamDefHandle totalLength;
    qvrControllableHandle::IntParamDefHandle nextReadPosition;
    qvrControllableHandle::BoolParamDefHandle reverse;
    qvrControllableHandle::BoolParamDefHandle globalReverse;
    qvrControllableHandle::BoolParamDefHandle loading;
    qvrControllableHandle::BoolParamDefHandle adjusting;
    qvrControllableHandle::BoolParamDefHandle rendering;

protected:
    // Audio thread: counts the samples played since the trigger.
    void segmentRendered (int numSamples) override;
    // Audio thread: moves the read position back by numSamples, modulo the
    // sample's length, and takes them off the count since the trigger.
    void rewind (int numSamples) override;

private:
    // Stand-ins for the sample source's parameters, and the constant
    // outputs of the slice sequencers (not published).
    struct SourceStandIns
    {
        qvrControllableHandle::IntParamDefHandle totalLength { kTotalLength };
        qvrControllableHandle::IntParamDefHandle nextReadPosition { kNextReadPosition };
        qvrControllableHandle::BoolParamDefHandle reverse { kReverse };
        qvrControllableHandle::BoolParamDefHandle globalReverse { kGlobalReverse };
        qvrControllableHandle::BoolParamDefHandle loading { kLoading };
        qvrControllableHandle::BoolParamDefHandle adjusting { kAdjusting };
        qvrControllableHandle::BoolParamDefHandle rendering { kRendering };
    };
    struct SequencerOutputs
    {
        qvrControllableHandle::FloatParamDefHandle gain { "gain.sequencer" };
        qvrControllableHandle::FloatParamDefHandle balance { "balance.sequencer" };
        qvrControllableHandle::FloatParamDefHandle filterFrequency { "filterFrequency.sequencer" };
        qvrControllableHandle::FloatParamDefHandle filterGain { "filterGain.sequencer" };
        qvrControllableHandle::FloatParamDefHandle filterQ { "filterQ.sequencer" };
        qvrControllableHandle::FloatParamDefHandle resamplingRatio { "resamplingRatio.sequencer" };
    };

    void defineParameters (int numOutputBuses);
    void defineStandIns();
    void buildChain();
    void attachCombiners();
    // Points the loop's handles, the timeline and the resampler at the
    // parameters of the present root.
    void bindSourceParameters();
    // Keeps the pending trigger equal to the trigger after every change, so
    // that a pending request is acted on once.
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    TavrineEngine& engine;
    TavrineLoopMixer& mixer;
    juce::ReferenceCountedObjectPtr<qvrControllableLib::BasicControllable> ownParameters;
    juce::ReferenceCountedObjectPtr<qvrControllableLib::BasicControllable> standInHolder;
    SourceStandIns standIns;
    SequencerOutputs sequencers;
    qvrControllableAudio::MemoryAudioSourcePtr sampleSource;
    qvrControllableAudio::SliceAwareResamplerPtr resampler;
    qvrControllableAudio::GainAudioSourcePtr gainSource;
    qvrControllableAudio::InterpolatedBalanceSourcePtr balanceSource;
    juce::ReferenceCountedObjectPtr<qvrControllableAudio::ParamEqSource> eq;
    TriggerEnvelopeSourcePtr envelope;
    TavrineLoopTimelinePtr timeline;
    juce::ReferenceCountedObjectPtr<EndOfLoopEvent> endOfLoop;
    juce::ReferenceCountedObjectPtr<EndOfSampleEvent> endOfSample;
    juce::ReferenceCountedObjectPtr<SingleShotEndEvent> singleShotEnd;
    std::vector<std::unique_ptr<FloatValueCombiner>> combiners;
    std::unique_ptr<TimeStretchTypeListener> timeStretchListener;
    int preparedBlockSize = 0;
    double preparedSampleRate = 0.0;
    int keyIndex = -1;
    std::atomic<bool> releaseRequested { false };
    std::atomic<bool> pendingTrigger { false };
    std::atomic<bool> noBeat { false };
    std::atomic<float> pendingVelocity { 1.0f };

    JUCE_DECLARE_NON_COPYABLE (TavrineLoop)
};

using TavrineLoopPtr = juce::ReferenceCountedObjectPtr<TavrineLoop>;
