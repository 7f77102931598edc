#pragma once

#include <juce_core/juce_core.h>

#include <optional>
#include <ostream>

#include "cli/CommandLineSupport.h"

// `tavrine stretch`: changes the length and pitch of an audio file offline
// through one mode of the stretch library, and writes the result as a WAV.
//
// Everything runs on the calling thread; no message manager is needed. The
// whole input is held in memory, stretched in one call, then written.
namespace tavrineCli
{

enum class StretchAction
{
    stretch,
    showHelp,
};

// The command line of `tavrine stretch`, parsed and range-checked.
struct StretchOptions
{
    // The ranges of the stretch source's parameters: the player never asks
    // the library for more, so neither does the command line. 36 semitones
    // is the pitch factor range 1/8 .. 8.
    static constexpr double kMinTimeFactor = 0.25;
    static constexpr double kMaxTimeFactor = 4.0;
    static constexpr double kMaxPitchSemitones = 36.0;
    static constexpr double kMinFormantFactor = 0.25;
    static constexpr double kMaxFormantFactor = 4.0;

    StretchAction action = StretchAction::stretch;
    juce::String modeText;   // a text of the library's mode table
    double timeFactor = 1.0; // output duration / input duration
    double pitchSemitones = 0.0;
    double formantFactor = 1.0;       // 1: formants move with the pitch
    std::optional<int> bitsPerSample; // unset: the input's depth where WAV has it
    juce::String inPath, outPath;     // relative paths start at the working directory
};

// Parses the arguments that follow "stretch". Returns an error text, empty on
// success. "--help" anywhere asks for help, whatever else is on the line.
[[nodiscard]] juce::String parseStretchOptions (const juce::StringArray& args, StretchOptions& options);

juce::String getStretchHelp();

struct StretchSummary
{
    juce::File inFile, outFile;
    juce::String modeText;
    juce::int64 inLengthSamples = 0, outLengthSamples = 0;
    double sampleRate = 0.0;
    int numChannels = 0;
    int bitsPerSample = 0;
    bool isFloat = false;
    double stretchSeconds = 0.0; // the library call alone, without reading and writing
    float peak = 0.0f;
    juce::int64 clippedSamples = 0;   // beyond full scale in an integer file
    juce::int64 nonFiniteSamples = 0; // NaN or infinite, written as 0

    // Input seconds stretched per second of processing; 0 if unmeasurable.
    double getRealtimeFactor() const;

    // The one-line report: files, lengths, rate, channels, format, mode, time
    // taken and speed.
    juce::String toString() const;
};

struct StretchResult
{
    ExitCode code = ExitCode::success;
    juce::String errorText; // empty on success
    StretchSummary summary;
};

// Reads the input, stretches it and writes the output. The factors and mode
// are put to the library before any file is touched. The output appears only
// complete: it is written beside the target and moved over it at the end, so
// a failure leaves an existing file as it was.
StretchResult stretchFile (const StretchOptions& options);

// The whole command: parse, stretch, report. Summary and help go to `out`,
// errors and warnings to `err`.
[[nodiscard]] ExitCode runStretchCommand (const juce::StringArray& args, std::ostream& out, std::ostream& err);

} // namespace tavrineCli
