#include <benchmark/benchmark.h>
#include <juce_events/juce_events.h>

#include "shell/TavrinePluginProcessor.h"

// Cost of processBlock on the engine spine, reported as the fraction of one
// core's real time that the block takes (rt_fraction, lower is better).
namespace
{
class SteadyPlayHead : public juce::AudioPlayHead
{
public:
    juce::Optional<PositionInfo> getPosition() const override
    {
        PositionInfo info;
        info.setBpm (124.0);
        info.setIsPlaying (true);
        return info;
    }
};

void processBlockCost (benchmark::State& state)
{
    const double rate = (double) state.range (0);
    const int block = (int) state.range (1);
    TavrinePluginProcessor processor;
    SteadyPlayHead head;
    processor.setPlayHead (&head);
    processor.prepareToPlay (rate, block);
    juce::AudioBuffer<float> buffer (2, block);
    juce::MidiBuffer midi;
    midi.ensureSize (64);
    int counter = 0;

    for (auto _ : state)
    {
        midi.clear();
        // A note every few blocks keeps the MIDI cut and triggerKey in the measure.
        if (++counter % 8 == 0)
            midi.addEvent (juce::MidiMessage::noteOn (1, 36 + (counter / 8) % 72, (juce::uint8) 100), block / 2);
        processor.processBlock (buffer, midi);
        benchmark::DoNotOptimize (buffer.getReadPointer (0));
    }

    const double blockSeconds = block / rate;
    state.counters["rt_fraction"] = benchmark::Counter (blockSeconds, benchmark::Counter::kIsIterationInvariantRate
                                                                          | benchmark::Counter::kInvert);
    processor.setPlayHead (nullptr);
}
} // namespace

BENCHMARK (processBlockCost)->Args ({ 44100, 512 })->Args ({ 48000, 64 })->Unit (benchmark::kMicrosecond);

int main (int argc, char** argv)
{
    juce::ScopedJuceInitialiser_GUI juce;
    benchmark::Initialize (&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
