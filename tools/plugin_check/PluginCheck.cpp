// tavrine_plugin_check: loads a built Tavrine 2 binary through JUCE's own VST3
// or LV2 hosting, the way a host does, and checks what hosts and saved
// sessions rely on: identity and MIDI input, the fixed table of 648 automation
// parameters (count, names, stable IDs), rendering with notes at awkward
// offsets under a moving transport, state, and a clean unload.
//
//   tavrine_plugin_check --vst3 PATH_TO.vst3
//   tavrine_plugin_check --lv2 BUNDLE_DIR --uri URI
//   either one optionally followed by --require-state
//
// Everything runs on the main thread, which is the message thread; processBlock
// is called from it too, which both formats allow. Exit code 0 when every
// check passed, 1 when any failed, 2 for bad arguments.

#include <juce_audio_processors/juce_audio_processors.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace juce
{
// JUCE's own dispatch of one message of the system queue (Linux), the piece its
// modal loop is built from; modal loops are off, so runDispatchLoopUntil is not
// there.
bool dispatchNextMessageOnSystemQueue (bool returnIfNoPendingMessages);
} // namespace juce

namespace
{
//==============================================================================
// What the plug-in must present. Written out independently of the plug-in's
// sources on purpose: this is the contract with hosts and saved sessions.

constexpr const char* kProductName = "Tavrine 2";
constexpr int kNumKeys = 72;
constexpr int kNumRows = 9;
constexpr int kNumHostParameters = kNumKeys * kNumRows;
constexpr int kNumOutputBuses = 16;
constexpr int kMaxListedProblems = 8;

// Host index = kNumRows x key + row; each row is a label and the path of the
// parameter below "loop<key>".
constexpr std::pair<const char*, const char*> kRows[kNumRows] = {
    { "Begin", "nextBeginLoop" },
    { "Length", "nextLoopLength" },
    { "Volume", "gain.xyMode" },
    { "Pan", "balance.xyMode" },
    { "Cutoff", "filterFrequency.xyMode" },
    { "Resonance", "filterQ.xyMode" },
    { "Reverse", "globalReverse" },
    { "Resampling", "resamplingRatio.xyMode" },
    { "Finetuning", "resamplingRatio.fine" },
};

juce::String keyName (int key)
{
    static const char* const noteNames[] = { "C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B" };
    return juce::String (noteNames[key % 12]) + juce::String (key / 12 + 1);
}

struct ExpectedParameter
{
    juce::String name, path;
};

std::vector<ExpectedParameter> makeExpectedTable()
{
    std::vector<ExpectedParameter> table;
    for (int key = 0; key < kNumKeys; ++key)
        for (const auto& [label, path] : kRows)
            table.push_back ({ keyName (key) + " " + label,
                               ("loop" + juce::String (key) + "." + path).replaceCharacter ('.', '_') });
    return table;
}

// JUCE's VST3 wrapper publishes a parameter under the hash of its string ID,
// with the top bit cleared for hosts that reject negative IDs; the hosted
// parameter reports that number in decimal.
juce::String vst3IdForPath (const juce::String& path)
{
    const auto hash = static_cast<juce::uint32> (path.hashCode()) & 0x7fffffffu;
    return juce::String (hash);
}

// JUCE's LV2 wrapper writes a parameter as the property <URI:ID>, with every
// character that a Turtle name cannot hold (here the dots) turned into '_';
// JUCE's LV2 host reports "des:" and the property.
juce::String lv2IdForPath (const juce::String& uri, const juce::String& path)
{
    return "des:" + uri + ":" + path.replaceCharacter ('.', '_');
}

//==============================================================================
enum class FormatKind
{
    vst3,
    lv2
};

enum class StateRequirement
{
    reportOnly,
    required
};

struct Options
{
    FormatKind format = FormatKind::vst3;
    juce::File bundle;
    juce::String uri;
    StateRequirement state = StateRequirement::reportOnly;
};

const char* const kUsage = "usage: tavrine_plugin_check --vst3 PATH_TO.vst3 [--require-state]\n"
                           "       tavrine_plugin_check --lv2 BUNDLE_DIR --uri URI [--require-state]\n";

std::optional<Options> parseArguments (const juce::StringArray& args, juce::String& error)
{
    Options options;
    bool haveFormat = false;
    for (int i = 0; i < args.size(); ++i)
    {
        const auto& arg = args[i];
        const bool hasValue = i + 1 < args.size();
        if ((arg == "--vst3" || arg == "--lv2") && hasValue && ! haveFormat)
        {
            options.format = arg == "--vst3" ? FormatKind::vst3 : FormatKind::lv2;
            options.bundle = juce::File::getCurrentWorkingDirectory().getChildFile (args[++i]);
            haveFormat = true;
        }
        else if (arg == "--uri" && hasValue)
            options.uri = args[++i];
        else if (arg == "--require-state")
            options.state = StateRequirement::required;
        else
        {
            error = "unexpected argument '" + arg + "'";
            return std::nullopt;
        }
    }

    if (! haveFormat)
        error = "give --vst3 or --lv2";
    else if ((options.format == FormatKind::lv2) != options.uri.isNotEmpty())
        error = "--uri goes with --lv2, and only with it";
    return error.isEmpty() ? std::optional<Options> (options) : std::nullopt;
}

//==============================================================================
// Prints the report and counts failures. A failure line says what was expected
// and what was found.
class CheckReport
{
public:
    void section (const juce::String& title) { std::cout << title << std::endl; }
    void pass (const juce::String& what) { std::cout << "  ok    " << what << std::endl; }
    void note (const juce::String& what) { std::cout << "  note  " << what << std::endl; }
    void fail (const juce::String& what)
    {
        ++failures;
        std::cout << "  FAIL  " << what << std::endl;
    }
    void expect (bool holds, const juce::String& what, const juce::String& otherwise)
    {
        if (holds)
            pass (what);
        else
            fail (what + ": " + otherwise);
    }
    int getNumFailures() const { return failures; }

private:
    int failures = 0;
};

enum class Severity
{
    failure,
    // Shown in full but not counted: for a check whose feature is still being
    // built.
    uncounted
};

// Collects the problems of one check over many items and reports the first
// few, then how many there were.
class ProblemList
{
public:
    void add (const juce::String& problem)
    {
        if (count++ < kMaxListedProblems)
            listed.add (problem);
    }
    bool isEmpty() const { return count == 0; }
    void report (CheckReport& report, const juce::String& what, Severity severity = Severity::failure) const
    {
        if (count == 0)
        {
            report.pass (what);
            return;
        }
        const auto summary = what + ": " + juce::String (count) + " problem(s), first:";
        if (severity == Severity::failure)
            report.fail (summary);
        else
            report.note ("NOT COUNTED " + summary);
        for (const auto& line : listed)
            std::cout << "          " << line << std::endl;
    }

private:
    int count = 0;
    juce::StringArray listed;
};

// With JUCE_LOG_ASSERTIONS, the host side's jasserts arrive here (the plug-in's
// own copy of JUCE logs its own straight to stderr). They are counted and
// shown: a host-side assertion usually means the plug-in did something a host
// does not expect.
class AssertionLogger : public juce::Logger
{
public:
    void logMessage (const juce::String& message) override
    {
        if (message.startsWith ("JUCE Assertion failure"))
            ++assertions;
        std::cerr << message << std::endl;
    }
    int getNumAssertions() const { return assertions.load(); }

private:
    std::atomic<int> assertions { 0 };
};

// Both copies of JUCE (ours and the plug-in's) log each assertion as it fires,
// and a wrapper assertion on the audio path fires every block: thousands of
// identical lines would bury the report. While active, this passes the first
// of each distinct stderr line through and counts the repeats.
class StderrRepeatFilter
{
public:
    StderrRepeatFilter()
    {
        int fds[2];
        if (pipe (fds) != 0)
            return;
        realStderr = dup (STDERR_FILENO);
        dup2 (fds[1], STDERR_FILENO);
        close (fds[1]);
        reader = std::thread ([this, in = fds[0]] { readUntilClosed (in); });
    }

    ~StderrRepeatFilter() { finish(); }

    // Restores stderr and prints the repeated lines with their counts.
    void finish()
    {
        if (realStderr < 0)
            return;
        // Replacing the pipe's last write end lets the reader see its end.
        dup2 (realStderr, STDERR_FILENO);
        reader.join();
        close (realStderr);
        realStderr = -1;
        for (const auto& [line, count] : counts)
            if (count > 1)
                std::cerr << "(" << count << " times) " << line << std::endl;
    }

private:
    void readUntilClosed (int in)
    {
        std::string pending;
        char chunk[4096];
        for (;;)
        {
            const auto n = read (in, chunk, sizeof (chunk));
            if (n <= 0)
                break;
            pending.append (chunk, (size_t) n);
            for (auto end = pending.find ('\n'); end != std::string::npos; end = pending.find ('\n'))
            {
                passOn (pending.substr (0, end));
                pending.erase (0, end + 1);
            }
        }
        if (! pending.empty())
            passOn (pending);
        close (in);
    }

    void passOn (const std::string& line)
    {
        if (++counts[line] == 1)
        {
            const auto text = line + "\n";
            juce::ignoreUnused (write (realStderr, text.data(), text.size()));
        }
    }

    int realStderr = -1;
    // Touched by the reader only, until finish() has joined it.
    std::map<std::string, int> counts;
    std::thread reader;

    JUCE_DECLARE_NON_COPYABLE (StderrRepeatFilter)
};

void pumpMessagesFor (int milliseconds)
{
    const auto end = juce::Time::getMillisecondCounter() + (juce::uint32) milliseconds;
    while (juce::Time::getMillisecondCounter() < end)
        if (! juce::dispatchNextMessageOnSystemQueue (true))
            juce::Thread::sleep (1);
}

class Stopwatch
{
public:
    juce::String lap()
    {
        const auto now = juce::Time::getMillisecondCounterHiRes();
        const auto text = juce::String (now - last, 0) + " ms";
        last = now;
        return text;
    }

private:
    double last = juce::Time::getMillisecondCounterHiRes();
};

//==============================================================================
// A private directory for the run. HOME points into it before JUCE starts, so
// that neither the plug-in's files nor ~/.lv2 of the user take part; for LV2
// it also holds the only search folder, with a link to the bundle under test.
class Sandbox
{
public:
    Sandbox()
        : root (juce::File::getSpecialLocation (juce::File::tempDirectory)
                    .getChildFile ("tavrine-plugin-check-"
                                   + juce::String::toHexString (juce::Random::getSystemRandom().nextInt64())))
    {
        ready = root.createDirectory() && getHome().createDirectory() && getLv2Folder().createDirectory()
                && setenv ("HOME", getHome().getFullPathName().toRawUTF8(), 1) == 0;
    }

    // Never follows the link: the bundle under test stays untouched.
    ~Sandbox() { root.deleteRecursively (false); }

    bool isReady() const { return ready; }
    juce::File getHome() const { return root.getChildFile ("home"); }
    juce::File getLv2Folder() const { return root.getChildFile ("lv2"); }

    bool linkIntoLv2Folder (const juce::File& bundle) const
    {
        return bundle.createSymbolicLink (getLv2Folder().getChildFile (bundle.getFileName()), true);
    }

private:
    juce::File root;
    bool ready = false;

    JUCE_DECLARE_NON_COPYABLE (Sandbox)
};

//==============================================================================
// Finds the plug-in under test and checks that it is the only candidate.
std::unique_ptr<juce::PluginDescription> findPlugin (juce::AudioPluginFormat& format, const Options& options,
                                                     const Sandbox& sandbox, CheckReport& report)
{
    juce::OwnedArray<juce::PluginDescription> types;
    if (options.format == FormatKind::vst3)
    {
        if (! options.bundle.isDirectory())
        {
            report.fail ("no VST3 bundle at " + options.bundle.getFullPathName());
            return nullptr;
        }
        format.findAllTypesForFile (types, options.bundle.getFullPathName());
    }
    else
    {
        if (! options.bundle.getChildFile ("manifest.ttl").existsAsFile())
        {
            report.fail ("no LV2 bundle (manifest.ttl) at " + options.bundle.getFullPathName());
            return nullptr;
        }
        // The format object has read the system folders (and the empty ~/.lv2)
        // already: a copy of the URI there would mix with the bundle under test.
        format.findAllTypesForFile (types, options.uri);
        if (! types.isEmpty())
        {
            report.fail (options.uri + " is installed in a system LV2 folder; remove that copy, it would be "
                         "tested instead of " + options.bundle.getFullPathName());
            return nullptr;
        }
        if (! sandbox.linkIntoLv2Folder (options.bundle))
        {
            report.fail ("could not link the bundle into " + sandbox.getLv2Folder().getFullPathName());
            return nullptr;
        }
        const juce::FileSearchPath privateFolder (sandbox.getLv2Folder().getFullPathName());
        const auto found = format.searchPathsForPlugins (privateFolder, false);
        report.note ("LV2 plug-ins the host knows with the bundle added: " + found.joinIntoString (", "));
        format.findAllTypesForFile (types, options.uri);
    }

    if (types.isEmpty())
    {
        report.fail ("no plug-in found in " + options.bundle.getFullPathName()
                     + (options.uri.isNotEmpty() ? " under " + options.uri : juce::String()));
        return nullptr;
    }
    if (options.format == FormatKind::vst3)
        report.expect (types.size() == 1, "the bundle holds one plug-in", juce::String (types.size()) + " found");
    return std::make_unique<juce::PluginDescription> (*types.getFirst());
}

std::unique_ptr<juce::AudioPluginInstance> createInstance (juce::AudioPluginFormat& format,
                                                           const juce::PluginDescription& description,
                                                           CheckReport& report, const juce::String& which)
{
    Stopwatch stopwatch;
    juce::String error;
    auto instance = format.createInstanceFromDescription (description, 44100.0, 512, error);
    if (instance == nullptr)
        report.fail ("creating " + which + ": " + (error.isNotEmpty() ? error : "no reason given"));
    else
        report.pass ("created " + which + " (" + stopwatch.lap() + ")");
    return instance;
}

void checkIdentity (juce::AudioPluginInstance& instance, const juce::PluginDescription& description,
                    CheckReport& report)
{
    report.section ("identity");
    report.expect (description.name == kProductName, "the description is named \"" + juce::String (kProductName) + "\"",
                   "found \"" + description.name + "\"");
    report.expect (instance.getName() == kProductName, "the instance is named \"" + juce::String (kProductName) + "\"",
                   "found \"" + instance.getName() + "\"");
    report.expect (description.isInstrument, "hosts list it as an instrument", "the description says it is not one");
    report.expect (instance.acceptsMidi(), "it accepts MIDI", "acceptsMidi() is false");
    report.expect (instance.getMainBusNumOutputChannels() >= 2, "the main output bus has at least 2 channels",
                   juce::String (instance.getMainBusNumOutputChannels()) + " found");
    // Hosts route the loops' outputs by bus number, and sessions keep that.
    report.expect (instance.getBusCount (false) == kNumOutputBuses && instance.getBusCount (true) == 0,
                   juce::String (kNumOutputBuses) + " output buses and no input",
                   juce::String (instance.getBusCount (false)) + " output and "
                       + juce::String (instance.getBusCount (true)) + " input buses found");
    report.note ("maker \"" + description.manufacturerName + "\", version \"" + description.version + "\", "
                 + juce::String (instance.getTotalNumOutputChannels()) + " output channels enabled by default");
}

//==============================================================================
// The host's parameters with the format's bypass told apart: VST3 requires a
// bypass parameter and JUCE's wrapper appends one when the processor has none;
// JUCE's LV2 host turns the lv2:enabled port into one.
struct HostParameters
{
    // All but the bypass, in the host's order.
    std::vector<juce::AudioProcessorParameter*> table;
    juce::AudioProcessorParameter* bypass = nullptr;
    int bypassIndex = -1;
    int total = 0;
};

HostParameters collectParameters (juce::AudioPluginInstance& instance)
{
    HostParameters result;
    const auto& all = instance.getParameters();
    result.total = all.size();
    result.bypass = instance.getBypassParameter();
    for (int i = 0; i < all.size(); ++i)
    {
        if (all[i] == result.bypass)
            result.bypassIndex = i;
        else
            result.table.push_back (all[i]);
    }
    return result;
}

juce::String idOf (const juce::AudioProcessorParameter* parameter)
{
    if (auto* hosted = dynamic_cast<const juce::AudioPluginInstance::HostedParameter*> (parameter))
        return hosted->getParameterID();
    return {};
}

void checkParameterTable (const HostParameters& parameters, const Options& options, CheckReport& report)
{
    report.section ("parameters");
    const auto expected = makeExpectedTable();
    const int found = (int) parameters.table.size();

    report.expect (found == kNumHostParameters,
                   "exactly " + juce::String (kNumHostParameters) + " parameters besides the format's bypass",
                   juce::String (found) + " found (" + juce::String (parameters.total) + " in all)");

    ProblemList controllerParameters;
    for (auto* parameter : parameters.table)
        if (parameter->getName (256).startsWith ("MIDI CC"))
            controllerParameters.add ("\"" + parameter->getName (256) + "\"");
    controllerParameters.report (report, "no MIDI controller stand-in parameters");

    if (parameters.bypass != nullptr)
    {
        report.note ("the format adds a bypass parameter \"" + parameters.bypass->getName (256) + "\" (ID "
                     + idOf (parameters.bypass) + ") at host index " + juce::String (parameters.bypassIndex)
                     + "; it is not counted above");
        // A bypass in front would shift every host index of the table; in LV2
        // the host index carries no meaning (see below).
        if (options.format == FormatKind::vst3)
            report.expect (parameters.bypassIndex == parameters.total - 1, "the bypass comes after the table",
                           "it is at index " + juce::String (parameters.bypassIndex) + " of "
                               + juce::String (parameters.total));
    }

    ProblemList names, ids;
    if (options.format == FormatKind::vst3)
    {
        // VST3 hosts list parameters in index order and save them by ID: both
        // are checked for every entry of the table.
        std::map<juce::String, int> seenIds;
        for (int i = 0; i < kNumHostParameters; ++i)
        {
            const auto& want = expected[(size_t) i];
            if (i >= found)
            {
                names.add ("index " + juce::String (i) + ": missing, expected \"" + want.name + "\"");
                continue;
            }
            const auto* parameter = parameters.table[(size_t) i];
            const auto name = parameter->getName (256);
            if (name != want.name)
                names.add ("index " + juce::String (i) + ": \"" + name + "\", expected \"" + want.name + "\"");

            const auto id = idOf (parameter);
            if (id != vst3IdForPath (want.path))
                ids.add ("index " + juce::String (i) + " (" + want.name + "): ID " + id + ", expected "
                         + vst3IdForPath (want.path) + " (from \"" + want.path + "\")");
            if (const auto [it, inserted] = seenIds.emplace (id, i); ! inserted)
                ids.add ("indices " + juce::String (it->second) + " and " + juce::String (i) + " share ID " + id);
        }
        names.report (report, "every name matches its host index (all " + juce::String (kNumHostParameters) + ")");
        ids.report (report, "every VST3 ID is the hash of its path, none shared");
    }
    else
    {
        // LV2 has no parameter index: parameters are properties, and JUCE's
        // host lists them sorted by URI. Each table entry is looked up by the
        // property its path gives and must carry its name.
        std::map<juce::String, const juce::AudioProcessorParameter*> byId;
        for (auto* parameter : parameters.table)
            byId[idOf (parameter)] = parameter;

        for (int i = 0; i < kNumHostParameters; ++i)
        {
            const auto& want = expected[(size_t) i];
            const auto id = lv2IdForPath (options.uri, want.path);
            const auto it = byId.find (id);
            if (it == byId.end())
            {
                names.add ("index " + juce::String (i) + " (" + want.name + "): no property "
                           + id.fromFirstOccurrenceOf ("des:", false, false));
                continue;
            }
            const auto name = it->second->getName (256);
            if (name != want.name)
                names.add ("index " + juce::String (i) + " (" + id.fromLastOccurrenceOf (":", false, false) + "): \""
                           + name + "\", expected \"" + want.name + "\"");
            byId.erase (it);
        }
        for (const auto& [id, parameter] : byId)
            ids.add ("\"" + parameter->getName (256) + "\" (" + id + ")");
        names.report (report, "every table entry is a property named as its host index says (all "
                                  + juce::String (kNumHostParameters) + ")");
        ids.report (report, "no property outside the table");
    }
}

// The text a host shows next to a slider comes from the plug-in (VST3); a
// parameter that has none at an end of its range shows an empty box.
void checkParameterTexts (const HostParameters& parameters, CheckReport& report)
{
    ProblemList problems;
    for (size_t i = 0; i < parameters.table.size(); ++i)
        for (const float value : { 0.0f, 0.5f, 1.0f })
            if (parameters.table[i]->getText (value, 64).trim().isEmpty())
                problems.add ("\"" + parameters.table[i]->getName (256) + "\" at " + juce::String (value));
    problems.report (report, "every parameter has a text at 0, 0.5 and 1");
}

//==============================================================================
// A transport the test scripts: stopped, playing, a tempo change while
// playing, stopped again.
class ScriptedPlayHead : public juce::AudioPlayHead
{
public:
    void moveTo (double fraction, double sampleRate, int blockSize)
    {
        playing = fraction >= 0.25 && fraction < 0.75;
        bpm = fraction < 0.5 ? 120.0 : 97.5;
        if (playing)
        {
            timeSamples += blockSize;
            ppq += bpm / 60.0 * blockSize / sampleRate;
        }
        rate = sampleRate;
    }

    juce::Optional<PositionInfo> getPosition() const override
    {
        PositionInfo info;
        info.setIsPlaying (playing);
        info.setBpm (bpm);
        info.setTimeInSamples (timeSamples);
        info.setTimeInSeconds ((double) timeSamples / rate);
        info.setPpqPosition (ppq);
        info.setTimeSignature (TimeSignature { 4, 4 });
        return info;
    }

private:
    bool playing = false;
    double bpm = 120.0, ppq = 0.0, rate = 44100.0;
    juce::int64 timeSamples = 0;
};

// Notes of the first key (36), a middle key (60), the last key (107) and one
// outside each end (35, 108), on several channels, with a zero-velocity
// note-on as note-off, a retrigger of a held key, and messages that must be
// ignored. Played cyclically.
std::vector<juce::MidiMessage> makeMidiScript()
{
    using Midi = juce::MidiMessage;
    return {
        Midi::noteOn (1, 36, (juce::uint8) 100),   Midi::noteOn (1, 60, (juce::uint8) 80),
        Midi::noteOn (16, 107, (juce::uint8) 127), Midi::noteOn (1, 35, (juce::uint8) 100),
        Midi::noteOn (1, 108, (juce::uint8) 100),  Midi::controllerEvent (1, 7, 0),
        Midi::pitchWheel (1, 0),                   Midi::noteOff (1, 36, (juce::uint8) 0),
        Midi::noteOn (1, 60, (juce::uint8) 0),     Midi::noteOff (16, 107, (juce::uint8) 64),
        Midi::noteOff (1, 35, (juce::uint8) 0),    Midi::noteOff (1, 108, (juce::uint8) 0),
        Midi::programChange (1, 3),                Midi::noteOn (2, 36, (juce::uint8) 1),
        Midi::noteOn (2, 36, (juce::uint8) 127),   Midi::noteOff (2, 36, (juce::uint8) 0),
    };
}

enum class BusChoice
{
    mainOnly,
    all
};

struct RenderPass
{
    juce::String label;
    double sampleRate;
    int blockSize;
    BusChoice buses;
    double seconds;
};

// Hosts hand over output buffers holding whatever was there before; this
// check fills them with a value no plug-in writes, so that a channel the
// plug-in leaves unwritten shows.
constexpr float kHostFillValue = 12345.0f;

// +24 dBFS: far above anything the player can sum to, far below the values
// that uninitialised memory or a runaway filter produce.
constexpr float kMaxPlausibleLevel = 16.0f;

// Renders one pass: a zero-length block first (hosts send them), then blocks
// with MIDI at offset 0, the last offset, two at one offset and random ones,
// under the scripted transport. `betweenBlocks` runs before each block with
// its index and the number of blocks. Nothing is loaded in an instance of this
// check (clean HOME, no samples), so the output must be finite, plausible and
// in fact silent, on every channel the host enabled.
void render (juce::AudioPluginInstance& instance, const RenderPass& pass, CheckReport& report,
             const std::function<void (int, int)>& betweenBlocks)
{
    Stopwatch stopwatch;
    // A layout may change only while the plug-in is not prepared, as in a host.
    instance.releaseResources();
    if (pass.buses == BusChoice::all)
    {
        if (! instance.enableAllBuses())
            report.note ("the host could not enable all output buses");
    }
    else
        instance.disableNonMainBuses();

    instance.setNonRealtime (false);
    instance.prepareToPlay (pass.sampleRate, pass.blockSize);
    const int channels = juce::jmax (instance.getTotalNumInputChannels(), instance.getTotalNumOutputChannels());

    ScriptedPlayHead playHead;
    instance.setPlayHead (&playHead);

    juce::AudioBuffer<float> buffer (channels, pass.blockSize);
    juce::MidiBuffer midi;
    const auto script = makeMidiScript();
    size_t nextEvent = 0;
    juce::Random random (2);
    int numEvents = 0;
    std::vector<float> channelPeaks ((size_t) channels, 0.0f);
    ProblemList nonFinite, implausible, notSilent;

    juce::AudioBuffer<float> empty (channels, 0);
    instance.processBlock (empty, midi);

    const int numBlocks = (int) std::ceil (pass.seconds * pass.sampleRate / pass.blockSize);
    for (int block = 0; block < numBlocks; ++block)
    {
        if (betweenBlocks)
            betweenBlocks (block, numBlocks);

        playHead.moveTo ((double) block / numBlocks, pass.sampleRate, pass.blockSize);
        midi.clear();
        const int last = pass.blockSize - 1;
        const auto add = [&] (int offset) {
            midi.addEvent (script[nextEvent], offset);
            nextEvent = (nextEvent + 1) % script.size();
            ++numEvents;
        };
        switch (block % 5)
        {
            case 1: add (0); break;
            case 2: add (last); break;
            case 3: add (last / 2); add (last / 2); break;
            case 4: for (int i = 0; i < 3; ++i) add (random.nextInt (pass.blockSize)); break;
            default: break;
        }

        for (int channel = 0; channel < channels; ++channel)
            juce::FloatVectorOperations::fill (buffer.getWritePointer (channel), kHostFillValue, pass.blockSize);
        instance.processBlock (buffer, midi);

        for (int channel = 0; channel < channels; ++channel)
        {
            const auto* samples = buffer.getReadPointer (channel);
            const auto where = "block " + juce::String (block) + ", channel " + juce::String (channel + 1);
            float peak = 0.0f;
            for (int i = 0; i < pass.blockSize; ++i)
            {
                if (! std::isfinite (samples[i]))
                {
                    nonFinite.add (where + ", sample " + juce::String (i) + ": " + juce::String (samples[i]));
                    break;
                }
                peak = juce::jmax (peak, std::abs (samples[i]));
            }
            auto& channelPeak = channelPeaks[(size_t) channel];
            channelPeak = juce::jmax (channelPeak, peak);
            const auto peakText = where + ": peak " + juce::String (peak)
                                  + (peak == kHostFillValue ? " (the host's fill value: not written)" : "");
            if (peak > kMaxPlausibleLevel)
                implausible.add (peakText);
            if (peak > 0.0f)
                notSilent.add (peakText);
        }
    }
    instance.setPlayHead (nullptr);

    juce::StringArray soundingChannels;
    for (int channel = 0; channel < channels; ++channel)
        if (channelPeaks[(size_t) channel] > 0.0f)
            soundingChannels.add (juce::String (channel + 1) + ": " + juce::String (channelPeaks[(size_t) channel]));
    report.note (pass.label + ": " + juce::String (numBlocks) + " blocks of " + juce::String (pass.blockSize) + " at "
                 + juce::String (pass.sampleRate, 0) + " Hz on " + juce::String (channels) + " channels, "
                 + juce::String (numEvents) + " MIDI events, "
                 + (soundingChannels.isEmpty() ? juce::String ("silent")
                                               : "peaks on channels " + soundingChannels.joinIntoString (", "))
                 + " (" + stopwatch.lap() + ")");
    nonFinite.report (report, pass.label + ": every output sample is finite");
    implausible.report (report, pass.label + ": no output above +24 dBFS");
    notSilent.report (report, pass.label + ": silent on every channel, as nothing is loaded");
}

// Processes one silent block: some formats report parameter values only once
// the plug-in has processed a block (JUCE's LV2 host learns them from the
// plug-in's messages).
void processOneBlock (juce::AudioPluginInstance& instance, int blockSize)
{
    juce::AudioBuffer<float> buffer (
        juce::jmax (instance.getTotalNumInputChannels(), instance.getTotalNumOutputChannels()), blockSize);
    buffer.clear();
    juce::MidiBuffer midi;
    instance.processBlock (buffer, midi);
}

// A non-default value that every parameter type can hold exactly: the far end
// of the range from the default.
float farEndFromDefault (const juce::AudioProcessorParameter& parameter)
{
    return parameter.getDefaultValue() < 0.5f ? 1.0f : 0.0f;
}

void compareWithFarEnds (const HostParameters& actual, const HostParameters& reference, ProblemList& problems)
{
    const size_t n = std::min (actual.table.size(), reference.table.size());
    for (size_t i = 0; i < n; ++i)
    {
        const float want = farEndFromDefault (*reference.table[i]);
        const float got = actual.table[i]->getValue();
        if (std::abs (got - want) > 1.0e-3f)
            problems.add ("\"" + actual.table[i]->getName (256) + "\" is " + juce::String (got) + ", expected "
                          + juce::String (want));
    }
}

//==============================================================================
int runChecks (const Options& options, Sandbox& sandbox)
{
    CheckReport report;
    Stopwatch total;

    std::unique_ptr<juce::AudioPluginFormat> format;
    if (options.format == FormatKind::vst3)
        format = std::make_unique<juce::VST3PluginFormat>();
    else
        format = std::make_unique<juce::LV2PluginFormat>();

    report.section (format->getName() + " " + options.bundle.getFullPathName()
                    + (options.uri.isNotEmpty() ? " (" + options.uri + ")" : juce::String()));
    report.note ("HOME for this run: " + sandbox.getHome().getFullPathName());

    const auto description = findPlugin (*format, options, sandbox, report);
    if (description == nullptr)
        return report.getNumFailures();

    auto instance = createInstance (*format, *description, report, "the first instance");
    if (instance == nullptr)
        return report.getNumFailures();
    pumpMessagesFor (100);

    checkIdentity (*instance, *description, report);
    const auto parameters = collectParameters (*instance);
    checkParameterTable (parameters, options, report);
    checkParameterTexts (parameters, report);

    // Pass 1: host automation of every parameter to one end of its range, then
    // to the far end from its default, while notes play.
    report.section ("rendering");
    render (*instance, { "44100 Hz / 512, main bus", 44100.0, 512, BusChoice::mainOnly, 3.0 }, report,
            [&] (int block, int numBlocks) {
                if (block == numBlocks / 3)
                    for (auto* parameter : parameters.table)
                        parameter->setValue (0.0f);
                if (block == 2 * numBlocks / 3)
                    for (auto* parameter : parameters.table)
                        parameter->setValue (farEndFromDefault (*parameter));
            });

    // Every output bus on, first at the same rate, then at a new rate with a
    // small block: rate conversion and bus routing fail apart. JUCE's LV2 host
    // instantiates the plug-in again on each prepareToPlay and carries the
    // values over through the plug-in's state.
    report.section ("rendering with every bus");
    render (*instance, { "44100 Hz / 512, all buses", 44100.0, 512, BusChoice::all, 1.0 }, report, {});
    render (*instance, { "48000 Hz / 64, all buses", 48000.0, 64, BusChoice::all, 3.0 }, report, {});

    // The values set in pass 1 must come back from the plug-in's state, as a
    // host restoring a session gets them, in a second instance alive next to
    // the first. The hosts' caches would hide a loss: VST3 reads the values
    // back from the restored plug-in, LV2 learns them from the plug-in's
    // messages after a block.
    report.section ("state");
    {
        juce::MemoryBlock state;
        instance->getStateInformation (state);
        report.note ("the state is " + juce::String ((int) state.getSize()) + " bytes");
        auto second = createInstance (*format, *description, report, "a second instance");
        if (second != nullptr)
        {
            second->prepareToPlay (44100.0, 512);
            second->setStateInformation (state.getData(), (int) state.getSize());
            processOneBlock (*second, 512);
            ProblemList lost;
            compareWithFarEnds (collectParameters (*second), parameters, lost);
            lost.report (report, "a second instance restored from the state has every value set in pass 1",
                         options.state == StateRequirement::required ? Severity::failure : Severity::uncounted);
            if (! lost.isEmpty() && options.state != StateRequirement::required)
                report.note ("(--require-state counts it)");

            render (*second, { "second instance", 44100.0, 512, BusChoice::mainOnly, 1.0 }, report, {});
            second->releaseResources();
            Stopwatch stopwatch;
            second = nullptr;
            pumpMessagesFor (100);
            report.pass ("released and deleted the second instance (" + stopwatch.lap() + ")");
        }
    }

    report.section ("unloading");
    {
        Stopwatch stopwatch;
        instance->releaseResources();
        instance = nullptr;
        pumpMessagesFor (100);
        report.pass ("released and deleted the first instance (" + stopwatch.lap() + ")");
    }

    // Shared state inside the binary must come back after its last instance
    // has gone, as when a host removes the plug-in and adds it again.
    if (auto third = createInstance (*format, *description, report, "a third instance after all were deleted"))
    {
        render (*third, { "third instance", 44100.0, 512, BusChoice::mainOnly, 0.5 }, report, {});
        third->releaseResources();
        third = nullptr;
        pumpMessagesFor (100);
        report.pass ("released and deleted the third instance");
    }

    format = nullptr;
    report.note ("total " + total.lap());
    return report.getNumFailures();
}
} // namespace

int main (int argc, char** argv)
{
    juce::StringArray args;
    for (int i = 1; i < argc; ++i)
        args.add (juce::CharPointer_UTF8 (argv[i]));

    juce::String error;
    const auto options = parseArguments (args, error);
    if (! options)
    {
        std::cerr << "tavrine_plugin_check: " << error << "\n" << kUsage;
        return 2;
    }

    // Before JUCE starts, so that nothing reads the real HOME.
    Sandbox sandbox;
    if (! sandbox.isReady())
    {
        std::cerr << "tavrine_plugin_check: could not make a private temporary directory\n";
        return 1;
    }

    int failures = 0;
    AssertionLogger logger;
    StderrRepeatFilter stderrFilter;
    {
        juce::ScopedJuceInitialiser_GUI juceInitialiser;
        juce::Logger::setCurrentLogger (&logger);
        failures = runChecks (*options, sandbox);
        juce::Logger::setCurrentLogger (nullptr);
    }
    stderrFilter.finish();

    if (logger.getNumAssertions() > 0)
        std::cout << "note  the host side logged " << logger.getNumAssertions()
                  << " JUCE assertion(s); see the messages above" << std::endl;
    std::cout << (failures == 0 ? "PASS" : "FAIL") << " (" << failures << " failure(s))" << std::endl;
    return failures == 0 ? 0 : 1;
}
