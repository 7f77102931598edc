#include <gtest/gtest.h>

#include "tests/support/AllocationCounter.h"
#include "tests/support/ProcessorHarness.h"

using namespace tavrine::test;

namespace
{
struct Note
{
    int sample;
    int note;
    int velocity; // 0 = note-on with velocity 0, -1 = note-off
};

// Renders `total` samples in blocks of `blockSize`, the notes placed at their
// absolute sample, and returns the triggers the engine saw.
std::vector<TriggerEvent> renderNotes (const std::vector<Note>& notes, int total, int blockSize, int channel = 1)
{
    TavrinePluginProcessor processor;
    FakePlayHead head;
    head.playing = true;
    processor.setPlayHead (&head);
    processor.prepareToPlay (44100.0, blockSize);
    TriggerRecorder recorder (processor.getEngine());

    juce::AudioBuffer<float> buffer (2, blockSize);
    juce::MidiBuffer midi;
    for (int start = 0; start < total; start += blockSize)
    {
        midi.clear();
        for (const auto& n : notes)
            if (n.sample >= start && n.sample < start + blockSize)
            {
                const auto message = n.velocity < 0
                                         ? juce::MidiMessage::noteOff (channel, n.note)
                                         : juce::MidiMessage::noteOn (channel, n.note, (juce::uint8) n.velocity);
                midi.addEvent (message, n.sample - start);
            }
        processor.processBlock (buffer, midi);
    }
    processor.releaseResources();
    processor.setPlayHead (nullptr);
    return recorder.events;
}
} // namespace

TEST (ProcessorMidi, NotesOnAnyChannelTriggerTheirKeyOnTheirSample)
{
    // Keys 36..107 only; velocity 0 releases like a note-off; offset 0 fires
    // before any audio of its block and the last offset leaves one sample after it.
    const auto events = renderNotes ({ { 0, 40, 100 },
                                       { 10, 35, 100 },
                                       { 20, 108, 100 },
                                       { 30, 36, 100 },
                                       { 40, 107, 100 },
                                       { 50, 60, 100 },
                                       { 100, 60, 0 },
                                       { 110, 61, 90 },
                                       { 120, 61, -1 },
                                       { 511, 41, 100 },
                                       { 512, 42, 100 } },
                                     1024, 512, 7);
    EXPECT_EQ (events, (std::vector<TriggerEvent> { { 4, true, 0 },
                                                    { 0, true, 30 },
                                                    { 71, true, 40 },
                                                    { 24, true, 50 },
                                                    { 24, false, 100 },
                                                    { 25, true, 110 },
                                                    { 25, false, 120 },
                                                    { 5, true, 511 },
                                                    { 6, true, 512 } }));
}

TEST (ProcessorMidi, VelocityGoesToTheLoopsFineGain)
{
    TavrinePluginProcessor processor;
    processor.prepareToPlay (44100.0, 64);
    juce::AudioBuffer<float> buffer (2, 64);
    juce::MidiBuffer midi;
    midi.addEvent (juce::MidiMessage::noteOn (1, 60, (juce::uint8) 64), 3);
    processor.processBlock (buffer, midi);
    EXPECT_NEAR (processor.getEngine().getLoop (24)->gainFine.read(), 64.0 / 127.0, 1e-6);
}

TEST (ProcessorMidi, TriggersLandOnTheSameSampleWhateverTheBlockSize)
{
    std::vector<Note> notes;
    juce::Random random (1234);
    for (int i = 0; i < 60; ++i)
        notes.push_back (
            { random.nextInt (20000), 36 + random.nextInt (72), i % 3 == 0 ? -1 : 1 + random.nextInt (127) });
    std::stable_sort (notes.begin(), notes.end(), [] (const Note& a, const Note& b) { return a.sample < b.sample; });

    const auto reference = renderNotes (notes, 20480, 4096);
    ASSERT_FALSE (reference.empty());
    for (int blockSize : { 1, 64, 512 })
        EXPECT_EQ (renderNotes (notes, 20480, blockSize), reference) << "block size " << blockSize;
}

TEST (ProcessorMidi, ProcessBlockAllocatesNothingOnTheAudioThread)
{
    TavrinePluginProcessor processor;
    FakePlayHead head;
    processor.setPlayHead (&head);
    processor.prepareToPlay (48000.0, 512);
    juce::AudioBuffer<float> buffer (2, 512);
    juce::MidiBuffer midi;
    midi.ensureSize (256);
    std::size_t allocations = 1;

    runOnAudioThread ([&] {
        const ScopedAllocationCount count;
        for (int block = 0; block < 50; ++block)
        {
            midi.clear();
            midi.addEvent (juce::MidiMessage::noteOn (1, 36 + block % 72, (juce::uint8) 100), block % 512);
            midi.addEvent (juce::MidiMessage::noteOff (1, 36 + (block + 5) % 72), (block * 7) % 512);
            head.playing = (block / 10) % 2 == 1;
            head.bpm = 100.0 + block;
            processor.processBlock (buffer, midi);
        }
        allocations = count.count();
    });

    EXPECT_EQ (allocations, 0u);
    processor.setPlayHead (nullptr);
}
