#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "audio/FilteringAudioSourceWrapper.h"
#include "audio/GainAudioSource.h"
#include "audio/InterpolatedBalanceSource.h"
#include "audio/MemoryAudioSource.h"
#include "audio/ParamEqSource.h"
#include "audio/Resampler.h"
#include "controllable/lib/ShortcutValue.h"

// Cost of one loop's chain of sources (memory, resampler at ratio 1, gain,
// balance, equaliser "Low" at "72dB") per 128-sample block at 44100 Hz,
// reported as core_share_72: the share of one core that 72 such chains take
// (0.05 is 5 %). The chains are linked by hand; each has a sample of its own,
// so the 72-chain case pays for the cache as a full keyboard would.
namespace
{
using namespace qvrControllableAudio;

constexpr double kRate = 44100.0;
constexpr int kBlock = 128;
constexpr int kKeyboardLoops = 72;
constexpr int kSampleLength = 2 * 44100;

class Head : public AudioSourceProvider
{
public:
    explicit Head (juce::AudioSource& s) : source (s) {}
    juce::AudioSource* getAudioSource() override { return &source; }

private:
    juce::AudioSource& source;
};

class InPlace : public ChainableAudioSourceProvider
{
public:
    explicit InPlace (juce::AudioSource& filter) : pull (&filter, this) {}
    juce::AudioSource* getAudioSource() override { return &pull; }

private:
    FilteringAudioSourceWrapper pull;
};

struct LoopChain
{
    explicit LoopChain (juce::int64 seed) : sample (2, kSampleLength)
    {
        juce::Random random (seed);
        for (int c = 0; c < 2; ++c)
            for (int i = 0; i < kSampleLength; ++i)
                sample.setSample (c, i, 0.5f * (random.nextFloat() - 0.5f));
        memory.setBuffer (&sample, false);
        memory.sourceLooping.write (true);

        resampler->setUpstream (&memory, head.get());
        gainLink->setUpstream (resampler->getAudioSource(), resampler.get());
        balance->setUpstream (gainLink->getAudioSource(), gainLink.get());
        eq->setUpstream (balance->getAudioSource(), balance.get());

        gain.gain.write (0.8);
        balance->balance.write (0.2);
        eq->filterType.write ("Low");
        eq->filterSlope.write ("72dB");
        eq->filterFrequency.write (2000.0);
        frequency.connect (eq->filterFrequency->getValue().get());

        for (auto* s : { (juce::AudioSource*) &memory, resampler->getAudioSource(), gainLink->getAudioSource(),
                         balance->getAudioSource(), eq->getAudioSource() })
            s->prepareToPlay (kBlock, kRate);
    }

    ~LoopChain()
    {
        eq->detachUpstream();
        balance->detachUpstream();
        gainLink->detachUpstream();
        resampler->detachUpstream();
    }

    juce::AudioSource& out() { return *eq->getAudioSource(); }

    juce::AudioBuffer<float> sample;
    MemoryAudioSource memory;
    GainAudioSource gain;
    juce::ReferenceCountedObjectPtr<Head> head { new Head (memory) };
    ResamplerPtr resampler { new Resampler() };
    juce::ReferenceCountedObjectPtr<InPlace> gainLink { new InPlace (gain) };
    InterpolatedBalanceSourcePtr balance { new InterpolatedBalanceSource() };
    ParamEqSourcePtr eq { new ParamEqSource() };
    qvrControllableLib::FloatShortcutValue frequency;
};

// range(0): chains rendered per iteration; range(1): 1 if every block moves
// the cut-off, so that the equaliser glides and rebuilds its coefficients in
// every sub-block (the worst case), 0 for steady settings.
void loopChainCost (benchmark::State& state)
{
    const int numChains = (int) state.range (0);
    const bool gliding = state.range (1) != 0;
    std::vector<std::unique_ptr<LoopChain>> chains;
    for (int i = 0; i < numChains; ++i)
        chains.push_back (std::make_unique<LoopChain> (1000 + i));
    juce::AudioBuffer<float> block (2, kBlock);
    juce::int64 count = 0;

    for (auto _ : state)
    {
        ++count;
        for (auto& chain : chains)
        {
            if (gliding)
                chain->frequency.setNotifying ((count & 1) != 0 ? 500.0 : 8000.0);
            chain->out().getNextAudioBlock (juce::AudioSourceChannelInfo (block));
            benchmark::DoNotOptimize (block.getReadPointer (0));
        }
    }

    // Each iteration renders numChains blocks; scaled to a full keyboard.
    const double blockSeconds = kBlock / kRate;
    state.counters["core_share_72"] = benchmark::Counter (blockSeconds * numChains / kKeyboardLoops,
                                                          benchmark::Counter::kIsIterationInvariantRate
                                                              | benchmark::Counter::kInvert);
}
} // namespace

BENCHMARK (loopChainCost)
    ->Name ("LoopChain")
    ->ArgNames ({ "chains", "gliding" })
    ->Args ({ 1, 0 })
    ->Args ({ kKeyboardLoops, 0 })
    ->Args ({ kKeyboardLoops, 1 })
    ->Unit (benchmark::kMicrosecond);
