#pragma once

#include "audio/Resampler.h"

namespace qvrControllableAudio
{
// The resampler of a loop's chain. On top of Resampler: the loop's
// `resamplingMode` (shown by the engine's converter), and what the loop
// reads back of it: `resamplingLengthRatio` (how much longer the loop plays,
// 1 / ratio), `outputSamplesPerSlice` (output samples one slice of the sample
// lasts at the present ratio) and `outputSamplesRead` (output samples since
// the last slice start or loop jump).
//
// At a ratio of exactly 1 the upstream is pulled directly, with no engine in
// between: the engine's latency would otherwise put the audio behind the
// loop's timeline, which counts from the sample's own read position. The
// engine is flushed when the ratio leaves 1 again.
//
// The slice logic (repeats per slice, silence after a fast slice) comes with
// the slice sequencer; until then the whole sample is one slice.
//
// Threads: as Resampler. The derived values are written by listeners on the
// thread that changes the ratio or the length; `outputSamplesRead` by the
// audio thread without notification (it is polled).
class SliceAwareResampler : public Resampler,
                            private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr const char* kResamplingMode = "resamplingMode";
    static constexpr const char* kResamplingLengthRatio = "resamplingLengthRatio";
    static constexpr const char* kOutputSamplesPerSlice = "outputSamplesPerSlice";
    static constexpr const char* kOutputSamplesRead = "outputSamplesRead";
    static constexpr int kDefaultMode = 2;
    static constexpr int kNumModes = 4;

    SliceAwareResampler();
    ~SliceAwareResampler() override;

    // The length of the sample, in source samples, that the slice figures
    // are taken from. Message thread, before audio.
    void setSampleLength (qvrControllableAPI::ParameterDef* totalLength);
    // Audio thread: a slice starts, or the loop jumped; the count of output
    // samples starts again.
    void restartSliceCount() noexcept;

    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    qvrControllableHandle::IntParamDefHandle resamplingMode { kResamplingMode };
    qvrControllableHandle::FloatParamDefHandle resamplingLengthRatio { kResamplingLengthRatio };
    qvrControllableHandle::IntParamDefHandle outputSamplesPerSlice { kOutputSamplesPerSlice };
    qvrControllableHandle::IntParamDefHandle outputSamplesRead { kOutputSamplesRead };

private:
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;
    void updateDerivedValues();

    qvrControllableHandle::IntParamDefHandle sampleLength;
    bool engineInUse = false;

    JUCE_DECLARE_NON_COPYABLE (SliceAwareResampler)
};

using SliceAwareResamplerPtr = juce::ReferenceCountedObjectPtr<SliceAwareResampler>;
} // namespace qvrControllableAudio
