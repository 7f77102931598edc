#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/AllocationCounter.h"
#include "tests/support/ProcessorHarness.h"

using namespace tavrine::test;

namespace
{
juce::AudioProcessor::BusesLayout layoutWithBuses (const TavrinePluginProcessor& processor, int enabledBuses)
{
    auto layout = processor.getBusesLayout();
    for (int b = 0; b < layout.outputBuses.size(); ++b)
        layout.outputBuses.getReference (b) = b < enabledBuses ? juce::AudioChannelSet::stereo()
                                                               : juce::AudioChannelSet::disabled();
    return layout;
}

class ProcessorBusLayout : public ::testing::TestWithParam<double>
{};
} // namespace

// Hosts (Ardour among them) enable and disable output buses while the plug-in
// is active; JUCE's VST3 wrapper then changes the layout between two blocks
// without a new prepareToPlay. Every block must render into whatever channels
// it brings, with no allocation, at the engine's own rate (no conversion) and
// at a host rate that goes through the rate converter.
TEST_P (ProcessorBusLayout, RendersAnyLayoutChangeBetweenBlocksWithoutPrepareOrAllocation)
{
    TavrinePluginProcessor processor;
    FakePlayHead head;
    head.playing = true;
    processor.setPlayHead (&head);
    constexpr int blockSize = 512;
    processor.prepareToPlay (GetParam(), blockSize);

    juce::MidiBuffer midi;
    midi.ensureSize (256);
    for (const int buses : { 16, 1, 8, 16, 1 })
    {
        ASSERT_TRUE (processor.setBusesLayout (layoutWithBuses (processor, buses))) << buses << " buses";
        juce::AudioBuffer<float> buffer (2 * buses, blockSize);
        buffer.clear();
        midi.clear();
        midi.addEvent (juce::MidiMessage::noteOn (1, 60, (juce::uint8) 100), 17);

        std::size_t allocations = 1;
        bool finite = false;
        runOnAudioThread ([&] {
            const ScopedAllocationCount count;
            for (int block = 0; block < 4; ++block)
                processor.processBlock (buffer, midi);
            allocations = count.count();
            finite = true;
            for (int c = 0; c < buffer.getNumChannels(); ++c)
                for (int i = 0; i < blockSize; ++i)
                    finite = finite && std::isfinite (buffer.getSample (c, i));
        });
        EXPECT_EQ (allocations, 0u) << buses << " buses";
        EXPECT_TRUE (finite) << buses << " buses";
    }
    processor.releaseResources();
    processor.setPlayHead (nullptr);
}

INSTANTIATE_TEST_SUITE_P (HostRates, ProcessorBusLayout, ::testing::Values (44100.0, 48000.0));
