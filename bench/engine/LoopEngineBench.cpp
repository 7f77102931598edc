#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "engine/TavrineEngine.h"

// The engine at 44100 Hz in blocks of 128 through the whole master chain:
// every loop playing its own buffer through its full chain with the filter
// on, against the same engine idle. Reported as rt_percent: the share of one
// core's real time the block takes (lower is better).
namespace
{
constexpr double kRate = 44100.0;
constexpr int kBlock = 128;

juce::AudioBuffer<float> makeNoise (int length, int seed)
{
    juce::Random random (seed);
    juce::AudioBuffer<float> noise (2, length);
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < length; ++i)
            noise.setSample (c, i, random.nextFloat() * 0.5f - 0.25f);
    return noise;
}

void engineCost (benchmark::State& state)
{
    const int numTriggered = (int) state.range (0);
    std::vector<std::unique_ptr<juce::AudioBuffer<float>>> buffers;
    TavrineEngine engine;
    for (int i = 0; i < engine.getNumLoops(); ++i)
    {
        buffers.push_back (std::make_unique<juce::AudioBuffer<float>> (makeNoise (44100 + 331 * i, i + 1)));
        qvrControllableAudio::MemoryAudioSourcePtr source (new qvrControllableAudio::MemoryAudioSource());
        source->setBuffer (buffers.back().get(), false);
        auto* loop = engine.getLoop (i);
        loop->setSampleSource (source.get());
        loop->getEqSource().filterType.write (juce::String ("Low"));
        loop->filterFrequencyXy.write (800.0 + 100.0 * i);
        loop->balanceXy.write ((i % 9) / 4.0 - 1.0);
    }
    engine.getAudioSource()->prepareToPlay (kBlock, kRate);
    for (int i = 0; i < numTriggered; ++i)
        engine.triggerKey (i, TavrineEngine::Key::on);

    juce::AudioBuffer<float> out (2, kBlock);
    const juce::AudioSourceChannelInfo info (out);
    for (auto _ : state)
    {
        engine.getAudioSource()->getNextAudioBlock (info);
        benchmark::DoNotOptimize (out.getReadPointer (0));
    }

    // Seconds per block over (seconds of audio per block / 100): a percentage.
    state.counters["rt_percent"] = benchmark::Counter (kBlock / kRate / 100.0, benchmark::Counter::kIsIterationInvariantRate
                                                                                  | benchmark::Counter::kInvert);
    int playing = 0;
    for (auto* loop : engine.getLoops())
        playing += loop->playing.read() ? 1 : 0;
    state.counters["loops_playing"] = playing;
    engine.getAudioSource()->releaseResources();
}
} // namespace

BENCHMARK (engineCost)->Arg (TavrineEngine::kNumLoops)->Arg (0)->Unit (benchmark::kMicrosecond);
