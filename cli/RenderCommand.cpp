#include "cli/CommandLineSupport.h"
#include "cli/RenderCommand.h"

#include <juce_audio_formats/juce_audio_formats.h>

#include <atomic>
#include <charconv>
#include <cmath>
#include <exception>
#include <stdexcept>
#include <string>

#include "controllable/lib/StateSerializers.h"
#include "shell/TavrinePluginProcessor.h"

namespace juce
{
// JUCE's own dispatch of one message of the system queue (Linux), the piece
// its event loops are built from; with modal loops off it is the one way to
// run the loop until a condition holds and run it again later.
bool dispatchNextMessageOnSystemQueue (bool returnIfNoPendingMessages);
} // namespace juce

namespace tavrineCli
{

namespace
{
// The file holds the main bus: one stereo pair.
constexpr int kNumFileChannels = 2;
constexpr double kBeatsPerBar = 4.0;

enum class OptionKind
{
    midi,
    out,
    rate,
    block,
    bpm,
    stopped,
    seconds,
    tail,
    bits,
    state,
    set,
    saveState,
    key,
};

enum class ValueUse
{
    none,
    required,
};

struct OptionInfo
{
    const char* name;
    OptionKind kind;
    ValueUse value;
};

constexpr OptionInfo kOptions[] = {
    { "--midi", OptionKind::midi, ValueUse::required },
    { "--out", OptionKind::out, ValueUse::required },
    { "--rate", OptionKind::rate, ValueUse::required },
    { "--block", OptionKind::block, ValueUse::required },
    { "--bpm", OptionKind::bpm, ValueUse::required },
    { "--stopped", OptionKind::stopped, ValueUse::none },
    { "--seconds", OptionKind::seconds, ValueUse::required },
    { "--tail", OptionKind::tail, ValueUse::required },
    { "--bits", OptionKind::bits, ValueUse::required },
    { "--state", OptionKind::state, ValueUse::required },
    { "--set", OptionKind::set, ValueUse::required },
    { "--save-state", OptionKind::saveState, ValueUse::required },
    { "--key", OptionKind::key, ValueUse::required },
};

const OptionInfo* findOption (const juce::String& name)
{
    for (const auto& option : kOptions)
        if (name == option.name)
            return &option;
    return nullptr;
}

juce::String parseIntOption (const juce::String& name, const juce::String& text, int minimum, int maximum, int& target)
{
    long long value = 0;
    if (! parseWholeNumber (text, value))
        return name + ": '" + text + "' is not a whole number";
    if (value < minimum || value > maximum)
        return name + ": " + text + " is out of range (" + juce::String (minimum) + " to " + juce::String (maximum)
               + ")";
    target = (int) value;
    return {};
}

enum class LowerBound
{
    inclusive,
    exclusive,
};

juce::String parseRealOption (const juce::String& name, const juce::String& text, double minimum, LowerBound lower,
                              double maximum, double& target)
{
    double value = 0.0;
    if (! parseFiniteNumber (text, value))
        return name + ": '" + text + "' is not a number";
    const bool tooLow = lower == LowerBound::inclusive ? value < minimum : value <= minimum;
    if (tooLow || value > maximum)
        return name + ": " + text + " is out of range (" + (lower == LowerBound::inclusive ? "" : "above ")
               + juce::String (minimum) + " to " + juce::String (maximum) + ")";
    target = value;
    return {};
}

juce::String applyOption (const OptionInfo& option, const juce::String& value, RenderOptions& options)
{
    const juce::String name (option.name);
    switch (option.kind)
    {
        case OptionKind::midi: options.midiPath = value; return {};
        case OptionKind::out: options.outPath = value; return {};
        case OptionKind::rate:
            return parseIntOption (name, value, RenderOptions::kMinSampleRate, RenderOptions::kMaxSampleRate,
                                   options.sampleRate);
        case OptionKind::block:
            return parseIntOption (name, value, RenderOptions::kMinBlockSize, RenderOptions::kMaxBlockSize,
                                   options.blockSize);
        case OptionKind::bpm:
            return parseRealOption (name, value, RenderOptions::kMinBpm, LowerBound::inclusive, RenderOptions::kMaxBpm,
                                    options.bpm);
        case OptionKind::stopped: options.transport = Transport::stopped; return {};
        case OptionKind::seconds:
        {
            double seconds = 0.0;
            auto error = parseRealOption (name, value, 0.0, LowerBound::exclusive, RenderOptions::kMaxSeconds, seconds);
            if (error.isEmpty())
                options.lengthSeconds = seconds;
            return error;
        }
        case OptionKind::tail:
            return parseRealOption (name, value, 0.0, LowerBound::inclusive, RenderOptions::kMaxSeconds,
                                    options.tailSeconds);
        case OptionKind::bits:
        {
            long long bits = 0;
            if (! parseWholeNumber (value, bits) || (bits != 16 && bits != 24 && bits != 32))
                return name + ": '" + value + "' is not one of 16, 24, 32";
            options.bitsPerSample = (int) bits;
            return {};
        }
        case OptionKind::state: options.statePath = value; return {};
        case OptionKind::saveState: options.saveStatePath = value; return {};
        case OptionKind::key:
        {
            const auto keyName = value.upToFirstOccurrenceOf ("=", false, false);
            const auto path = value.fromFirstOccurrenceOf ("=", false, false);
            const int key = TavrineEngine::getKeyIndex (keyName);
            if (! value.containsChar ('=') || path.isEmpty())
                return name + ": '" + value + "' is not KEY=FILE";
            if (key < 0)
                return name + ": '" + keyName + "' is not a key (C1 to B6)";
            options.keys.add ({ key, path });
            return {};
        }
        case OptionKind::set:
            // Whether the name exists is known only to the player: checked
            // when the state is applied.
            if (value.indexOfChar ('=') <= 0)
                return name + ": '" + value + "' is not NAME=VALUE";
            options.settings.add (value);
            return {};
    }
    jassertfalse;
    return "internal error: unhandled option " + name;
}

juce::int64 secondsToSamples (double seconds, int sampleRate)
{
    return (juce::int64) std::llround (seconds * sampleRate);
}

// Prepares a processor as a host does before a bounce and undoes it on every
// way out, so that the processor never keeps a dangling play head.
class HostSession
{
public:
    HostSession (juce::AudioProcessor& p, juce::AudioPlayHead& playHead, double sampleRate, int blockSize)
        : processor (p)
    {
        processor.setPlayHead (&playHead);
        processor.setNonRealtime (true);
        processor.setRateAndBufferSizeDetails (sampleRate, blockSize);
        processor.prepareToPlay (sampleRate, blockSize);
    }

    ~HostSession()
    {
        processor.releaseResources();
        processor.setPlayHead (nullptr);
    }

private:
    juce::AudioProcessor& processor;

    JUCE_DECLARE_NON_COPYABLE (HostSession)
};

// The audio thread of an offline bounce. runToEnd starts it and, when called
// on the message thread, keeps that thread dispatching messages (timers,
// callAsync, the parameter drain) until the job has finished, as a host's
// event loop does; elsewhere it only waits. What the job throws is thrown
// again on the caller's thread.
class RenderThread final : public juce::Thread
{
public:
    explicit RenderThread (std::function<void()> jobToRun) : juce::Thread ("tavrine render"), job (std::move (jobToRun))
    {
    }

    ~RenderThread() override { waitForThreadToExit (-1); }

    void runToEnd()
    {
        if (! startThread())
            throw std::runtime_error ("cannot start the audio thread");

        auto* mm = juce::MessageManager::getInstanceWithoutCreating();
        // Once the quit message is posted no wake-up message can be: then the
        // loop would sleep until some other event.
        if (mm != nullptr && mm->isThisTheMessageThread() && ! mm->hasStopMessageBeenSent())
            while (! finished.load())
                juce::dispatchNextMessageOnSystemQueue (false);

        waitForThreadToExit (-1);
        if (failure != nullptr)
            std::rethrow_exception (failure);
    }

private:
    void run() override
    {
        try
        {
            job();
        }
        catch (...)
        {
            failure = std::current_exception();
        }
        finished = true;
        // Wakes the message loop, which sleeps until the next message.
        juce::MessageManager::callAsync ([] {});
    }

    std::function<void()> job;
    std::exception_ptr failure;
    std::atomic<bool> finished { false };

    JUCE_DECLARE_NON_COPYABLE (RenderThread)
};

// Opens `file` for a new WAV. Returns null with `error` set on failure, and
// then leaves an existing file as it was.
std::unique_ptr<juce::AudioFormatWriter> createWavWriter (const juce::File& file, const RenderOptions& options,
                                                          ExitCode& code, juce::String& error)
{
    const auto name = file.getFullPathName();
    code = ExitCode::output;
    if (file.isDirectory())
    {
        error = "cannot write " + name + ": it is a directory";
        return {};
    }
    const auto directory = file.getParentDirectory();
    if (! directory.isDirectory())
    {
        error = "cannot write " + name + ": directory " + directory.getFullPathName() + " does not exist";
        return {};
    }

    const bool existed = file.existsAsFile();
    auto stream = std::make_unique<juce::FileOutputStream> (file);
    if (! stream->openedOk())
    {
        error = "cannot write " + name + ": " + stream->getStatus().getErrorMessage();
        return {};
    }
    // FileOutputStream appends to an existing file; a render replaces it.
    if (existed && (! stream->setPosition (0) || stream->truncate().failed()))
    {
        error = "cannot write " + name + ": " + stream->getStatus().getErrorMessage();
        return {};
    }

    juce::WavAudioFormat wav;
    std::unique_ptr<juce::AudioFormatWriter> writer (wav.createWriterFor (
        stream.get(), options.sampleRate, (unsigned int) kNumFileChannels, options.bitsPerSample, {}, 0));
    if (writer == nullptr)
    {
        // Rates and depths were checked when parsing: this is our fault.
        code = ExitCode::internalError;
        error = "no " + juce::String (options.bitsPerSample) + "-bit WAV writer at " + juce::String (options.sampleRate)
                + " Hz";
        stream.reset();
        file.deleteFile();
        return {};
    }
    stream.release(); // the writer owns it now
    return writer;
}
} // namespace

juce::String parseRenderOptions (const juce::StringArray& args, RenderOptions& options)
{
    options = {};
    for (const auto& arg : args)
    {
        if (isHelpFlag (arg))
        {
            options.action = RenderAction::showHelp;
            return {};
        }
    }

    bool lengthGiven = false;
    bool tailGiven = false;
    for (int i = 0; i < args.size(); ++i)
    {
        const auto& arg = args[i];
        if (! arg.startsWith ("-"))
            return "unexpected argument '" + arg + "'";

        // Both "--rate 48000" and "--rate=48000".
        const bool hasInlineValue = arg.containsChar ('=');
        const auto name = hasInlineValue ? arg.upToFirstOccurrenceOf ("=", false, false) : arg;
        const auto* option = findOption (name);
        if (option == nullptr)
            return "unknown option '" + name + "'";

        juce::String value;
        if (option->value == ValueUse::none)
        {
            if (hasInlineValue)
                return name + " takes no value";
        }
        else if (hasInlineValue)
        {
            value = arg.fromFirstOccurrenceOf ("=", false, false);
        }
        else if (i + 1 < args.size() && ! args[i + 1].startsWith ("--"))
        {
            value = args[++i];
        }

        if (option->value == ValueUse::required && value.isEmpty())
            return name + " needs a value";

        if (auto error = applyOption (*option, value, options); error.isNotEmpty())
            return error;
        lengthGiven = lengthGiven || option->kind == OptionKind::seconds;
        tailGiven = tailGiven || option->kind == OptionKind::tail;
    }

    if (lengthGiven && tailGiven)
        return "--seconds and --tail exclude each other";
    return {};
}

juce::String getRenderHelp()
{
    using O = RenderOptions;
    const RenderOptions defaults;
    juce::String help;
    help << "Usage: tavrine render [options]\n"
         << "\n"
         << "Plays MIDI into the player as a host's offline bounce would and writes the\n"
         << "main stereo output to a WAV file, then prints its length, rate and peak.\n"
         << "\n"
         << "Options:\n"
         << "  --midi FILE    Standard MIDI File to play; its own tempo map places the\n"
         << "                 notes. Without it, a built-in two-bar pattern at the host\n"
         << "                 tempo is played.\n"
         << "  --out FILE     WAV file to write; its directory must exist\n"
         << "                 (default: " << defaults.outPath << ")\n"
         << "  --rate HZ      sample rate, " << O::kMinSampleRate << " to " << O::kMaxSampleRate
         << " (default: " << defaults.sampleRate << ")\n"
         << "  --block N      block size in samples, " << O::kMinBlockSize << " to " << O::kMaxBlockSize
         << " (default: " << defaults.blockSize << ")\n"
         << "  --bpm BPM      host tempo, " << O::kMinBpm << " to " << O::kMaxBpm << " (default: " << defaults.bpm
         << ")\n"
         << "  --stopped      host transport stopped (default: playing)\n"
         << "  --seconds S    render exactly S seconds, at most " << O::kMaxSeconds << "\n"
         << "  --tail S       seconds to render after the end of the MIDI\n"
         << "                 (default: " << defaults.tailSeconds << "); excludes --seconds\n"
         << "  --bits N       16, 24 or 32 (32-bit floating point) (default: " << defaults.bitsPerSample << ")\n"
         << "  --state FILE   player state (XML, as --save-state writes it) to apply\n"
         << "                 before the render\n"
         << "  --set NAME=VALUE\n"
         << "                 set an engine parameter before the render, after --state,\n"
         << "                 e.g. --set loop0.gain.xyMode=0.5 or --set master.gain=0.25;\n"
         << "                 repeatable; each --set of a list parameter adds an entry\n"
         << "  --key KEY=FILE  put a sample (WAV or AIFF) on a key, C1 to B6, e.g.\n"
         << "                 --key C1=drums_124.wav; repeatable. The render waits until\n"
         << "                 every sample is loaded and fitted to the tempo. Without\n"
         << "                 --midi the keys are held together for " << O::kHeldKeyBars << " bars.\n"
         << "  --save-state FILE\n"
         << "                 write the player state after the render\n"
         << "  -h, --help     show this help\n"
         << "\n"
         << "Options also take the form --name=value.\n"
         << "\n"
         << "Exit status: " << (int) ExitCode::success << " success, " << (int) ExitCode::usage << " bad command line, "
         << (int) ExitCode::input << " MIDI, state or sample file\n"
         << "missing or damaged, " << (int) ExitCode::output << " WAV or state file not writable, "
         << (int) ExitCode::internalError << " internal failure.\n";
    return help;
}

RenderPlayHead::RenderPlayHead (double rate, double tempoBpm, Transport state)
    : sampleRate (rate), bpm (tempoBpm), transport (state)
{
    jassert (sampleRate > 0.0 && bpm > 0.0);
}

juce::Optional<juce::AudioPlayHead::PositionInfo> RenderPlayHead::getPosition() const
{
    const bool playing = transport == Transport::playing;
    const juce::int64 samples = playing ? blockStart : 0;
    const double seconds = (double) samples / sampleRate;
    const double ppq = seconds * bpm / 60.0;
    const double bars = std::floor (ppq / kBeatsPerBar);

    PositionInfo info;
    info.setIsPlaying (playing);
    info.setBpm (bpm);
    info.setTimeSignature (TimeSignature {});
    info.setTimeInSamples (samples);
    info.setTimeInSeconds (seconds);
    info.setPpqPosition (ppq);
    info.setPpqPositionOfLastBarStart (bars * kBeatsPerBar);
    info.setBarCount ((juce::int64) bars);
    return info;
}

bool renderOffline (juce::AudioProcessor& processor, const MidiSchedule& schedule,
                    const OfflineRenderSettings& settings, const BlockSink& sink)
{
    jassert (settings.sampleRate > 0.0 && settings.blockSize > 0 && settings.lengthSamples >= 0);

    RenderPlayHead playHead (settings.sampleRate, settings.bpm, settings.transport);

    // As a host does: one buffer wide enough for inputs and outputs, made
    // before the audio thread starts.
    const int numChannels = juce::jmax (1, processor.getTotalNumInputChannels(), processor.getTotalNumOutputChannels());
    juce::AudioBuffer<float> buffer (numChannels, settings.blockSize);
    juce::MidiBuffer midi;

    bool completed = true;
    RenderThread audioThread ([&] {
        const HostSession session (processor, playHead, settings.sampleRate, settings.blockSize);
        for (juce::int64 start = 0; start < settings.lengthSamples; start += settings.blockSize)
        {
            // The last block is shorter: hosts may pass any size up to the
            // prepared one, and the file then ends on the exact sample.
            const int numSamples = (int) std::min<juce::int64> (settings.blockSize, settings.lengthSamples - start);
            juce::AudioBuffer<float> block (buffer.getArrayOfWritePointers(), numChannels, numSamples);
            block.clear();
            midi.clear();
            schedule.addEventsForBlock (start, numSamples, midi);
            playHead.setBlockStart (start);
            {
                const juce::ScopedLock lock (processor.getCallbackLock());
                if (! processor.isSuspended())
                    processor.processBlock (block, midi);
            }
            if (! sink (block))
            {
                completed = false;
                return;
            }
        }
    });
    audioThread.runToEnd();
    return completed;
}

juce::String RenderSummary::toString() const
{
    const double seconds = sampleRate > 0 ? (double) lengthSamples / sampleRate : 0.0;
    const auto peakDb = peak > 0.0f ? juce::String (20.0 * std::log10 ((double) peak), 2) : juce::String ("-inf");
    const auto format = juce::String (bitsPerSample) + (bitsPerSample == 32 ? "-bit float" : "-bit");
    return file.getFullPathName() + ": " + juce::String (lengthSamples) + " samples (" + juce::String (seconds, 3)
           + " s) at " + juce::String (sampleRate) + " Hz, " + format + " stereo, peak " + juce::String (peak, 6) + " ("
           + peakDb + " dBFS)";
}

juce::String applyPlayerState (const RenderOptions& options, TavrinePluginProcessor& processor, ExitCode& code)
{
    auto* engine = processor.getEngine().getControllable();
    if (options.statePath.isNotEmpty())
    {
        const auto file = resolvePath (options.statePath);
        code = ExitCode::input;
        if (! file.existsAsFile())
            return "cannot read state file " + file.getFullPathName();
        juce::XmlDocument document (file);
        const auto state = document.getDocumentElement();
        if (state == nullptr)
            return file.getFullPathName() + " is not a player state: " + document.getLastParseError();
        if (! state->hasTagName (qvrControllableLib::StateDocumentNames::state))
            return file.getFullPathName() + " is not a player state (its root is <" + state->getTagName() + ">)";
        qvrControllableLib::XmlStateSerializer::Ptr serializer (new qvrControllableLib::XmlStateSerializer());
        serializer->addControllable (engine, TavrinePluginProcessor::kStatePrefix);
        serializer->loadFromXml (*state);
    }

    qvrControllableLib::CommandLineStateSerializer::Ptr setter (new qvrControllableLib::CommandLineStateSerializer());
    setter->addControllable (engine, {});
    for (const auto& setting : options.settings)
    {
        if (setter->applyArgument (setting) == nullptr)
        {
            code = ExitCode::usage;
            return "--set: unknown parameter '" + setting.upToFirstOccurrenceOf ("=", false, false) + "'";
        }
    }
    code = ExitCode::success;
    return {};
}

juce::String savePlayerState (const RenderOptions& options, TavrinePluginProcessor& processor, ExitCode& code)
{
    code = ExitCode::success;
    if (options.saveStatePath.isEmpty())
        return {};
    const auto file = resolvePath (options.saveStatePath);
    qvrControllableLib::XmlStateSerializer::Ptr serializer (new qvrControllableLib::XmlStateSerializer());
    serializer->addControllable (processor.getEngine().getControllable(), TavrinePluginProcessor::kStatePrefix);
    if (serializer->saveToFile (file) != 0)
    {
        code = ExitCode::output;
        return "writing state file " + file.getFullPathName() + " failed";
    }
    return {};
}

juce::String loadKeys (const RenderOptions& options, TavrinePluginProcessor& processor, std::ostream& progress,
                       ExitCode& code)
{
    code = ExitCode::success;
    auto& engine = processor.getEngine();
    auto* root = engine.getControllable();
    const auto loopParameter = [root] (int key, const char* name) {
        return root->findParameter ("loop" + juce::String (key) + "." + name).get();
    };

    // A host that knows its tempo before the song plays: loops are fitted
    // to it now, instead of being stopped and fitted again by the tempo of
    // the first block. Without real-time stretching the player's answer to a
    // new host tempo is a master tempo equal to it (applied at the next
    // block, when it stops what plays); nothing plays yet, so it is given
    // now, and the keys of a state are fitted before the render too.
    root->findParameter ("master.outputBpm")->getValue()->setFloat (options.bpm);
    if (! engine.getMasterChain().isRealtimeStretching())
        root->findParameter ("master.masterBpm")->getValue()->setFloat (options.bpm);

    for (const auto& assignment : options.keys)
    {
        const auto file = resolvePath (assignment.path);
        const auto keyName = TavrineEngine::getKeyName (assignment.key);
        if (! file.existsAsFile())
        {
            code = ExitCode::input;
            return "--key " + keyName + ": cannot read sample file " + file.getFullPathName();
        }
        auto* fileName = loopParameter (assignment.key, "fileName");
        auto* loading = loopParameter (assignment.key, "loading");
        if (fileName == nullptr || loading == nullptr)
        {
            code = ExitCode::internalError;
            return "--key " + keyName + ": the player has no sample source on this key";
        }
        // Whoever assigns a file marks the key as loading; the delivery of
        // the sample clears it.
        loading->getValue()->setBool (true);
        fileName->getValue()->setString (file.getFullPathName());
    }

    // Every key is waited for, those of a --state as much as those of --key:
    // a key is ready once its sample has arrived and no render is due or
    // running. The debounce that starts a render is a timer of the message
    // thread, so this thread dispatches while it waits.
    std::vector<qvrControllableAPI::ParameterDef*> flags;
    for (int key = 0; key < engine.getNumLoops(); ++key)
        for (auto* name : { "loading", "adjusting", "rendering" })
            if (auto* flag = loopParameter (key, name))
                flags.push_back (flag);
    const auto countBusy = [&] {
        int busy = 0;
        for (size_t i = 0; i < flags.size(); ++i)
            busy += flags[i]->getValue()->getBool() ? 1 : 0;
        return busy;
    };
    const auto deadline = juce::Time::getMillisecondCounterHiRes() + 1000.0 * RenderOptions::kSampleWaitSeconds;
    auto& preparation = engine.getSampleManager().getPreparationThread();
    int lastBusy = -1, lastPercent = -1;
    for (int busy = countBusy(); busy > 0; busy = countBusy())
    {
        // The preparation thread's share of the present batch done, in steps
        // of ten so that a long render prints a handful of lines.
        const int percent = 10 * (int) (10.0 * preparation.getProgressFraction());
        if (busy != lastBusy || percent > lastPercent)
        {
            progress << "preparing samples: " << busy << (busy == 1 ? " step" : " steps") << " to go, batch " << percent
                     << " % done\n";
            lastBusy = busy;
            lastPercent = percent;
        }
        if (juce::Time::getMillisecondCounterHiRes() > deadline)
        {
            code = ExitCode::internalError;
            return "samples still not prepared after " + juce::String (RenderOptions::kSampleWaitSeconds) + " s";
        }
        if (! juce::dispatchNextMessageOnSystemQueue (true))
            juce::Thread::sleep (5);
    }
    if (lastBusy > 0)
        progress << "preparing samples: done\n";

    for (const auto& assignment : options.keys)
    {
        if (loopParameter (assignment.key, "totalLength")->getValue()->getInt() <= 0)
        {
            code = ExitCode::input;
            return "--key " + TavrineEngine::getKeyName (assignment.key) + ": "
                   + resolvePath (assignment.path).getFullPathName() + " is not a readable audio file";
        }
    }
    return {};
}

RenderResult renderToFile (const RenderOptions& options, std::ostream& progress)
{
    TavrinePluginProcessor processor;
    RenderResult result;
    if (auto error = applyPlayerState (options, processor, result.code); error.isNotEmpty())
    {
        result.errorText = error;
        return result;
    }
    if (auto error = loadKeys (options, processor, progress, result.code); error.isNotEmpty())
    {
        result.errorText = error;
        return result;
    }
    result = renderToFile (options, processor);
    if (result.code != ExitCode::success)
        return result;
    if (auto error = savePlayerState (options, processor, result.code); error.isNotEmpty())
        result.errorText = error;
    return result;
}

RenderResult renderToFile (const RenderOptions& options, juce::AudioProcessor& processor)
{
    RenderResult result;
    const auto fail = [&result] (ExitCode code, const juce::String& text) {
        jassert (text.isNotEmpty());
        result.code = code;
        result.errorText = text;
        return result;
    };

    MidiSchedule schedule;
    if (options.midiPath.isEmpty() && ! options.keys.isEmpty())
    {
        juce::Array<int> notes;
        for (const auto& assignment : options.keys)
            notes.addIfNotAlreadyThere (TavrineEngine::kFirstNote + assignment.key);
        schedule = MidiSchedule::makeHeldKeys (notes, RenderOptions::kHeldKeyBars, options.bpm, options.sampleRate);
    }
    else if (options.midiPath.isEmpty())
        schedule = MidiSchedule::makeBuiltInPattern (options.bpm, options.sampleRate);
    else if (auto error = MidiSchedule::fromFile (resolvePath (options.midiPath), options.sampleRate, schedule);
             error.isNotEmpty())
        return fail (ExitCode::input, error);

    juce::int64 lengthSamples = 0;
    if (options.lengthSeconds.has_value())
    {
        lengthSamples = secondsToSamples (*options.lengthSeconds, options.sampleRate);
    }
    else
    {
        lengthSamples = schedule.getLengthSamples() + secondsToSamples (options.tailSeconds, options.sampleRate);
        if (lengthSamples > secondsToSamples (RenderOptions::kMaxSeconds, options.sampleRate))
            return fail (ExitCode::input,
                         "the MIDI lasts " + juce::String ((double) schedule.getLengthSamples() / options.sampleRate, 1)
                             + " s; a render is limited to " + juce::String (RenderOptions::kMaxSeconds)
                             + " s (cut it short with --seconds)");
    }

    if (processor.getMainBusNumOutputChannels() != kNumFileChannels)
        return fail (ExitCode::internalError, "the processor's main output is not stereo");

    const auto file = resolvePath (options.outPath);
    ExitCode writerCode = ExitCode::success;
    juce::String writerError;
    auto writer = createWavWriter (file, options, writerCode, writerError);
    if (writer == nullptr)
        return fail (writerCode, writerError);

    auto& summary = result.summary;
    summary.file = file;
    summary.lengthSamples = lengthSamples;
    summary.sampleRate = options.sampleRate;
    summary.bitsPerSample = options.bitsPerSample;

    // The file gets the main bus only. NaN or infinity would turn into
    // undefined integer conversions in the writer (and poison any player of
    // a float file): they are written as 0 and counted.
    juce::AudioBuffer<float> scratch (kNumFileChannels, options.blockSize);
    const auto writeBlock = [&] (const juce::AudioBuffer<float>& block) {
        const int numSamples = block.getNumSamples();
        for (int ch = 0; ch < kNumFileChannels; ++ch)
        {
            const auto* in = block.getReadPointer (ch);
            auto* out = scratch.getWritePointer (ch);
            for (int i = 0; i < numSamples; ++i)
            {
                if (std::isfinite (in[i]))
                {
                    out[i] = in[i];
                    summary.peak = std::max (summary.peak, std::abs (in[i]));
                }
                else
                {
                    out[i] = 0.0f;
                    ++summary.nonFiniteSamples;
                }
            }
        }
        return writer->writeFromAudioSampleBuffer (scratch, 0, numSamples);
    };

    OfflineRenderSettings settings;
    settings.sampleRate = options.sampleRate;
    settings.blockSize = options.blockSize;
    settings.bpm = options.bpm;
    settings.transport = options.transport;
    settings.lengthSamples = lengthSamples;

    const bool written = renderOffline (processor, schedule, settings, writeBlock);
    writer.reset(); // writes the final header and closes the file

    // A full disk may also fail the final flush, which the writer cannot
    // report: the data must all be there.
    const auto dataBytes = lengthSamples * kNumFileChannels * (options.bitsPerSample / 8);
    if (! written || file.getSize() < dataBytes)
    {
        file.deleteFile();
        return fail (ExitCode::output, "writing " + file.getFullPathName() + " failed (is the disk full?)");
    }
    return result;
}

ExitCode runRenderCommand (const juce::StringArray& args, std::ostream& out, std::ostream& err)
{
    return runSubCommand<RenderOptions> (
        "render", args, out, err, parseRenderOptions, getRenderHelp(),
        [&err] (const RenderOptions& options) { return renderToFile (options, err); },
        [] (const RenderSummary&, std::ostream&, const juce::String&) {});
}

} // namespace tavrineCli
