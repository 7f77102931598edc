#include "cli/CommandLineSupport.h"
#include "cli/StretchCommand.h"

#include <juce_audio_formats/juce_audio_formats.h>

#include <charconv>
#include <chrono>
#include <climits>
#include <cmath>
#include <new>
#include <string>
#include <vector>

#include "dsp/Meridex.h"
#include "dsp/MeridexOffline.h"

namespace tavrineCli
{

namespace
{
using Channels = std::vector<std::vector<float>>;

enum class OptionKind
{
    mode,
    time,
    pitch,
    formant,
    bits,
};

struct OptionInfo
{
    const char* name;
    OptionKind kind;
};

// Every option takes a value.
constexpr OptionInfo kOptions[] = {
    { "--mode", OptionKind::mode },       { "--time", OptionKind::time }, { "--pitch", OptionKind::pitch },
    { "--formant", OptionKind::formant }, { "--bits", OptionKind::bits },
};

// Asking the library about factors and mode needs a format. Its limits on
// factors do not depend on one; a refusal that did would still come from the
// real call.
constexpr int kProbeChannels = 1;
constexpr double kProbeSampleRate = 44100.0;

// Frames handed to the writer per call: its count is an int.
constexpr int kWriteChunkFrames = 1 << 16;

const OptionInfo* findOption (const juce::String& name)
{
    for (const auto& option : kOptions)
        if (name == option.name)
            return &option;
    return nullptr;
}

juce::String parseRange (const juce::String& name, const juce::String& text, double minimum, double maximum,
                         const char* unit, double& target)
{
    double value = 0.0;
    if (! parseFiniteNumber (text, value))
        return name + ": '" + text + "' is not a number";
    if (value < minimum || value > maximum)
        return name + ": " + text + " is out of range (" + juce::String (minimum) + " to " + juce::String (maximum)
               + unit + ")";
    target = value;
    return {};
}

juce::String listModes()
{
    juce::StringArray texts;
    for (const auto& mode : meridex::kModeTable)
        texts.add ("\"" + juce::String (mode.text) + "\"");
    return texts.joinIntoString (", ");
}

juce::String listBuiltModes()
{
    juce::StringArray texts;
    for (int i = 0; i < meridex::kModeCount; ++i)
        if (meridex::isModeBuilt (i))
            texts.add ("\"" + juce::String (meridex::kModeTable[i].text) + "\"");
    return texts.joinIntoString (", ");
}

juce::String applyOption (const OptionInfo& option, const juce::String& value, StretchOptions& options)
{
    using O = StretchOptions;
    const juce::String name (option.name);
    switch (option.kind)
    {
        case OptionKind::mode:
            if (meridex::findModeIndex (value.toRawUTF8()) < 0)
                return name + ": unknown mode '" + value + "'; the modes are " + listModes();
            options.modeText = value;
            return {};
        case OptionKind::time:
            return parseRange (name, value, O::kMinTimeFactor, O::kMaxTimeFactor, "", options.timeFactor);
        case OptionKind::pitch:
            return parseRange (name, value, -O::kMaxPitchSemitones, O::kMaxPitchSemitones, " semitones",
                               options.pitchSemitones);
        case OptionKind::formant:
            return parseRange (name, value, O::kMinFormantFactor, O::kMaxFormantFactor, "", options.formantFactor);
        case OptionKind::bits:
        {
            const auto depths = juce::WavAudioFormat().getPossibleBitDepths();
            const int bits = value.getIntValue();
            if (! depths.contains (bits) || juce::String (bits) != value)
                return name + ": '" + value + "' is not one of 8, 16, 24, 32";
            options.bitsPerSample = bits;
            return {};
        }
    }
    jassertfalse;
    return "internal error: unhandled option " + name;
}

juce::String formatRate (double rate)
{
    return rate == std::floor (rate) ? juce::String ((juce::int64) rate) : juce::String (rate, 2);
}

juce::String formatFactors (const StretchOptions& options)
{
    return "time " + juce::String (options.timeFactor) + ", pitch " + juce::String (options.pitchSemitones)
           + " semitones, formant " + juce::String (options.formantFactor);
}

// Which of our exit codes a library refusal becomes. The format of the input
// is checked before the library sees it, so a format refusal there would
// mean a reader we trusted lied; it still goes to the input.
ExitCode exitCodeForLibraryError (int code)
{
    switch (code)
    {
        case meridex::kBadArgument:
        case meridex::kBelowMinimumFactor: return ExitCode::usage;
        case meridex::kBadSampleRate:
        case meridex::kBadChannelCount:
        case meridex::kNeedsStereo: return ExitCode::input;
        default: return ExitCode::internalError;
    }
}

juce::String describeLibraryRefusal (const StretchOptions& options, int code)
{
    auto text = "the stretch library refused mode \"" + options.modeText + "\" with " + formatFactors (options) + ": "
                + meridex::describeError (code) + " (" + juce::String (code) + ")";
    if (! meridex::isModeBuilt (meridex::findModeIndex (options.modeText.toRawUTF8())))
        text << "; this build has " << listBuiltModes();
    return text;
}

// What can be known about the output before minutes are spent stretching.
// The real test is opening the file at the end.
juce::String checkOutputLocation (const juce::File& file)
{
    const auto name = file.getFullPathName();
    if (file.isDirectory())
        return "cannot write " + name + ": it is a directory";
    const auto directory = file.getParentDirectory();
    if (! directory.isDirectory())
        return "cannot write " + name + ": directory " + directory.getFullPathName() + " does not exist";
    if (! directory.hasWriteAccess())
        return "cannot write " + name + ": directory " + directory.getFullPathName() + " is not writable";
    if (file.existsAsFile() && ! file.hasWriteAccess())
        return "cannot write " + name + ": the file is read-only";
    return {};
}

int defaultBitsFor (const juce::AudioFormatReader& reader)
{
    // A 32-bit integer file has no 32-bit integer WAV here: JUCE writes 32
    // bits as float, which holds every value the stretch produced anyway.
    const int bits = (int) reader.bitsPerSample;
    return ! reader.usesFloatingPointData && (bits == 8 || bits == 16 || bits == 24) ? bits : 32;
}

struct InputAudio
{
    Channels channels;
    double sampleRate = 0.0;
    int bitsPerSample = 0;
    juce::AudioChannelSet layout;
};

// Reads the whole input into memory. Returns an error text, empty on success.
juce::String readInput (const juce::File& file, InputAudio& input)
{
    const auto name = file.getFullPathName();
    if (file.isDirectory())
        return "cannot read " + name + ": it is a directory";
    if (! file.existsAsFile())
        return "cannot read " + name + ": no such file";

    auto stream = std::make_unique<juce::FileInputStream> (file);
    if (! stream->openedOk())
        return "cannot read " + name + ": " + stream->getStatus().getErrorMessage();

    juce::AudioFormatManager formats;
    formats.registerBasicFormats();
    std::unique_ptr<juce::AudioFormatReader> reader (formats.createReaderFor (std::move (stream)));
    if (reader == nullptr)
        return name + " is not a readable " + formats.getWildcardForAllFormats() + " file, or it is damaged";

    const int numChannels = (int) reader->numChannels;
    if (numChannels < meridex::kMinChannels || numChannels > meridex::kMaxChannels)
        return name + " has " + juce::String (numChannels) + " channels; the stretch takes "
               + juce::String (meridex::kMinChannels) + " to " + juce::String (meridex::kMaxChannels);
    if (! (reader->sampleRate >= meridex::kMinSampleRate && reader->sampleRate <= meridex::kMaxSampleRate))
        return name + " is at " + formatRate (reader->sampleRate) + " Hz; the stretch takes "
               + juce::String (meridex::kMinSampleRate) + " to " + juce::String (meridex::kMaxSampleRate) + " Hz";
    if (reader->lengthInSamples < 0 || reader->lengthInSamples > INT_MAX)
        return name + " holds " + juce::String (reader->lengthInSamples) + " frames; the stretch takes at most "
               + juce::String (INT_MAX);

    // The readers take the length from the header and pad a short file with
    // silence; uncompressed data is at least frames * channels * bytes long,
    // so a smaller file was cut off.
    const int bytesPerSample = ((int) reader->bitsPerSample + 7) / 8;
    const auto dataBytes = reader->lengthInSamples * numChannels * bytesPerSample;
    if (file.getSize() < dataBytes)
        return name + " is truncated: its header announces " + juce::String (reader->lengthInSamples)
               + " frames, but the file is only " + juce::String (file.getSize()) + " bytes long";

    const int length = (int) reader->lengthInSamples;
    input.channels.assign ((size_t) numChannels, std::vector<float> ((size_t) length, 0.0f));
    std::vector<float*> pointers;
    for (auto& channel : input.channels)
        pointers.push_back (channel.data());
    if (length > 0 && ! reader->read (pointers.data(), numChannels, 0, length))
        return "reading " + name + " failed";

    input.sampleRate = reader->sampleRate;
    input.bitsPerSample = defaultBitsFor (*reader);
    input.layout = reader->getChannelLayout();
    if (input.layout.size() != numChannels)
        input.layout = juce::AudioChannelSet::canonicalChannelSet (numChannels);
    return {};
}

// NaN or infinity would become undefined integer conversions in the writer:
// they are written as 0 and counted, as is what an integer file clips.
void scanOutput (Channels& audio, bool integerFile, StretchSummary& summary)
{
    for (auto& channel : audio)
    {
        for (auto& sample : channel)
        {
            if (! std::isfinite (sample))
            {
                sample = 0.0f;
                ++summary.nonFiniteSamples;
                continue;
            }
            const float magnitude = std::abs (sample);
            summary.peak = std::max (summary.peak, magnitude);
            summary.clippedSamples += integerFile && magnitude > 1.0f;
        }
    }
}

// Writes beside the target and moves the result over it only once it is
// complete. Returns an error text, empty on success.
juce::String writeOutput (const juce::File& file, const Channels& audio, const InputAudio& input, int bitsPerSample)
{
    const auto name = file.getFullPathName();
    const juce::TemporaryFile temporary (file);
    auto stream = std::make_unique<juce::FileOutputStream> (temporary.getFile());
    if (! stream->openedOk())
        return "cannot write " + name + ": " + stream->getStatus().getErrorMessage();

    juce::WavAudioFormat wav;
    const auto layout = wav.isChannelLayoutSupported (input.layout)
                            ? input.layout
                            : juce::AudioChannelSet::discreteChannels ((int) audio.size());
    std::unique_ptr<juce::AudioFormatWriter> writer (
        wav.createWriterFor (stream.get(), input.sampleRate, layout, bitsPerSample, {}, 0));
    if (writer == nullptr)
    {
        // Depths were checked when parsing and a discrete layout always fits.
        jassertfalse;
        return "no " + juce::String (bitsPerSample) + "-bit WAV writer for " + juce::String ((int) audio.size())
               + " channels at " + formatRate (input.sampleRate) + " Hz";
    }
    stream.release(); // the writer owns it now

    const juce::int64 length = audio.empty() ? 0 : (juce::int64) audio[0].size();
    std::vector<const float*> pointers (audio.size());
    bool written = true;
    for (juce::int64 start = 0; written && start < length; start += kWriteChunkFrames)
    {
        for (size_t c = 0; c < audio.size(); ++c)
            pointers[c] = audio[c].data() + start;
        const int count = (int) std::min<juce::int64> (kWriteChunkFrames, length - start);
        written = writer->writeFromFloatArrays (pointers.data(), (int) pointers.size(), count);
    }
    writer.reset(); // writes the final header and closes the file

    // A full disk may also fail the final flush, which the writer cannot
    // report: the data must all be there.
    const auto dataBytes = length * (juce::int64) audio.size() * (bitsPerSample / 8);
    if (! written || temporary.getFile().getSize() < dataBytes)
        return "writing " + name + " failed (is the disk full?)";
    if (! temporary.overwriteTargetFileWithTemporary())
        return "cannot write " + name + ": replacing it failed";
    return {};
}
} // namespace

juce::String parseStretchOptions (const juce::StringArray& args, StretchOptions& options)
{
    options = {};
    options.modeText = meridex::kDefaultOfflineMode;
    for (const auto& arg : args)
    {
        if (arg == "--")
            break;
        if (isHelpFlag (arg))
        {
            options.action = StretchAction::showHelp;
            return {};
        }
    }

    juce::StringArray files;
    bool optionsEnded = false;
    for (int i = 0; i < args.size(); ++i)
    {
        const auto& arg = args[i];
        // A file whose name starts with "-" goes after "--".
        if (optionsEnded || ! arg.startsWith ("-"))
        {
            files.add (arg);
            continue;
        }
        if (arg == "--")
        {
            optionsEnded = true;
            continue;
        }

        // Both "--time 2" and "--time=2".
        const bool hasInlineValue = arg.containsChar ('=');
        const auto name = hasInlineValue ? arg.upToFirstOccurrenceOf ("=", false, false) : arg;
        const auto* option = findOption (name);
        if (option == nullptr)
            return "unknown option '" + name + "'";

        // A negative pitch ("-7") is a value; nothing valid starts with "--".
        juce::String value;
        if (hasInlineValue)
            value = arg.fromFirstOccurrenceOf ("=", false, false);
        else if (i + 1 < args.size() && ! args[i + 1].startsWith ("--"))
            value = args[++i];
        if (value.isEmpty())
            return name + " needs a value";

        if (auto error = applyOption (*option, value, options); error.isNotEmpty())
            return error;
    }

    if (files.size() < 2)
        return "needs an input and an output file";
    if (files.size() > 2)
        return "unexpected argument '" + files[2] + "'";
    options.inPath = files[0];
    options.outPath = files[1];
    return {};
}

juce::String getStretchHelp()
{
    using O = StretchOptions;
    juce::String help;
    help << "Usage: tavrine stretch [options] IN OUT.wav\n"
         << "\n"
         << "Changes the length and pitch of an audio file offline through the stretch\n"
         << "library, and writes a WAV file with the input's sample rate and channels.\n"
         << "The output is exactly round(T x input length) frames long and starts at\n"
         << "the first input sample. IN may be any WAV or AIFF file.\n"
         << "\n"
         << "Options:\n"
         << "  --mode TEXT    stretch mode, one of " << listModes() << "\n"
         << "                 (default: \"" << meridex::kDefaultOfflineMode << "\"; this build has " << listBuiltModes()
         << ")\n"
         << "  --time T       output duration / input duration, " << O::kMinTimeFactor << " to " << O::kMaxTimeFactor
         << " (default: 1)\n"
         << "  --pitch S      pitch shift in semitones, " << -O::kMaxPitchSemitones << " to " << O::kMaxPitchSemitones
         << " (default: 0)\n"
         << "  --formant F    formant shift on top of the pitch shift, " << O::kMinFormantFactor << " to "
         << O::kMaxFormantFactor << "\n"
         << "                 (default: 1, formants move with the pitch)\n"
         << "  --bits N       8, 16, 24 or 32 (32-bit floating point) (default: the input's\n"
         << "                 depth; 32 for floating-point or 32-bit input)\n"
         << "  -h, --help     show this help\n"
         << "\n"
         << "Options also take the form --name=value; '--' ends the options.\n"
         << "The library may refuse a combination within these ranges (time x pitch\n"
         << "factor below 0.1) and says why.\n"
         << "\n"
         << "Prints one line: lengths, rate, channels, format, the time the stretch took\n"
         << "and its speed in input seconds per second (x realtime).\n"
         << "\n"
         << "Exit status: " << (int) ExitCode::success << " success, " << (int) ExitCode::usage
         << " bad command line or factors refused, " << (int) ExitCode::input << " input missing,\n"
         << "unreadable or damaged, " << (int) ExitCode::output << " output not writable, "
         << (int) ExitCode::internalError << " internal failure.\n";
    return help;
}

double StretchSummary::getRealtimeFactor() const
{
    if (stretchSeconds <= 0.0 || sampleRate <= 0.0)
        return 0.0;
    return (double) inLengthSamples / sampleRate / stretchSeconds;
}

juce::String StretchSummary::toString() const
{
    const auto seconds = [this] (juce::int64 frames) {
        return juce::String (sampleRate > 0.0 ? (double) frames / sampleRate : 0.0, 3) + " s";
    };
    const auto format = juce::String (bitsPerSample) + (isFloat ? "-bit float" : "-bit");
    const auto channels = numChannels == 1 ? juce::String ("1 channel") : juce::String (numChannels) + " channels";
    return outFile.getFullPathName() + ": " + juce::String (outLengthSamples) + " frames (" + seconds (outLengthSamples)
           + ") from " + juce::String (inLengthSamples) + " (" + seconds (inLengthSamples) + ") of "
           + inFile.getFullPathName() + ", " + formatRate (sampleRate) + " Hz, " + channels + ", " + format + ", "
           + modeText + " in " + juce::String (stretchSeconds, 3) + " s (" + juce::String (getRealtimeFactor(), 1)
           + "x realtime)";
}

StretchResult stretchFile (const StretchOptions& options)
{
    StretchResult result;
    const auto fail = [&result] (ExitCode code, const juce::String& text) {
        jassert (text.isNotEmpty());
        result.code = code;
        result.errorText = text;
        return result;
    };

    const auto modeText = options.modeText.toStdString();
    Channels stretched;
    // The library is the authority on what it takes: it answers with no
    // frames at the cost of one engine creation, before any file is read.
    if (const int code = meridex::stretchOffline (nullptr, kProbeChannels, 0, kProbeSampleRate, options.timeFactor,
                                                  options.pitchSemitones, options.formantFactor, stretched,
                                                  modeText.c_str());
        code != meridex::kNoError)
        return fail (exitCodeForLibraryError (code), describeLibraryRefusal (options, code));

    const auto inFile = resolvePath (options.inPath);
    const auto outFile = resolvePath (options.outPath);
    if (const auto error = checkOutputLocation (outFile); error.isNotEmpty())
        return fail (ExitCode::output, error);

    InputAudio input;
    try
    {
        if (const auto error = readInput (inFile, input); error.isNotEmpty())
            return fail (ExitCode::input, error);

        const int numChannels = (int) input.channels.size();
        const int numFrames = (int) input.channels[0].size();
        std::vector<const float*> pointers;
        for (const auto& channel : input.channels)
            pointers.push_back (channel.data());

        const auto start = std::chrono::steady_clock::now();
        const int code = meridex::stretchOffline (pointers.data(), numChannels, numFrames, input.sampleRate,
                                                  options.timeFactor, options.pitchSemitones, options.formantFactor,
                                                  stretched, modeText.c_str());
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        if (code != meridex::kNoError)
            return fail (exitCodeForLibraryError (code), describeLibraryRefusal (options, code));

        auto& summary = result.summary;
        summary.inFile = inFile;
        summary.outFile = outFile;
        summary.modeText = options.modeText;
        summary.inLengthSamples = numFrames;
        summary.outLengthSamples = (juce::int64) stretched[0].size();
        summary.sampleRate = input.sampleRate;
        summary.numChannels = numChannels;
        summary.bitsPerSample = options.bitsPerSample.value_or (input.bitsPerSample);
        summary.isFloat = summary.bitsPerSample == 32;
        summary.stretchSeconds = elapsed.count();

        // The input is no longer needed; the writer is the last big user.
        input.channels = {};
        scanOutput (stretched, ! summary.isFloat, summary);
        if (const auto error = writeOutput (outFile, stretched, input, summary.bitsPerSample); error.isNotEmpty())
            return fail (ExitCode::output, error);
    }
    catch (const std::bad_alloc&)
    {
        return fail (ExitCode::internalError, "not enough memory to stretch " + inFile.getFullPathName());
    }
    return result;
}

ExitCode runStretchCommand (const juce::StringArray& args, std::ostream& out, std::ostream& err)
{
    return runSubCommand<StretchOptions> (
        "stretch", args, out, err, parseStretchOptions, getStretchHelp(), stretchFile,
        [] (const StretchSummary& summary, std::ostream& warnings, const juce::String& prefix) {
            if (summary.clippedSamples > 0)
                warnings << prefix << "warning: the peak " << summary.peak << " is beyond full scale; "
                         << summary.clippedSamples << " samples were clipped in the " << summary.bitsPerSample
                         << "-bit file (--bits 32 keeps them)\n";
        });
}

} // namespace tavrineCli
