#pragma once

#include <array>
#include <atomic>
#include <memory>

#include "audio/ParameterInterpolator.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"
#include "dsp/CParametricEqIf.h"

namespace qvrParamEQ
{
class CParametricEq;
}

namespace qvrControllableAudio
{
// The equaliser of a chain link: up to six cascaded second-order stages of
// one type, 12 dB per octave each, on the first two channels of the block.
//
// `filterType` "Off", "Low", "High", "Band", "Notch" selects the biquad type
// (low-pass, high-pass, band-pass, notch); "Off" bypasses every stage and
// leaves the type as it was. `filterSlope` "12dB" .. "72dB" sets how many
// stages run. `filterFrequency` and `filterQ` are smoothed over 1024 samples
// and sent to the stages once per sub-block of 64 samples, only when they
// moved. `filterGain` is published for the user interface and the slice
// combiners but not sent to the stages.
//
// Crossfades: saveCrossfadeState takes what was chosen before it; while
// inCrossfade is set, type, slope and coefficients then stay as they are, so
// the pre-render continues the audio that was playing. In the first call
// after a crossfade, every ramp lands on its target and the running stages
// are cleared: the new audio fades in from silence, so it starts with fresh
// filters at the new settings.
//
// Invariants:
// 1. activeStages is 0 for "Off", else the slope index + 1.
// 2. Every stage holds the type of the last type other than "Off", and the
//    frequency and Q last sent (sentFrequency, sentQ).
// 3. A stage that starts running again starts from a cleared state.
//
// Threads: construction on the message thread; the type and slope listener on
// whatever thread writes them (it only records the choice and raises a flag);
// rendering, the crossfade calls and all calls into the stages on the audio
// thread. prepareToPlay remakes the stages when the sample rate differs from
// theirs (44100 Hz at construction).
class ParamEqSource : public qvrControllableLib::BasicControllable,
                      public ChainableAudioSourceProvider,
                      public CrossfadableSource,
                      private juce::AudioSource,
                      private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr const char* kFilterType = "filterType";
    static constexpr const char* kFilterSlope = "filterSlope";
    static constexpr const char* kFilterFrequency = "filterFrequency";
    static constexpr const char* kFilterQ = "filterQ";
    static constexpr const char* kFilterGain = "filterGain";
    static constexpr int kNumStages = 6;
    static constexpr int kSubBlockSamples = 64;
    static constexpr int kRampSamples = 1024;

    ParamEqSource();
    ~ParamEqSource() override;

    juce::AudioSource* getAudioSource() override { return &interpolator; }
    qvrControllableAPI::Controllable* getControllable() override { return this; }

    // Audio thread. What was chosen before the crossfade takes effect now.
    void saveCrossfadeState() override;
    void restoreCrossfadeState() override { inCrossfade = false; }

    ParameterInterpolator& getInterpolator() noexcept { return interpolator; }
    // Audio thread (or while nothing renders): what the stages are set to.
    int getNumActiveStages() const noexcept { return activeStages; }
    const qvrParamEQ::CParametricEqIf* getStage (int index) const noexcept;

    qvrControllableHandle::StringParamDefHandle filterType { kFilterType };
    qvrControllableHandle::StringParamDefHandle filterSlope { kFilterSlope };
    qvrControllableHandle::FloatParamDefHandle filterFrequency { kFilterFrequency };
    qvrControllableHandle::FloatParamDefHandle filterQ { kFilterQ };
    qvrControllableHandle::FloatParamDefHandle filterGain { kFilterGain };

private:
    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread: one sub-block, in place.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    void takePendingShape();
    void createStages (double sampleRate);
    void applyShape (int newTypeIndex, int newSlopeIndex);
    void refreshCoefficients (bool forced);
    void resetStages (int first, int last);
    void processStages (const juce::AudioSourceChannelInfo& info);
    // Audio thread: the active stages in order over numSamples frames of the
    // two channels, in place.
    void runStages (float* const* channels, int numSamples);
    bool checkInvariants() const noexcept;

    ParameterInterpolator interpolator;
    const ShadowValue* smoothedFrequency = nullptr;
    const ShadowValue* smoothedQ = nullptr;
    std::array<std::unique_ptr<qvrParamEQ::CParametricEqIf>, kNumStages> stages;
    // The same stages as the section class that runs them as one cascade,
    // null where stages is. Valid only while cascadeUsable, which holds when
    // every stage that exists is of that class (the only one createInstance
    // makes); otherwise the stages run one after another through process.
    std::array<qvrParamEQ::CParametricEq*, kNumStages> cascade {};
    bool cascadeUsable = false;
    double stageRate = 0.0;
    int typeIndex = 0;
    int slopeIndex = 1;
    int activeStages = 0;
    double sentFrequency = 0.0;
    double sentQ = 0.0;
    bool wasInCrossfade = false;
    std::atomic<int> requestedType { 0 };
    std::atomic<int> requestedSlope { 1 };
    std::atomic<bool> shapeChanged { false };
    // The second channel of a mono block: the stages always run two.
    float scratch[kSubBlockSamples] = {};

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (ParamEqSource)
};

using ParamEqSourcePtr = juce::ReferenceCountedObjectPtr<ParamEqSource>;
} // namespace qvrControllableAudio
