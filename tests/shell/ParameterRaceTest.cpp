#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/support/ProcessorHarness.h"

using namespace tavrine::test;

// Built for the TSan preset: writers on other threads change loop parameters
// while a render thread runs the processor. Under TSan any plain access to a
// value's storage from both sides is reported and fails the run; in other
// builds the test still checks that the last writes land.
TEST (ParameterRace, WritersOnOtherThreadsAndTheRenderThreadShareLoopParameters)
{
    constexpr int kBlock = 256;
    constexpr int kBlocks = 120;
    constexpr int kLoops = 8;

    TavrinePluginProcessor processor;
    FakePlayHead head;
    head.playing = true;
    processor.setPlayHead (&head);
    processor.prepareToPlay (44100.0, kBlock);

    // Paths are looked up here: the writers only write.
    auto* engineParameters = processor.getEngine().getControllable();
    std::vector<qvrControllableAPI::ParameterDefPtr> dispatched;
    for (int i = 0; i < kLoops; ++i)
        for (const char* name :
             { ".gain.xyMode", ".balance.xyMode", ".filterFrequency.xyMode", ".resamplingRatio.fine" })
        {
            dispatched.push_back (engineParameters->findParameter ("loop" + juce::String (i) + name));
            ASSERT_NE (dispatched.back(), nullptr) << i << name;
        }
    const auto& hostParameters = processor.getParameters();

    std::atomic<bool> rendering { true };
    std::thread render ([&] {
        juce::AudioBuffer<float> buffer (2, kBlock);
        juce::MidiBuffer midi;
        for (int b = 0; b < kBlocks; ++b)
        {
            midi.clear();
            const int key = b % kLoops;
            midi.addEvent (juce::MidiMessage::noteOn (1, 36 + key, (juce::uint8) 100), 10);
            midi.addEvent (juce::MidiMessage::noteOff (1, 36 + (key + kLoops - 1) % kLoops), 20);
            processor.processBlock (buffer, midi);
        }
        rendering = false;
    });

    std::thread dispatcherWriter ([&] {
        for (int n = 0; rendering; ++n)
            for (auto& p : dispatched)
                p->getValue()->setFloat (0.25 + 0.5 * ((n & 7) / 7.0));
    });

    std::thread hostWriter ([&] {
        for (int n = 0; rendering; ++n)
            for (int key = 0; key < kLoops; ++key)
                for (int row = 0; row < 9; ++row)
                    hostParameters[9 * key + row]->setValue ((float) ((n + row) & 15) / 15.0f);
    });

    render.join();
    dispatcherWriter.join();
    hostWriter.join();

    // The writers' last values are the ones the loops now read.
    for (auto& p : dispatched)
        p->getValue()->setFloat (0.5);
    hostParameters[2]->setValue (1.0f);
    auto& loop0 = *processor.getEngine().getLoop (0);
    EXPECT_DOUBLE_EQ (loop0.gainXy.read(), 2.0);

    processor.releaseResources();
    processor.setPlayHead (nullptr);
    qvrControllableLib::ParameterTypes::drainAll();
}
