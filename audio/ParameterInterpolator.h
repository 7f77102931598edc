#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "audio/AudioSourceProvider.h"
#include "audio/CrossfadableSource.h"
#include "controllable/api/ParameterChangeListener.h"
#include "controllable/lib/ShortcutValue.h"

namespace qvrControllableAudio
{
// The smoothed copy of one parameter that signal code reads in place of the
// parameter itself. Only the interpolator that made it writes it.
class ShadowValue
{
public:
    double get() const noexcept { return value.load (std::memory_order_relaxed); }
    // False for the shared value handed out for a parameter that cannot be
    // smoothed.
    bool isValid() const noexcept { return valid; }

private:
    friend class ParameterInterpolator;
    explicit ShadowValue (bool isValidShadow) noexcept : valid (isValidShadow) {}
    void set (double v) noexcept { value.store (v, std::memory_order_relaxed); }

    std::atomic<double> value { 0.0 };
    const bool valid;
};

// Smooths float parameters for an in-place source that would click on a jump
// (balance, equaliser), by calling it in short sub-blocks while the shadows
// walk in straight lines to their targets.
//
// The face of its owner in a chain: it pulls the owner's upstream into the
// block (silence when there is none) and then calls the wrapped source on
// that block, whole or in sub-blocks of at most subBlockSize samples.
//
// Ramps. A change of a target starts a ramp from the present shadow with
// step = (target - shadow) / rampSamples per sample; each sub-block moves the
// shadow by its length times the step, and the sub-block in which fewer steps
// are left than it is long lands on the target exactly. A ramp of 0 samples
// takes the target at once. When a sub-block finds every ramp done, the rest
// of the block goes to the wrapped source in one call.
//
// Jumps instead of ramps:
// - jumpNext(target) makes the next change of that target land at once;
// - jumpAll() lands every shadow on its target now;
// - a change met while the owner is in a crossfade is held, with the shadow
//   unchanged, and taken at once in the first call after the crossfade, as is
//   a change met in that first call: the crossfade hides what changed. Ramps
//   already under way (including those of changes taken by
//   takePendingChanges when the crossfade began) neither move nor stop during
//   a crossfade, so saving and restoring a crossfade leaves the shadows where
//   they would have been.
//
// Threads: construction and addParameter before audio runs (they allocate
// and register listeners); the listener runs on whatever thread writes a
// target and only raises atomic flags; everything else, jumpAll included, on
// the audio thread. Shadows are read on the audio thread (any thread may read
// them for display).
class ParameterInterpolator : public juce::AudioSource,
                              public qvrControllableAPI::ParameterChangeListener
{
public:
    // owner: whose upstream fills the block (null: the block is used as
    // handed in). crossfadable: whose inCrossfade is watched (may be null).
    ParameterInterpolator (juce::AudioSource* source, CrossfadableSource* crossfadable, int subBlockSize,
                           ChainableAudioSourceProvider* owner);
    ~ParameterInterpolator() override;

    // Smooths a float parameter that is not a list; for any other the shared
    // invalid shadow is returned and nothing is registered.
    const ShadowValue& addParameter (qvrControllableAPI::ParameterDef* target, int rampSamples);

    void jumpNext (qvrControllableAPI::ParameterDef* target);
    void jumpAll() noexcept;
    // Takes the changes written so far, as the next render call would. The
    // owner calls it when a crossfade begins, so that only what changes
    // during the crossfade is taken at once after it.
    void takePendingChanges() noexcept { takeChanges (false); }
    bool isInterpolating() const noexcept { return interpolating; }
    int getSubBlockSize() const noexcept { return subBlockSize; }

    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

private:
    struct Smoothed
    {
        qvrControllableAPI::ParameterDefPtr parameter;
        qvrControllableLib::FloatShortcutValue targetReader;
        std::unique_ptr<ShadowValue> shadow;
        int rampSamples = 0;
        double target = 0.0; // the audio thread's copy of the target
        double step = 0.0;
        std::atomic<bool> changed { false };
        std::atomic<bool> jumpNextChange { false };
    };

    void takeChanges (bool crossfading) noexcept;
    // Moves every ramp by one sub-block; true when all have landed.
    bool advanceRamps (int numSamples) noexcept;
    void callSource (const juce::AudioSourceChannelInfo& info, int start, int numSamples);
    // 1. When interpolating is false, every shadow equals its target.
    // 2. A ramp's step points from its shadow to its target (or is 0).
    bool checkInvariants() const noexcept;

    juce::AudioSource* source;
    CrossfadableSource* crossfadable;
    ChainableAudioSourceProvider* owner;
    const int subBlockSize;
    std::vector<std::unique_ptr<Smoothed>> smoothed;
    std::atomic<bool> changesPending { false };
    bool interpolating = false;
    bool wasInCrossfade = false;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (ParameterInterpolator)
};
} // namespace qvrControllableAudio
