#include "cli/MidiSchedule.h"

#include <algorithm>
#include <cmath>

namespace tavrineCli
{

namespace
{
juce::int64 secondsToSamples (double seconds, double sampleRate)
{
    // Nearest sample: an event exactly on a sample stays there, one between
    // two samples goes to the closer one. llround is monotonic, so events in
    // time order stay in order.
    return (juce::int64) std::llround (seconds * sampleRate);
}

// At one instant, note-offs go first: a note that ends where the next one on
// the same key starts (possibly on another track) must not cut that next one.
// The same rule holds inside a track when JUCE reads it.
int orderAtSameTime (const juce::MidiMessage& message)
{
    return message.isNoteOff() ? 0 : 1;
}

struct PatternNote
{
    double startBeats;
    double lengthBeats;
    int noteNumber;
    juce::uint8 velocity;
};

// A held bass note per bar under a rising line in bar 1 and a falling one in
// bar 2, all on keys 36..107 (C1 to B6) so every note reaches a loop. Gates
// below one beat leave a gap before the next note, which exercises
// note-off handling as well as note-on.
constexpr PatternNote kPattern[] = {
    { 0.0, 3.5, 36, 100 }, { 4.0, 3.5, 41, 100 }, { 0.0, 0.9, 60, 112 }, { 1.0, 0.9, 64, 90 }, { 2.0, 0.9, 67, 96 },
    { 3.0, 0.9, 72, 90 },  { 4.0, 0.9, 77, 112 }, { 5.0, 0.9, 72, 90 },  { 6.0, 0.9, 69, 96 }, { 7.0, 0.9, 65, 90 },
};
constexpr double kPatternBeats = 8.0;
constexpr int kPatternChannel = 1;
} // namespace

juce::String MidiSchedule::fromFile (const juce::File& file, double sampleRate, MidiSchedule& result)
{
    result = {};
    const auto name = file.getFullPathName();
    if (file.isDirectory())
        return "cannot read MIDI file " + name + ": it is a directory";
    if (! file.existsAsFile())
        return "cannot read MIDI file " + name + ": no such file";

    juce::FileInputStream stream (file);
    if (! stream.openedOk())
        return "cannot read MIDI file " + name + ": " + stream.getStatus().getErrorMessage();

    // No matching note-offs are invented: the processor sees the file's
    // events exactly as written, as it would in a host.
    juce::MidiFile midiFile;
    if (! midiFile.readFrom (stream, false))
        return name + " is not a Standard MIDI File, or it is damaged";

    const auto error = fromMidiFile (midiFile, sampleRate, result);
    return error.isEmpty() ? error : name + ": " + error;
}

juce::String MidiSchedule::fromMidiFile (const juce::MidiFile& file, double sampleRate, MidiSchedule& result)
{
    result = {};
    jassert (sampleRate > 0.0);

    // A division of 0 ticks per quarter note makes every tick infinitely
    // long; JUCE would turn the timestamps into NaN.
    if (file.getTimeFormat() == 0)
        return "the file's time division is 0";

    juce::MidiFile timed (file);
    timed.convertTimestampTicksToSeconds();

    std::vector<TimedMessage> messages;
    double endSeconds = 0.0;
    for (int t = 0; t < timed.getNumTracks(); ++t)
    {
        const auto& track = *timed.getTrack (t);
        for (const auto* holder : track)
        {
            const double seconds = holder->message.getTimeStamp();
            // Also catches an SMPTE division with 0 sub-frames (a division by 0).
            if (! std::isfinite (seconds) || seconds < 0.0 || seconds > kMaxEventSeconds)
                return "an event of track " + juce::String (t + 1) + " lies at an impossible time";

            endSeconds = std::max (endSeconds, seconds);
            if (! holder->message.isMetaEvent())
                messages.push_back ({ seconds, holder->message });
        }
    }

    result = fromTimedMessages (std::move (messages), endSeconds, sampleRate);
    return {};
}

MidiSchedule MidiSchedule::makeBuiltInPattern (double bpm, double sampleRate)
{
    jassert (bpm > 0.0 && sampleRate > 0.0);
    const double secondsPerBeat = 60.0 / bpm;

    std::vector<TimedMessage> messages;
    for (const auto& note : kPattern)
    {
        const double start = note.startBeats * secondsPerBeat;
        const double end = (note.startBeats + note.lengthBeats) * secondsPerBeat;
        messages.push_back ({ start, juce::MidiMessage::noteOn (kPatternChannel, note.noteNumber, note.velocity) });
        messages.push_back ({ end, juce::MidiMessage::noteOff (kPatternChannel, note.noteNumber) });
    }
    return fromTimedMessages (std::move (messages), kPatternBeats * secondsPerBeat, sampleRate);
}

MidiSchedule MidiSchedule::makeHeldKeys (const juce::Array<int>& noteNumbers, int bars, double bpm, double sampleRate)
{
    jassert (bars > 0 && bpm > 0.0 && sampleRate > 0.0);
    const double endSeconds = bars * 4.0 * 60.0 / bpm;
    std::vector<TimedMessage> messages;
    for (const int note : noteNumbers)
    {
        messages.push_back ({ 0.0, juce::MidiMessage::noteOn (kPatternChannel, note, (juce::uint8) 127) });
        messages.push_back ({ endSeconds, juce::MidiMessage::noteOff (kPatternChannel, note) });
    }
    return fromTimedMessages (std::move (messages), endSeconds, sampleRate);
}

MidiSchedule MidiSchedule::fromTimedMessages (std::vector<TimedMessage> messages, double endSeconds, double sampleRate)
{
    // Stable, so that events at one instant keep the order of their track and,
    // across tracks, the order of the tracks.
    std::stable_sort (messages.begin(), messages.end(), [] (const TimedMessage& a, const TimedMessage& b) {
        if (a.seconds != b.seconds)
            return a.seconds < b.seconds;
        return orderAtSameTime (a.message) < orderAtSameTime (b.message);
    });

    MidiSchedule schedule;
    schedule.events.reserve (messages.size());
    for (auto& timed : messages)
        schedule.events.push_back ({ secondsToSamples (timed.seconds, sampleRate), std::move (timed.message) });

    schedule.lengthSamples = secondsToSamples (endSeconds, sampleRate);
    if (! schedule.events.empty())
        schedule.lengthSamples = std::max (schedule.lengthSamples, schedule.events.back().samplePosition);

    jassert (schedule.checkInvariants());
    return schedule;
}

void MidiSchedule::addEventsForBlock (juce::int64 blockStart, int numSamples, juce::MidiBuffer& midi) const
{
    const auto blockEnd = blockStart + numSamples;
    auto it = std::lower_bound (events.begin(), events.end(), blockStart,
                                [] (const Event& e, juce::int64 position) { return e.samplePosition < position; });
    for (; it != events.end() && it->samplePosition < blockEnd; ++it)
        midi.addEvent (it->message, (int) (it->samplePosition - blockStart));
}

bool MidiSchedule::checkInvariants() const
{
    juce::int64 previous = 0;
    for (const auto& e : events)
    {
        if (e.samplePosition < previous || e.samplePosition > lengthSamples)
            return false;
        previous = e.samplePosition;
    }
    return true;
}

} // namespace tavrineCli
