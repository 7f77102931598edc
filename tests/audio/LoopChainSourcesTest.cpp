#include <gtest/gtest.h>

#include "audio/GainAudioSource.h"
#include "audio/InterpolatedBalanceSource.h"
#include "audio/MemoryAudioSource.h"
#include "audio/ParamEqSource.h"
#include "audio/Resampler.h"
#include "controllable/lib/ParameterTypeImpl.h"
#include "tests/audio/AudioSourceTestSupport.h"

using namespace qvrControllableAudio;
using namespace tavrine::test;

namespace
{
// One loop's sources linked by hand in the order of the loop's chain:
// memory, resampler, gain, balance, equaliser.
struct LoopSources
{
    // Without the resampler the memory source feeds the gain directly.
    explicit LoopSources (juce::AudioBuffer<float>& data, bool withResampler = true) : resampling (withResampler)
    {
        memory.setBuffer (&data, false);
        memory.sourceLooping.write (true);
        AudioSourceProvider* previous = head.get();
        for (ChainableAudioSourceProvider* link : links())
        {
            link->setUpstream (previous->getAudioSource(), previous);
            previous = link;
        }
    }
    ~LoopSources()
    {
        for (auto* link : links())
            link->detachUpstream();
    }

    std::vector<ChainableAudioSourceProvider*> links()
    {
        if (! resampling)
            return { gainLink.get(), balance.get(), eq.get() };
        return { resampler.get(), gainLink.get(), balance.get(), eq.get() };
    }
    std::vector<CrossfadableSource*> crossfadables() { return { &memory, &gain, balance.get(), eq.get() }; }
    juce::AudioSource& out() { return *eq->getAudioSource(); }

    void prepare (int block)
    {
        memory.prepareToPlay (block, 44100.0);
        for (auto* link : links())
            link->getAudioSource()->prepareToPlay (block, 44100.0);
    }

    const bool resampling;
    MemoryAudioSource memory;
    GainAudioSource gain;
    juce::ReferenceCountedObjectPtr<HeadLink> head { new HeadLink (memory) };
    ResamplerPtr resampler { new Resampler() };
    juce::ReferenceCountedObjectPtr<InPlaceLink> gainLink { new InPlaceLink (gain) };
    InterpolatedBalanceSourcePtr balance { new InterpolatedBalanceSource() };
    ParamEqSourcePtr eq { new ParamEqSource() };
};

void setSteady (LoopSources& loop, double ratio)
{
    loop.resampler->resamplingRatio.write (ratio);
    loop.gain.gain.write (0.8);
    loop.balance->balance.write (0.3);
    loop.eq->filterType.write ("Low");
    loop.eq->filterSlope.write ("36dB");
    loop.eq->filterFrequency.write (2000.0);
}
} // namespace

TEST (LoopSources, SteadySettingsGiveTheSameOutputAtEveryBlockSize)
{
    auto data = makeNoise (2, 30000, 12);
    juce::AudioBuffer<float> reference;
    for (int block : { 4096, 1, 7, 64, 512 })
    {
        LoopSources loop (data);
        setSteady (loop, 1.5);
        loop.prepare (block);
        const auto out = render (loop.out(), 2, 12000, block);
        if (reference.getNumSamples() == 0)
            reference = out;
        // Equal up to the equaliser's anti-denormal noise, which restarts with every call.
        EXPECT_TRUE (sameSamples (out, reference, 1e-6f)) << block;
    }
    EXPECT_GT (reference.getRMSLevel (0, 6000, 6000), 0.01f);
}

TEST (LoopSources, SavingAndRestoringACrossfadeLeavesTheStreamUnchanged)
{
    // No resampler (JUCE keeps its phase and look-ahead to itself) and the
    // equaliser "Off" (it clears its filters after a crossfade on purpose).
    auto data = makeNoise (2, 30000, 14);
    LoopSources plain (data, false), faded (data, false);
    for (auto* loop : { &plain, &faded })
    {
        setSteady (*loop, 1.0);
        loop->eq->filterType.write ("Off");
        loop->prepare (100);
        loop->balance->balance.write (-0.6); // a glide under way during the crossfades
    }
    const auto expected = render (plain.out(), 2, 3000, 100);
    juce::AudioBuffer<float> actual (2, 3000), pre (2, 128);
    renderInBlocks (faded.out(), actual, 100, [&] (int start) {
        if (start % 700 != 0)
            return;
        for (auto* s : faded.crossfadables())
            s->saveCrossfadeState();
        faded.out().getNextAudioBlock (juce::AudioSourceChannelInfo (pre));
        for (auto* s : faded.crossfadables())
            s->restoreCrossfadeState();
    });
    EXPECT_TRUE (sameSamples (expected, actual));
}

TEST (LoopSources, TheWholeLoopRendersWithoutAllocatingAfterPrepare)
{
    auto data = makeNoise (2, 30000, 13);
    LoopSources loop (data);
    qvrControllableLib::FloatShortcutValue ratio (loop.resampler->resamplingRatio->getValue().get());
    qvrControllableLib::FloatShortcutValue gain (loop.gain.gain->getValue().get());
    qvrControllableLib::FloatShortcutValue balance (loop.balance->balance->getValue().get());
    qvrControllableLib::FloatShortcutValue frequency (loop.eq->filterFrequency->getValue().get());
    // Listeners that the user interface would have, so that signals take the FIFO path.
    struct Counter : qvrControllableAPI::ParameterChangeListener
    {
        void parameterChanged (qvrControllableAPI::ParameterDef*) override { ++calls; }
        int calls = 0;
    } listener;
    loop.memory.nextReadPosition->addChangeListener (&listener, false);
    loop.gain.clipping->addChangeListener (&listener, false);
    loop.gain.detectClipping.write (true);
    loop.gain.clipReleaseSamples.write (500);

    std::size_t allocations = 0;
    juce::AudioBuffer<float> out (2, 4096);
    const char* types[] = { "Band", "Low", "Off", "Notch" };
    const char* slopes[] = { "72dB", "12dB", "48dB" };
    const auto crossfadables = loop.crossfadables();
    loop.prepare (128);
    for (int phase = 0; phase < 8; ++phase)
    {
        // Shape changes come from the message thread.
        loop.eq->filterType.write (types[phase % 4]);
        loop.eq->filterSlope.write (slopes[phase % 3]);
        allocations += allocationsOnAudioThread ([&] {
            for (int k = 0; k < 10; ++k)
            {
                ratio.setNotifying (k % 4 == 0 ? 32.0 : (k % 4 == 1 ? 0.03125 : 0.25 + 0.3 * k));
                gain.setNotifying (0.25 * (k % 9));
                balance.setNotifying (-1.0 + 0.25 * (k % 9));
                frequency.setNotifying (50.0 + 900.0 * (k % 20));
                // Blocks larger than prepared, and empty ones.
                for (int block : { 1, 7, 128, 512, 4096, 0 })
                    loop.out().getNextAudioBlock (juce::AudioSourceChannelInfo (&out, 0, block));
                for (auto* s : crossfadables)
                    s->saveCrossfadeState();
                loop.out().getNextAudioBlock (juce::AudioSourceChannelInfo (&out, 0, 128));
                for (auto* s : crossfadables)
                    s->restoreCrossfadeState();
            }
        });
    }
    EXPECT_EQ (allocations, 0u);
    qvrControllableLib::ParameterTypes::drainAll();
    EXPECT_GT (listener.calls, 0);
    loop.memory.nextReadPosition->removeChangeListener (&listener, false);
    loop.gain.clipping->removeChangeListener (&listener, false);
}
