#pragma once

#include <juce_audio_processors/juce_audio_processors.h>

#include <functional>
#include <optional>
#include <iostream>
#include <ostream>

#include "cli/CommandLineSupport.h"
#include "cli/MidiSchedule.h"
#include "engine/TavrineEngine.h"
#include "engine/TavrineMasterChain.h"

class TavrinePluginProcessor;

// `tavrine render`: hosts the player in-process as a host's offline bounce
// would, and writes the main stereo output to a WAV file.
//
// Threads as in a host: the processor is built and destroyed on the thread
// that calls, which must be the JUCE message thread (a
// ScopedJuceInitialiser_GUI exists); it is prepared, run block by block and
// released on an audio thread of the render's own, while the message thread
// dispatches messages until the render has finished.
namespace tavrineCli
{

enum class Transport
{
    playing,
    stopped,
};

enum class RenderAction
{
    render,
    showHelp,
};

// The command line of `tavrine render`, parsed and range-checked.
struct RenderOptions
{
    static constexpr int kMinSampleRate = 8000;
    static constexpr int kMaxSampleRate = 384000;
    static constexpr int kMinBlockSize = 1;
    static constexpr int kMaxBlockSize = 16384;
    // The range of the master tempo parameters: a host may send any of it.
    static constexpr double kMinBpm = TavrineMasterChain::kMinBpm;
    static constexpr double kMaxBpm = TavrineMasterChain::kMaxBpm;
    // Bounds the file size and the render time of a mistyped length.
    static constexpr double kMaxSeconds = 3600.0;

    RenderAction action = RenderAction::render;
    juce::String midiPath;                 // empty: the built-in pattern
    juce::String outPath { "render.wav" }; // relative paths start at the working directory
    int sampleRate = 44100;
    int blockSize = 512;
    double bpm = 120.0;
    Transport transport = Transport::playing;
    std::optional<double> lengthSeconds; // exact length; otherwise MIDI length + tail
    double tailSeconds = 1.0;
    int bitsPerSample = 24;
    // Player state: a saved state file applied first, then each "NAME=VALUE"
    // of --set in order, all before the render; the state written after it.
    juce::String statePath;     // empty: the player's defaults
    juce::StringArray settings; // engine parameter names without prefix
    juce::String saveStatePath; // empty: nothing saved

    // Samples put on keys before the render, after --state and --set; the
    // render starts once all of them are loaded and prepared. Without a MIDI
    // file, the keys are then held together for kHeldKeyBars bars.
    struct KeyAssignment
    {
        int key = -1;      // 0 (C1) ... 71 (B6)
        juce::String path; // as given: relative paths start at the working directory
    };
    static constexpr int kHeldKeyBars = 4;
    // How long the samples may take to load and render before the render
    // gives up: generous, since a pre-render of long loops takes a while.
    static constexpr int kSampleWaitSeconds = 300;
    juce::Array<KeyAssignment> keys;
};

// Parses the arguments that follow "render". Returns an error text, empty on
// success. "--help" anywhere asks for help, whatever else is on the line.
// Puts the samples of options.keys on their keys and waits (dispatching
// messages, so that the players' timers run) until every loop has loaded and
// rendered, printing the preparation's progress to `progress`.
juce::String loadKeys (const RenderOptions& options, TavrinePluginProcessor& processor, std::ostream& progress,
                       ExitCode& code);

[[nodiscard]] juce::String parseRenderOptions (const juce::StringArray& args, RenderOptions& options);

juce::String getRenderHelp();

// The host's transport as the render sees it: a fixed tempo in 4/4, and a
// position that advances with each block while playing and stays at 0 while
// stopped (a stopped host does not move its cursor).
//
// Set and read on the render's audio thread only.
class RenderPlayHead final : public juce::AudioPlayHead
{
public:
    RenderPlayHead (double sampleRate, double bpm, Transport transport);

    // The position of the first sample of the block about to be processed.
    void setBlockStart (juce::int64 samplePosition) noexcept { blockStart = samplePosition; }

    juce::Optional<PositionInfo> getPosition() const override;

private:
    const double sampleRate;
    const double bpm;
    const Transport transport;
    juce::int64 blockStart = 0;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (RenderPlayHead)
};

struct OfflineRenderSettings
{
    double sampleRate = 44100.0;
    int blockSize = 512;
    double bpm = 120.0;
    Transport transport = Transport::playing;
    juce::int64 lengthSamples = 0;
};

// Receives each processed block (all the processor's channels, as many samples
// as the block holds); returns false to stop the render.
using BlockSink = std::function<bool (const juce::AudioBuffer<float>& block)>;

// Runs `processor` from start to end as a host's offline bounce does: a play
// head, non-realtime mode, prepareToPlay at the rate and block size, blocks of
// `blockSize` (the last one shorter) with the schedule's events at their
// offsets, then releaseResources, all on one audio thread started for the
// render; `sink` is called there too. Called on the message thread, that
// thread dispatches messages meanwhile. Returns when the audio thread has
// ended. The processor must not be prepared by anyone else meanwhile. Returns
// false if the sink stopped the render.
[[nodiscard]] bool renderOffline (juce::AudioProcessor& processor, const MidiSchedule& schedule,
                                  const OfflineRenderSettings& settings, const BlockSink& sink);

struct RenderSummary
{
    juce::File file;
    juce::int64 lengthSamples = 0;
    int sampleRate = 0;
    int bitsPerSample = 0;
    float peak = 0.0f;
    // NaN and infinite samples, written as 0.
    juce::int64 nonFiniteSamples = 0;

    // The one-line report: file, length in samples and seconds, rate, format, peak.
    juce::String toString() const;
};

struct RenderResult
{
    ExitCode code = ExitCode::success;
    juce::String errorText; // empty on success
    RenderSummary summary;
};

// Renders a TavrinePluginProcessor with `options` into the WAV file they
// name. The MIDI input is read before the output is touched; a file that
// fails part-way is deleted. The samples of --key are loaded first, with the
// preparation's progress written to `progress`.
RenderResult renderToFile (const RenderOptions& options, std::ostream& progress = std::clog);

// The same with any processor whose main output is stereo.
RenderResult renderToFile (const RenderOptions& options, juce::AudioProcessor& processor);

// Applies --state and then --set of `options` to the player's engine (on the
// calling thread, before any render). Returns an error text, empty on
// success, with `code` set to the exit code of the failure.
juce::String applyPlayerState (const RenderOptions& options, TavrinePluginProcessor& processor, ExitCode& code);

// Writes the player's state to --save-state, if given; same contract.
juce::String savePlayerState (const RenderOptions& options, TavrinePluginProcessor& processor, ExitCode& code);

// The whole command: parse, render, report. Summary and help go to `out`,
// errors and warnings to `err`.
[[nodiscard]] ExitCode runRenderCommand (const juce::StringArray& args, std::ostream& out, std::ostream& err);

} // namespace tavrineCli
