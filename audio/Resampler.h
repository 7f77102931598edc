#pragma once

#include <memory>

#include "audio/FilteringAudioSourceWrapper.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"

namespace qvrControllableAudio
{
// Changes the speed of its upstream by `resamplingRatio`, through a 2-channel
// juce::ResamplingAudioSource. `resamplingLinear` is a view of the ratio on a
// linear scale, log32 (ratio): -1 .. 1, 0 at ratio 1. The ratio's choices
// (0.25 .. 4) are the steps offered by stepped controls.
//
// A ratio, here as in the parameter and in JUCE's engine, is input samples per
// output sample: 2 plays twice as fast and half as long (as CFastResample's;
// the stretch library's sinc converters take the inverse, outputPerInput).
//
// The engine is made on the upstream source whenever setUpstream links a new
// one, and dropped when the upstream goes. It reads the upstream through a
// forwarder that passes audio only: the chain prepares every block itself,
// and a new engine is prepared off the audio thread while the old one may
// still be pulling the same upstream.
//
// No allocation while rendering: JUCE's engine grows its buffer inside the
// callback when a block needs more input than it was prepared for, so every
// engine is prepared for kEngineInputSamples of input whatever the ratio, and
// each block is cut into pieces whose input fits at the present ratio
// (8192 output samples a piece at ratio 1, 256 at ratio 32).
//
// Not crossfadable: the engine's phase and look-ahead are private to JUCE,
// so they cannot be put back after a crossfade's pre-render. What leaks is
// the engine's few samples of look-ahead, which land at the start of the
// fade-in.
//
// Locking: one critical section, held while rendering and for the swap of the
// engine; an old engine is destroyed after the lock is released.
//
// Threads: setUpstream (upstreamChanged) on the message thread;
// prepareToPlay, releaseResources and getNextAudioBlock on the audio thread.
class Resampler : public ChainableAudioSourceProvider,
                  public qvrControllableLib::BasicControllable,
                  public FilteringAudioSourceWrapper
{
public:
    static constexpr const char* kResamplingRatio = "resamplingRatio";
    static constexpr const char* kResamplingLinear = "resamplingLinear";
    static constexpr double kMinimumRatio = 0.03125;
    static constexpr double kMaximumRatio = 32.0;
    static constexpr int kNumChannels = 2;
    static constexpr int kEngineInputSamples = 8192;

    Resampler();
    ~Resampler() override;

    juce::AudioSource* getAudioSource() override { return this; }
    qvrControllableAPI::Controllable* getControllable() override { return this; }

    void upstreamChanged (juce::AudioSource* source, AudioSourceProvider* oldProvider,
                          AudioSourceProvider* newProvider) override;

    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread. Without an engine (no upstream, or released) the block is
    // cleared.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    bool hasEngine() const;
    // The ratio the engine is given: the parameter, kept inside its range.
    double getEffectiveRatio() const noexcept;
    // Output samples per engine call at the given ratio.
    int getMaxPieceSamples (double ratio) const;

    qvrControllableHandle::FloatParamDefHandle resamplingRatio { kResamplingRatio };
    qvrControllableHandle::FloatParamDefHandle resamplingLinear;

protected:
    const juce::CriticalSection& getLock() const noexcept { return lock; }
    // The present engine, or null; call with the lock held.
    juce::ResamplingAudioSource* getEngine() const noexcept { return engine.get(); }

private:
    // Prepares an engine for kEngineInputSamples of input at `ratio`; returns
    // the size of the buffer it made, by JUCE's rule.
    int prepareEngine (juce::ResamplingAudioSource& target, double ratio) const;

    juce::CriticalSection lock;
    std::unique_ptr<juce::ResamplingAudioSource> engine;
    juce::AudioSource* engineUpstream = nullptr;
    int engineBufferSamples = 0;
    double preparedRate = 44100.0;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (Resampler)
};

using ResamplerPtr = juce::ReferenceCountedObjectPtr<Resampler>;
} // namespace qvrControllableAudio
