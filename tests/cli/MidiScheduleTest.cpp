#include <cmath>

#include "cli/MidiSchedule.h"
#include "tests/cli/CliTestSupport.h"

using tavrineCli::MidiSchedule;

namespace
{
constexpr int kPpq = 480;
constexpr int kTempoChangeTick = 4 * kPpq; // bar 2

// 120 bpm for the first bar, then 100 bpm (600000 us per quarter note).
juce::int64 expectedSample (int tick, double rate)
{
    const double seconds = tick < kTempoChangeTick ? tick / (double) kPpq * 0.5
                                                   : 2.0 + (tick - kTempoChangeTick) / (double) kPpq * 0.6;
    return (juce::int64) std::llround (seconds * rate);
}

struct TickedMessage
{
    int tick;
    juce::MidiMessage message;
};

// What a type-1 file built by makeTempoChangeFile delivers: notes inside and
// outside the player's keys (unchanged), one on an odd tick after the tempo
// change, and a controller.
const std::vector<TickedMessage>& deliveredEvents()
{
    static const std::vector<TickedMessage> events {
        { 0, juce::MidiMessage::noteOn (1, 60, (juce::uint8) 100) },
        { 100, juce::MidiMessage::controllerEvent (1, 7, 90) },
        { 480, juce::MidiMessage::noteOff (1, 60) },
        { 1920, juce::MidiMessage::noteOn (2, 30, (juce::uint8) 70) },
        { 2400, juce::MidiMessage::noteOff (2, 30) },
        { 2401, juce::MidiMessage::noteOn (1, 108, (juce::uint8) 127) },
        { 2880, juce::MidiMessage::noteOff (1, 108) },
    };
    return events;
}

// Adds a conductor track with the tempo change, and meta events that must
// not be delivered; the end-of-track mark at bar 3 ends the performance.
juce::MidiFile makeTempoChangeFile()
{
    juce::MidiMessageSequence conductor, notes;
    conductor.addEvent (juce::MidiMessage::tempoMetaEvent (500000).withTimeStamp (0));
    conductor.addEvent (juce::MidiMessage::tempoMetaEvent (600000).withTimeStamp (kTempoChangeTick));
    for (const auto& e : deliveredEvents())
        notes.addEvent (e.message.withTimeStamp (e.tick));
    notes.addEvent (juce::MidiMessage::textMetaEvent (1, "verse").withTimeStamp (50));
    notes.addEvent (juce::MidiMessage::endOfTrack().withTimeStamp (8 * kPpq));

    juce::MidiFile file;
    file.setTicksPerQuarterNote (kPpq);
    file.addTrack (conductor);
    file.addTrack (notes);
    return file;
}
} // namespace

class MidiScheduleAtRate : public CliTempDirTest,
                           public ::testing::WithParamInterface<double>
{};

TEST_P (MidiScheduleAtRate, FollowsTheFilesTempoMapToTheSample)
{
    const double rate = GetParam();
    writeMidi (file ("tempo.mid"), makeTempoChangeFile());
    MidiSchedule schedule;
    ASSERT_EQ (MidiSchedule::fromFile (file ("tempo.mid"), rate, schedule), juce::String());

    const auto& expected = deliveredEvents();
    const auto& events = schedule.getEvents();
    ASSERT_EQ (events.size(), expected.size());
    for (size_t i = 0; i < events.size(); ++i)
    {
        EXPECT_EQ (events[i].samplePosition, expectedSample (expected[i].tick, rate)) << "event " << i;
        EXPECT_EQ (events[i].message.getDescription(), expected[i].message.getDescription());
    }
    EXPECT_EQ (schedule.getLengthSamples(), expectedSample (8 * kPpq, rate));
}

INSTANTIATE_TEST_SUITE_P (Rates, MidiScheduleAtRate, ::testing::Values (44100.0, 48000.0));

TEST (MidiSchedule, NoteOffOnAnotherTrackPrecedesANoteOnAtTheSameInstant)
{
    // Track 1 restarts note 60 exactly where track 2 releases it: delivered
    // the other way round, the release would cut the new note.
    juce::MidiMessageSequence first, second;
    first.addEvent (juce::MidiMessage::noteOn (1, 60, (juce::uint8) 100).withTimeStamp (kPpq));
    second.addEvent (juce::MidiMessage::noteOn (1, 60, (juce::uint8) 100).withTimeStamp (0));
    second.addEvent (juce::MidiMessage::noteOff (1, 60).withTimeStamp (kPpq));
    juce::MidiFile midi;
    midi.setTicksPerQuarterNote (kPpq);
    midi.addTrack (first);
    midi.addTrack (second);

    MidiSchedule schedule;
    ASSERT_EQ (MidiSchedule::fromMidiFile (midi, 44100.0, schedule), juce::String());
    const auto& events = schedule.getEvents();
    ASSERT_EQ (events.size(), 3u);
    EXPECT_TRUE (events[1].message.isNoteOff());
    EXPECT_TRUE (events[2].message.isNoteOn());
    EXPECT_EQ (events[2].samplePosition, 22050);
}

using MidiScheduleFiles = CliTempDirTest;

TEST_F (MidiScheduleFiles, MissingDamagedOrImpossibleFilesGiveAnErrorNamingThem)
{
    juce::MemoryOutputStream valid;
    ASSERT_TRUE (makeTempoChangeFile().writeTo (valid));
    ASSERT_TRUE (file ("truncated.mid").replaceWithData (valid.getData(), valid.getDataSize() - 7));
    // The division of the header (bytes 12 and 13) set to SMPTE 25 frames per
    // second with 0 sub-frames, which makes every tick infinitely long.
    juce::MemoryBlock smpte (valid.getData(), valid.getDataSize());
    smpte[12] = (char) 0xe7;
    smpte[13] = 0;
    ASSERT_TRUE (file ("zero-subframes.mid").replaceWithData (smpte.getData(), smpte.getSize()));
    ASSERT_TRUE (file ("text.mid").replaceWithText ("MThd is not enough to make a MIDI file"));
    ASSERT_TRUE (file ("empty.mid").create().wasOk());

    auto zeroTicks = makeTempoChangeFile();
    zeroTicks.setTicksPerQuarterNote (0);
    writeMidi (file ("zero-ticks.mid"), zeroTicks);

    for (const auto* name :
         { "truncated.mid", "text.mid", "empty.mid", "missing.mid", "zero-ticks.mid", "zero-subframes.mid" })
    {
        MidiSchedule schedule;
        const auto error = MidiSchedule::fromFile (file (name), 44100.0, schedule);
        EXPECT_TRUE (error.contains (file (name).getFullPathName())) << name << ": " << error;
        EXPECT_TRUE (schedule.getEvents().empty()) << name;
    }
}
