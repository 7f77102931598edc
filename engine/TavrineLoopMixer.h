#pragma once

#include "audio/AudioSourceProvider.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/ShortcutValue.h"

class TavrineEngine;

// Sums the active loops into stereo buses; the root of the master chain.
//
// Threads: prepareToPlay/releaseResources/getNextAudioBlock on the audio
// thread. The mix buffer is sized in prepareToPlay; a longer request is
// rendered in pieces of the prepared size, so a block never allocates.
class TavrineLoopMixer : public qvrControllableAudio::AudioSourceProvider,
                         public juce::AudioSource
{
public:
    explicit TavrineLoopMixer (TavrineEngine& engine);
    ~TavrineLoopMixer() override;

    juce::AudioSource* getAudioSource() override { return this; }

    void setMasterBpm (qvrControllableAPI::ParameterDef* masterBpmParameter) { masterBpm.bind (masterBpmParameter); }
    // Multiple outputs and master realtime stretching exclude each other.
    void setMultipleOutputsEnabled (bool enabled) noexcept { multipleOutputs.store (enabled); }
    // Follows the user's setting (a view: read through a shortcut that walks
    // to the stored switch). Message thread, before audio.
    void bindMultipleOutputsSetting (qvrControllableAPI::ParameterDef* setting);

    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    // The channel pair (offset of the left channel) that bus `bus` lands on in
    // an output of `numChannels` channels; bus 0 when the bus does not exist.
    static int busOffset (int bus, int numOutputBuses, int numChannels, bool multipleOutputsEnabled) noexcept;

private:
    void mixPiece (const juce::AudioSourceChannelInfo& info);

    TavrineEngine& engine;
    juce::AudioBuffer<float> mixBuffer { 2, 0 };
    int preparedBlockSize = 0;
    qvrControllableHandle::FloatParamDefHandle masterBpm;
    std::atomic<bool> multipleOutputs { true };
    qvrControllableLib::BoolShortcutValue multipleOutputsSetting;

    JUCE_DECLARE_NON_COPYABLE (TavrineLoopMixer)
};
