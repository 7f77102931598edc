#pragma once

#include <atomic>

#include "audio/AudioSourceProvider.h"
#include "audio/CrossfadableSource.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"

class TavrineLoop;

// The last link of a loop's chain: the attack and release of a key, and the
// start and stop of the loop on its trigger.
//
// Trigger on (listener on `trigger`, true): a release that is running leaves
// up to kTailSamples of what it was playing, faded from the present level to
// 0, in the tail buffer; the loop restarts at its begin; the trigger group
// decides whether `playing` goes true now or at the next sync tick.
// Trigger off: the loop leaves the trigger group and asks for a release,
// which the loop hands over at the start of its next block (beginRelease).
//
// Gain of a block, while `playing`:
// - releasing (releaseStart >= 0): a ramp from `level` towards 0 that reaches
//   0 after `releaseLength` samples; then `playing` goes false and the loop
//   jumps back to its begin. A release of 0 ends in the next block.
// - else within the attack (samplesPlayedInLoop < attackLength): a ramp from
//   played / attackLength upwards; after it, or with an attack of 0, gain 1.
// - a tail from a retrigger is added on top at gain 1.
// Offline (setOfflineGain) the ramps are off and the block is scaled by the
// fixed gain.
//
// Invariants.
// 1. releaseStart is -1 or a count of samplesPlayedInLoop at which the
//    release began; elapsed = played - releaseStart is never negative.
// 2. 0 <= tailRemaining <= tailLength <= kTailSamples; the tail buffer is
//    allocated at construction.
// 3. level is the gain of the last sample rendered, in 0 .. 1.
//
// Owned by its loop's chain (reference counted). Threads: the listener runs
// where `trigger` is written, which is the audio thread (triggerKey);
// rendering and beginRelease on the audio thread; the envelope parameters are
// written from any thread and read with one load.
class TriggerEnvelopeSource : public qvrControllableLib::BasicControllable,
                              public qvrControllableAudio::ChainableAudioSourceProvider,
                              public qvrControllableAudio::CrossfadableSource,
                              public juce::AudioSource,
                              private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr const char* kEnvelopeAttack = "envelopeAttack";
    static constexpr const char* kEnvelopeRelease = "envelopeRelease";
    static constexpr int kTailSamples = 256;
    static constexpr int kMaxEnvelopeSamples = 264600;

    explicit TriggerEnvelopeSource (TavrineLoop& loop);
    ~TriggerEnvelopeSource() override;

    // Stops listening to the loop's trigger; the loop calls it first in its
    // destructor, as its chain keeps the envelope a little longer.
    void detach();

    juce::AudioSource* getAudioSource() override { return this; }
    qvrControllableAPI::Controllable* getControllable() override { return this; }

    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    // Audio thread: the release counts from `samplesPlayed`.
    void beginRelease (int samplesPlayed) noexcept;
    bool isReleasing() const noexcept { return releaseStart >= 0; }
    // Samples of the retrigger tail still to be mixed.
    int getTailRemaining() const noexcept { return tailRemaining; }

    // Offline renders: a fixed gain instead of the ramps (negative: off).
    void setOfflineGain (float gain) noexcept { offlineGain.store (gain); }

    void saveCrossfadeState() override;
    void restoreCrossfadeState() override;

    qvrControllableHandle::IntParamDefHandle envelopeAttack { kEnvelopeAttack };
    qvrControllableHandle::IntParamDefHandle envelopeRelease { kEnvelopeRelease };

private:
    struct State
    {
        float level = 0.0f, target = 1.0f;
        int releaseStart = -1, tailRemaining = 0;
    };

    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;
    void triggerOn();
    void triggerOff();
    void renderTail();
    void finishRelease();
    void mixTail (const juce::AudioSourceChannelInfo& info) noexcept;
    static void ramp (const juce::AudioSourceChannelInfo& info, int offset, int length, float from, float to) noexcept;
    bool checkInvariants() const noexcept;

    TavrineLoop& loop;
    bool attached = true;
    int attackLength = 16;
    int releaseLength = 0;
    int releaseStart = -1;
    float level = 0.0f;
    float target = 1.0f;
    juce::AudioBuffer<float> tail { 2, kTailSamples };
    int tailRemaining = 0;
    int tailLength = 0;
    std::atomic<float> offlineGain { -1.0f };
    State saved;

    JUCE_DECLARE_NON_COPYABLE (TriggerEnvelopeSource)
};

using TriggerEnvelopeSourcePtr = juce::ReferenceCountedObjectPtr<TriggerEnvelopeSource>;
