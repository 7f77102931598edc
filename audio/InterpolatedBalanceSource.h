#pragma once

#include "audio/ParameterInterpolator.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"

namespace qvrControllableAudio
{
// Balance of a chain link: `balance` -1 (left only) .. 0 .. 1 (right only),
// smoothed over 1200 samples in sub-blocks of 16. Even channels get the left
// gain (1 - b for b > 0), odd channels the right gain (1 + b for b < 0); a
// channel at gain exactly 1 is not touched.
//
// Owned by reference count; it is pulled through its interpolator, which is
// what getAudioSource hands out. Threads as ParameterInterpolator.
class InterpolatedBalanceSource : public qvrControllableLib::BasicControllable,
                                  public ChainableAudioSourceProvider,
                                  public CrossfadableSource,
                                  private juce::AudioSource
{
public:
    static constexpr const char* kBalance = "balance";
    static constexpr int kSubBlockSamples = 16;
    static constexpr int kRampSamples = 1200;

    InterpolatedBalanceSource();
    ~InterpolatedBalanceSource() override;

    juce::AudioSource* getAudioSource() override { return &interpolator; }
    qvrControllableAPI::Controllable* getControllable() override { return this; }

    // Audio thread. The balance has no state that moves as it renders: the
    // interpolator holds its shadow still while inCrossfade is set.
    void saveCrossfadeState() override
    {
        interpolator.takePendingChanges();
        inCrossfade = true;
    }
    void restoreCrossfadeState() override { inCrossfade = false; }

    ParameterInterpolator& getInterpolator() noexcept { return interpolator; }
    // The balance the signal follows.
    double getSmoothedBalance() const noexcept { return smoothedBalance.get(); }

    qvrControllableHandle::FloatParamDefHandle balance { kBalance };

private:
    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread: one sub-block, in place.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    ParameterInterpolator interpolator;
    const ShadowValue& smoothedBalance;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (InterpolatedBalanceSource)
};

using InterpolatedBalanceSourcePtr = juce::ReferenceCountedObjectPtr<InterpolatedBalanceSource>;
} // namespace qvrControllableAudio
