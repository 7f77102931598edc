#pragma once

#include <atomic>

#include "audio/AudioSourceChain.h"
#include "controllable/api/ControllableAPI.h"
#include "audio/GainAudioSource.h"
#include "audio/MeridexAudioSource.h"
#include "engine/TavrineMasterTimeline.h"
#include "engine/TriggerSyncMasterSource.h"

class TavrineEngine;
class TavrineLoopMixer;

// The last stage before the rate converter: the loop mixer, the stretcher
// (realtime, one stereo set, bypassed while master and output tempo agree),
// the block size limiter (128 samples, so that stretcher, mixer and loops
// never see a larger request), the output gain with its clipping watch and
// the trigger sync, driven by the master timeline. Owns the master
// parameters and the tempo logic that keeps master and output tempo related
// by output tempo = master tempo / stretchFactor.
//
// Threads: getNextAudioBlock and captureReadAhead on the audio thread.
// parameterChanged runs on the thread that wrote the parameter (the audio
// thread for the host tempo, the message thread for the user's settings); it
// writes tempo parameters there, but what changes keys (releasing them all,
// or stopping everything for a new tempo) it only requests. The audio thread
// acts on the requests at the start of the next block, before the loops'
// pending triggers.
class TavrineMasterChain : public qvrControllableAudio::AudioSourceChain,
                           public qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr const char* kTriggerPlayMode = "triggerPlayMode";
    static constexpr const char* kTriggerPlayModeAvailable = "triggerPlayModeAvailable";
    static constexpr const char* kRenderTrigger = "renderTrigger";
    static constexpr const char* kMasterBpm = "masterBpm";
    static constexpr const char* kOutputBpm = "outputBpm";
    static constexpr const char* kStretchFactor = "stretchFactor";
    static constexpr const char* kMeridexReadAhead = "meridexReadAhead";
    static constexpr const char* kGain = "gain";
    static constexpr const char* kDetectClipping = "detectClipping";
    static constexpr const char* kTriggerSyncSnapMode = "triggerSyncSnapMode";
    static constexpr const char* kTriggerSyncSnapTimes = "triggerSyncSnapTimes";
    // The range of both tempi: what hosts let a user set. A host tempo
    // outside it is held at its edge before it is compared or stored.
    static constexpr double kMinBpm = 1.0;
    static constexpr double kMaxBpm = 999.0;
    static constexpr int kMaxBlockSize = 128;
    static constexpr int kCrossfadeSamples = 64;

    TavrineMasterChain (TavrineEngine& engine, TavrineLoopMixer& mixer);
    ~TavrineMasterChain() override;

    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    // The setting `enableMasterRealtimeStretching`: with it the mix is bent
    // from master to output tempo in real time; without it a tempo change
    // stops everything and prepares again for the new tempo.
    void setRealtimeStretching (bool enabled);
    // Follows the user's setting from now on (message thread, before audio).
    void bindRealtimeStretchingSetting (qvrControllableAPI::ParameterDef* setting);
    bool isRealtimeStretching() const noexcept { return realtimeStretching.load(); }

    // Any thread: every key goes off at the start of the next block.
    void requestReleaseAll() noexcept { releaseAllRequested.store (true); }

    // Audio thread, between segments of the chain's render or between
    // blocks. Captures what the master stretcher holds ahead of the output
    // (the stretcher alone, with its input muted: no other stage, event or
    // position of the chain moves) and resets it; the capture fades out under
    // the next samples the chain renders. Returns the number of samples
    // thrown away (below 1: nothing was held).
    int captureReadAhead();

    // Audio thread: whether a segment is being rendered now (the stretcher,
    // the mixer and the loops are inside their render).
    bool isRenderingSegment() const noexcept { return renderingSegment; }

    TavrineMasterTimeline& getMasterTimeline() noexcept { return *timeline; }

    qvrControllableHandle::BoolParamDefHandle triggerPlayMode { kTriggerPlayMode };
    qvrControllableHandle::BoolParamDefHandle triggerPlayModeAvailable { kTriggerPlayModeAvailable };
    qvrControllableHandle::BoolParamDefHandle renderTrigger { kRenderTrigger };
    qvrControllableHandle::FloatParamDefHandle masterBpm { kMasterBpm };
    qvrControllableHandle::FloatParamDefHandle outputBpm { kOutputBpm };
    // Published by the chain's stages, bound here for the chain's own use.
    qvrControllableHandle::FloatParamDefHandle stretchFactor;
    qvrControllableHandle::FloatParamDefHandle meridexReadAhead;
    qvrControllableHandle::FloatParamDefHandle gain;
    qvrControllableHandle::BoolParamDefHandle detectClipping;
    qvrControllableHandle::IntParamDefHandle triggerSyncSnapMode;
    qvrControllableHandle::FloatParamDefHandle triggerSyncSnapTimes;

    TriggerSyncMasterSource& getTriggerSync() noexcept { return *triggerSync; }

protected:
    // Audio thread: renders the segment, then lays the rest of the capture
    // under it, so that the fade starts on the sample where the flush was.
    void renderSegment (const juce::AudioSourceChannelInfo& info, juce::AudioSource* source, int numSamples) override;

private:
    void defineParameters();
    void applyTempoLogic (qvrControllableAPI::ParameterDef* parameter, bool settingChanged);
    // Audio thread, at the start of each block: the requests of other threads.
    void applyRequests();
    void releaseAllKeys();
    // Audio thread: fades the fresh segment in and lays the running part of
    // the capture under it.
    void mixCaptureUnder (const juce::AudioSourceChannelInfo& info, int numSamples);

    TavrineEngine& engine;
    juce::ReferenceCountedObjectPtr<qvrControllableLib::BasicControllable> ownParameters;
    juce::ReferenceCountedObjectPtr<qvrControllableAudio::MeridexAudioSource> stretcher;
    juce::ReferenceCountedObjectPtr<qvrControllableAudio::BlockSizeLimitingSource> limiter;
    juce::ReferenceCountedObjectPtr<qvrControllableAudio::GainAudioSource> gainSource;
    juce::ReferenceCountedObjectPtr<TriggerSyncMasterSource> triggerSync;
    juce::ReferenceCountedObjectPtr<TavrineMasterTimeline> timeline;
    std::atomic<bool> realtimeStretching { false };
    // Set by any thread, exchanged to false by the audio thread.
    std::atomic<bool> releaseAllRequested { false };
    std::atomic<bool> stopForTempoRequested { false };
    qvrControllableHandle::BoolParamDefHandle realtimeSetting;
    juce::AudioBuffer<float> captureBuffer { 2, kCrossfadeSamples };
    int crossfadeRemaining = 0;
    bool renderingSegment = false;

    JUCE_DECLARE_NON_COPYABLE (TavrineMasterChain)
};
