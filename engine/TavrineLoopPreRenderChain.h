#pragma once

#include "audio/AudioSourceChain.h"
#include "audio/EventCrossfadeAudioChain.h"
#include "audio/MemoryAudioSource.h"
#include "audio/MeridexAudioSource.h"
#include "controllable/handle/ParamDefHandle.h"
#include "samples/PreparedSample.h"

// The private stretch chain that renders a loop's sample offline: the
// unstretched sample in memory, the stretch source, and a limiter that keeps
// the stretch source's requests to its internal block. It stands beside the
// loop's audio path and never plays; TavrineLoopPreRenderJob pulls it on the
// preparation thread.
//
// It owns the settings that make a render: the pad and fine pitch, the pad
// formant, and the flags "adjusting" (settings moved, a render is due) and
// "rendering" (a render is on its way). The stretch source's `pitchSemitones`
// follows slice + pad + fine pitch, its `formantFactor` slice x pad formant.
// No slice sequencer is attached to this chain: the slice inputs are the
// neutral constants below, so no slice departs from its default.
//
// The render signature names a render: the settings that shape it, written as
// a state document, with the master tempo and the "Pitch-Speed" mark. Two
// requests with the same URL and signature share one rendered variant.
//
// Owned (counted) by the loop's TavrineSampleAudioSource and by its render
// job. Threads: setSignatureSources on the message thread before use;
// setSource and every render call on the preparation thread;
// getRenderSignature on the message thread and the preparation thread (it
// reads parameters only). The source URL and sample are guarded by a lock of
// their own, never held while rendering.
class TavrineLoopPreRenderChain : public qvrControllableAudio::EventCrossfadeAudioChain,
                                  private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr const char* kInverseStretchFactor = "inverseStretchFactor";
    static constexpr const char* kPitchSemitonesXy = "pitchSemitones.xyMode";
    static constexpr const char* kPitchSemitonesFine = "pitchSemitones.fine";
    static constexpr const char* kFormantFactorXy = "formantFactor.xyMode";
    static constexpr const char* kAdjusting = "adjusting";
    static constexpr const char* kRendering = "rendering";
    static constexpr const char* kPitchSemitonesSlices = "pitchSemitones.slices";
    static constexpr const char* kFormantFactorSlices = "formantFactor.slices";
    static constexpr const char* kBeatSynchedMark = "-beatSynched";
    static constexpr const char* kStretchMode = "Efficient V3";
    // "Pitch-Speed": the resampler bends the tempo itself, nothing is stretched.
    static constexpr int kPitchSpeedResamplingMode = 3;
    static constexpr double kSlicePitchSemitones = 0.0;
    static constexpr double kSliceFormantFactor = 1.0;

    // Parameters of others that are a part of a render's identity. Any may be
    // null: a loop without slices, a chain without a master.
    struct SignatureSources
    {
        qvrControllableAPI::ParameterDefPtr sourceBpm, relativeBpm, masterBpm, resamplingMode;
        qvrControllableAPI::ParameterDefPtr pitchSemitonesSlices, formantFactorSlices;
    };

    TavrineLoopPreRenderChain();
    ~TavrineLoopPreRenderChain() override;

    void setSignatureSources (const SignatureSources& sources);

    // Stores both and plays the sample's forward buffer from the memory
    // source (nothing for a null sample). Preparation thread.
    void setSource (const juce::String& url, PreparedSample::Ptr sample);
    juce::String getSourceUrl() const;
    PreparedSample::Ptr getSourceSample() const;
    // Drops the chain's hold on the unstretched sample; the memory source
    // keeps pointing at its buffer only while a holder remains, so this also
    // empties the memory source.
    void releaseSourceSample();

    // The state text of "sourceBpm", "relativeBpm", "pitchSemitones.xyMode",
    // "pitchSemitones.fine", "pitchSemitones.slices" (if bound),
    // "formantFactor.xyMode", "formantFactor.slices" (if bound),
    // "crossfadeBufferSize" and "meridexProcMode", then the master tempo as a
    // decimal number, then "-beatSynched" with "resamplingMode" 3.
    juce::String getRenderSignature() const;

    // Whether any slice of a slice sequencer departs from its default by more
    // than 0.0001. None is attached, so none does.
    bool hasSliceAwayFromDefault() const noexcept { return false; }

    qvrControllableAudio::MemoryAudioSource& getMemorySource() noexcept { return *memorySource; }
    qvrControllableAudio::MeridexAudioSource& getStretchSource() noexcept { return *stretchSource; }

    qvrControllableHandle::FloatParamDefHandle inverseStretchFactor;
    qvrControllableHandle::BoolParamDefHandle adjusting { kAdjusting };
    qvrControllableHandle::BoolParamDefHandle rendering { kRendering };
    qvrControllableHandle::FloatParamDefHandle pitchSemitonesXy { kPitchSemitonesXy };
    qvrControllableHandle::FloatParamDefHandle pitchSemitonesFine { kPitchSemitonesFine };
    qvrControllableHandle::FloatParamDefHandle formantFactorXy { kFormantFactorXy };

private:
    // Keeps the stretch source's pitch and formant on pad + fine + slice.
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;
    void defineParameters();

    juce::ReferenceCountedObjectPtr<qvrControllableLib::BasicControllable> ownParameters;
    juce::ReferenceCountedObjectPtr<qvrControllableAudio::MemoryAudioSource> memorySource;
    juce::ReferenceCountedObjectPtr<qvrControllableAudio::MeridexAudioSource> stretchSource;
    juce::ReferenceCountedObjectPtr<qvrControllableAudio::BlockSizeLimitingSource> limiter;
    SignatureSources signatureSources;

    juce::CriticalSection sourceLock;
    juce::String sourceUrl;
    PreparedSample::Ptr sourceSample;

    JUCE_DECLARE_NON_COPYABLE (TavrineLoopPreRenderChain)
};

using TavrineLoopPreRenderChainPtr = juce::ReferenceCountedObjectPtr<TavrineLoopPreRenderChain>;
