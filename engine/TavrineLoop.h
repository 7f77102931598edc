#pragma once

#include <atomic>

#include "audio/MemorizingAudioChain.h"
#include "controllable/handle/ParamDefHandle.h"

class TavrineEngine;
class TavrineLoopMixer;

// One playable key: its parameters and its chain. The engine makes 72 at
// start-up; a loop exists whether or not a sample is assigned. The chain
// memorises what it played, so that the engine can have it replayed after
// the master stretcher drops its read-ahead.
//
// Threads: parameters are written from the message thread or host threads and
// read on the audio thread through raw handles. `trigger` itself changes on
// the audio thread only (triggerKey); other threads set the pending trigger.
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
    static constexpr const char* kTotalLength = "totalLength";
    static constexpr const char* kNextReadPosition = "nextReadPosition";
    static constexpr const char* kResamplingLengthRatio = "resamplingLengthRatio";
    static constexpr const char* kEnvelopeAttack = "envelopeAttack";
    static constexpr const char* kEnvelopeRelease = "envelopeRelease";
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
    // Audio thread: whether the mixer must render this loop.
    bool isActive() const noexcept;

    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    TavrineEngine& getEngine() const noexcept { return engine; }
    int getOutputBus() const noexcept { return outputBus.read(); }

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
    qvrControllableHandle::IntParamDefHandle totalLength { kTotalLength };
    qvrControllableHandle::IntParamDefHandle nextReadPosition { kNextReadPosition };
    qvrControllableHandle::FloatParamDefHandle resamplingLengthRatio { kResamplingLengthRatio };
    qvrControllableHandle::IntParamDefHandle envelopeAttack { kEnvelopeAttack };
    qvrControllableHandle::IntParamDefHandle envelopeRelease { kEnvelopeRelease };
    qvrControllableHandle::BoolParamDefHandle loopingEnabled { kLoopingEnabled };
    qvrControllableHandle::FloatParamDefHandle beginLoopFraction { kBeginLoopFraction };
    qvrControllableHandle::FloatParamDefHandle endLoopFraction { kEndLoopFraction };
    qvrControllableHandle::FloatParamDefHandle nextBeginLoop { kNextBeginLoop };
    qvrControllableHandle::FloatParamDefHandle nextEndLoop { kNextEndLoop };
    qvrControllableHandle::FloatParamDefHandle nextLoopLength { kNextLoopLength };
    qvrControllableHandle::BoolParamDefHandle reverse { kReverse };
    qvrControllableHandle::BoolParamDefHandle globalReverse { kGlobalReverse };
    qvrControllableHandle::BoolParamDefHandle loading { kLoading };
    qvrControllableHandle::BoolParamDefHandle adjusting { kAdjusting };
    qvrControllableHandle::BoolParamDefHandle rendering { kRendering };

protected:
    // Audio thread: counts the samples played since the trigger.
    void segmentRendered (int numSamples) override;
    // Audio thread: moves the read position back by numSamples, modulo the
    // sample's length, and takes them off the count since the trigger.
    void rewind (int numSamples) override;

private:
    void defineParameters (int numOutputBuses);
    // Keeps the pending trigger equal to the trigger after every change, so
    // that a pending request is acted on once.
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    TavrineEngine& engine;
    TavrineLoopMixer& mixer;
    juce::ReferenceCountedObjectPtr<qvrControllableLib::BasicControllable> ownParameters;
    int keyIndex = -1;
    std::atomic<bool> pendingTrigger { false };
    std::atomic<bool> noBeat { false };
    std::atomic<float> pendingVelocity { 1.0f };

    JUCE_DECLARE_NON_COPYABLE (TavrineLoop)
};

using TavrineLoopPtr = juce::ReferenceCountedObjectPtr<TavrineLoop>;
