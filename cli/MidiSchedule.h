#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

#include <vector>

namespace tavrineCli
{

// A MIDI performance laid out on the sample grid of one offline render: every
// channel and system-exclusive event of a Standard MIDI File (or of the
// built-in pattern), with its absolute sample position at the render's rate,
// in the order a host delivers them.
//
// Built once on the calling thread before the render starts, read-only after
// that, so the render loop may ask it for each block without locks.
//
// Invariants once built:
//  1. events are sorted by samplePosition, and at one position in the order
//     in which the performance plays them;
//  2. every samplePosition is >= 0 and <= getLengthSamples().
class MidiSchedule
{
public:
    struct Event
    {
        juce::int64 samplePosition = 0;
        juce::MidiMessage message;
    };

    // A file whose events lie further out than this is damaged, not long.
    static constexpr double kMaxEventSeconds = 24.0 * 3600.0;

    MidiSchedule() = default;

    // Reads a Standard MIDI File and places its events at `sampleRate`,
    // following the file's own tempo map (or its SMPTE time division).
    // Meta events are not delivered, but the end-of-track events count towards
    // the length. Returns an error text, empty on success; on failure `result`
    // is left empty.
    [[nodiscard]] static juce::String fromFile (const juce::File& file, double sampleRate, MidiSchedule& result);

    // The same from a parsed file whose timestamps are still in ticks.
    [[nodiscard]] static juce::String fromMidiFile (const juce::MidiFile& file, double sampleRate,
                                                    MidiSchedule& result);

    // The pattern played when no file is given: two bars of 4/4 at `bpm`, a
    // held root under a rising and falling line, every note released inside
    // the two bars. Its length is exactly the two bars.
    static MidiSchedule makeBuiltInPattern (double bpm, double sampleRate);

    // The pattern played when keys are loaded and no file is given: each
    // given note held together from the first sample for `bars` bars of 4/4
    // at `bpm`, released at their end, so that the loaded loops play as one
    // groove. Its length is exactly the bars.
    static MidiSchedule makeHeldKeys (const juce::Array<int>& noteNumbers, int bars, double bpm, double sampleRate);

    const std::vector<Event>& getEvents() const noexcept { return events; }

    // Where the performance ends: the later of the last event and the last
    // end-of-track mark, in samples.
    juce::int64 getLengthSamples() const noexcept { return lengthSamples; }

    // Adds the events inside [blockStart, blockStart + numSamples) to `midi`,
    // at their offsets from blockStart. Allocates only if `midi` must grow.
    void addEventsForBlock (juce::int64 blockStart, int numSamples, juce::MidiBuffer& midi) const;

private:
    struct TimedMessage
    {
        double seconds;
        juce::MidiMessage message;
    };

    static MidiSchedule fromTimedMessages (std::vector<TimedMessage> messages, double endSeconds, double sampleRate);
    bool checkInvariants() const;

    std::vector<Event> events;
    juce::int64 lengthSamples = 0;
};

} // namespace tavrineCli
