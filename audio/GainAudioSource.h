#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

#include "audio/CrossfadableSource.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"
#include "controllable/lib/ShortcutValue.h"

namespace qvrControllableAudio
{
// Applies `gain` in place to the block it is handed, gliding to a new value,
// and optionally watches the result for samples above full scale.
//
// Ramp rule: a change of `gain` loads the ramp length from `gainRamp`. Each
// block moves the present gain by n / rampLength of what is left, with
// n = min(block, rampLength), and the ramp length is not counted down, so a
// ramp longer than the block approaches the target geometrically and meets it
// only in a block at least as long as the ramp. `gainRamp` 0 takes a new
// value from the first sample.
//
// Clipping watch (`detectClipping`): the first block whose peak is above 1.0
// sets `clipping` and loads a hold of `clipReleaseSamples`; later blocks count
// the hold down by their length, and further clips while `clipping` stands do
// not restart it. When the hold runs out `clipping` is cleared. A hold of 0
// leaves `clipping` standing until somebody else clears it.
//
// Invariants:
// 1. rampLength is 0 whenever currentGain equals targetGain.
// 2. holdRemaining is 0 whenever the watch is not timing a clip.
//
// Owned by reference count (it is a controllable). Threads: construction on
// the message thread; prepareToPlay, getNextAudioBlock and the crossfade calls
// on the audio thread; parameters are written from any thread and read here
// with one load each.
class GainAudioSource : public qvrControllableLib::BasicControllable,
                        public juce::AudioSource,
                        public CrossfadableSource
{
public:
    static constexpr const char* kGain = "gain";
    static constexpr const char* kGainDb = "gainDb";
    static constexpr const char* kGainRamp = "gainRamp";
    static constexpr const char* kDetectClipping = "detectClipping";
    static constexpr const char* kClipping = "clipping";
    static constexpr const char* kClipReleaseSamples = "clipReleaseSamples";

    GainAudioSource();
    ~GainAudioSource() override;

    // Takes the present `gain` at once, so playback does not start with a glide.
    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    // Audio thread. Nothing to keep: the gain is state of the parameters.
    void saveCrossfadeState() override;
    // Audio thread. Whatever changed behind the crossfade is taken at once:
    // the next block starts at the target gain, with no ramp.
    void restoreCrossfadeState() override;

    // The gain applied to the last sample rendered.
    double getCurrentGain() const noexcept { return currentGain; }

    qvrControllableHandle::FloatParamDefHandle gain { kGain };
    qvrControllableHandle::FloatParamDefHandle gainDb;
    qvrControllableHandle::IntParamDefHandle gainRamp { kGainRamp };
    qvrControllableHandle::BoolParamDefHandle detectClipping { kDetectClipping };
    qvrControllableHandle::BoolParamDefHandle clipping { kClipping };
    qvrControllableHandle::IntParamDefHandle clipReleaseSamples { kClipReleaseSamples };

private:
    void applyGain (const juce::AudioSourceChannelInfo& info);
    void watchPeak (const juce::AudioSourceChannelInfo& info);
    bool checkInvariants() const noexcept;

    qvrControllableLib::BoolShortcutValue clippingWriter;
    double targetGain = 1.0;
    double currentGain = 1.0;
    int rampLength = 0;
    int holdRemaining = 0;
    bool jump = true;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (GainAudioSource)
};

using GainAudioSourcePtr = juce::ReferenceCountedObjectPtr<GainAudioSource>;
} // namespace qvrControllableAudio
