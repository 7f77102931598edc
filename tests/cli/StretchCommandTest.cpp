// `tavrine stretch` from the command line to the file: options, the length,
// channels and pitch of what is written, formats, and every way it can fail.

#include <cmath>
#include <sstream>

#include "cli/StretchCommand.h"
#include "dsp/Meridex.h"
#include "tests/cli/CliTestSupport.h"

using namespace tavrineCli;

namespace
{
using Channels = std::vector<std::vector<float>>;

constexpr double kRate = 44100.0;

std::vector<float> sine (double hz, int frames, double rate = kRate)
{
    std::vector<float> samples ((size_t) frames);
    for (int i = 0; i < frames; ++i)
        samples[(size_t) i] = 0.5f * (float) std::sin (2.0 * juce::MathConstants<double>::pi * hz * i / rate);
    return samples;
}

// An AIFF file for the extension ".aiff", else a WAV file.
void writeAudio (const juce::File& target, const Channels& audio, double rate, int bits)
{
    std::unique_ptr<juce::AudioFormat> format;
    if (target.hasFileExtension ("aiff"))
        format = std::make_unique<juce::AiffAudioFormat>();
    else
        format = std::make_unique<juce::WavAudioFormat>();
    ASSERT_TRUE (target.deleteFile()); // an output stream appends to an existing file
    auto stream = std::make_unique<juce::FileOutputStream> (target);
    std::unique_ptr<juce::AudioFormatWriter> writer (
        format->createWriterFor (stream.get(), rate, (unsigned int) audio.size(), bits, {}, 0));
    ASSERT_NE (writer, nullptr);
    stream.release();
    std::vector<const float*> pointers;
    for (const auto& channel : audio)
        pointers.push_back (channel.data());
    ASSERT_TRUE (writer->writeFromFloatArrays (pointers.data(), (int) audio.size(), (int) audio[0].size()));
}

// Frequency of one channel from the upward zero crossings in the middle half,
// placed between samples by linear interpolation; 0 for a silent channel.
double measureHz (const juce::AudioBuffer<float>& audio, int channel)
{
    const auto* x = audio.getReadPointer (channel);
    const int n = audio.getNumSamples();
    double first = -1.0, last = -1.0;
    int crossings = 0;
    for (int i = n / 4; i + 1 < n * 3 / 4; ++i)
    {
        if (x[i] <= 0.0f && x[i + 1] > 0.0f)
        {
            last = i + x[i] / (x[i] - x[i + 1]);
            first = first < 0.0 ? last : first;
            ++crossings;
        }
    }
    return crossings > 1 ? (crossings - 1) * kRate / (last - first) : 0.0;
}

// Within a tenth of a percent (under 2 cents): the engine's error is 1000 times smaller.
void expectHz (const juce::AudioBuffer<float>& audio, int channel, double hz)
{
    EXPECT_NEAR (measureHz (audio, channel), hz, hz * 0.001) << "channel " << channel;
}

struct CommandRun
{
    ExitCode code;
    std::string out, err;
};

class StretchCommand : public CliTempDirTest
{
protected:
    juce::String path (const juce::String& name) const { return file (name).getFullPathName(); }

    CommandRun stretch (juce::StringArray args, const juce::String& in = "in.wav", const juce::String& out = "out.wav")
    {
        args.addArray ({ path (in), path (out) });
        std::ostringstream outText, errText;
        const auto code = runStretchCommand (args, outText, errText);
        return { code, outText.str(), errText.str() };
    }
};
} // namespace

// --- Options ---------------------------------------------------------------

TEST (StretchOptions, ReadsEveryOptionInBothFormsWithNegativePitches)
{
    StretchOptions o;
    ASSERT_EQ (parseStretchOptions ({ "--mode", "Efficient V3", "--time", "1.25", "--pitch", "-7", "--formant=0.5",
                                      "--bits=16", "a.aiff", "b.wav" },
                                    o),
               "");
    EXPECT_EQ (o.modeText, "Efficient V3");
    EXPECT_EQ (std::make_tuple (o.timeFactor, o.pitchSemitones, o.formantFactor), std::make_tuple (1.25, -7.0, 0.5));
    EXPECT_EQ (o.bitsPerSample, 16);
    EXPECT_EQ (o.inPath + " " + o.outPath, "a.aiff b.wav");

    ASSERT_EQ (parseStretchOptions ({ "--pitch=-36", "--", "-in.wav", "--help" }, o), "");
    EXPECT_EQ (o.pitchSemitones, -36.0);
    EXPECT_EQ (o.inPath + " " + o.outPath, "-in.wav --help") << "after '--' everything is a file";
    EXPECT_EQ (o.modeText, "Efficient V3") << "the mode every build has is the default";
    EXPECT_FALSE (o.bitsPerSample.has_value());

    ASSERT_EQ (parseStretchOptions ({ "in.wav", "--time", "9", "-h" }, o), "");
    EXPECT_EQ (o.action, StretchAction::showHelp);
}

TEST (StretchOptions, TakesTheParameterRangesInclusiveAndRefusesEverythingElse)
{
    StretchOptions o;
    for (const auto& [name, value] : std::vector<std::pair<const char*, const char*>> { { "--time", "0.25" },
                                                                                        { "--time", "4" },
                                                                                        { "--pitch", "-36" },
                                                                                        { "--pitch", "36" },
                                                                                        { "--formant", "0.25" },
                                                                                        { "--formant", "4" } })
        EXPECT_EQ (parseStretchOptions ({ name, value, "a", "b" }, o), "") << name << " " << value;

    for (const auto& [name, value] : std::vector<std::pair<const char*, const char*>> { { "--time", "0.249" },
                                                                                        { "--time", "4.001" },
                                                                                        { "--time", "nan" },
                                                                                        { "--pitch", "-37" },
                                                                                        { "--pitch", "seven" },
                                                                                        { "--formant", "4.5" },
                                                                                        { "--bits", "24.0" },
                                                                                        { "--mode", "efficient v3" } })
    {
        const auto error = parseStretchOptions ({ name, value, "a", "b" }, o);
        EXPECT_TRUE (error.startsWith (name)) << name << " " << value << ": '" << error << "'";
    }
    EXPECT_TRUE (parseStretchOptions ({ "--mode", "Loud", "a", "b" }, o).contains ("\"Efficient V3\""))
        << "lists the modes";

    for (const auto& args :
         { juce::StringArray { "in.wav" }, juce::StringArray { "a", "b", "c" },
           juce::StringArray { "--time", "--pitch", "3", "a", "b" }, juce::StringArray { "a", "b", "--time" } })
        EXPECT_NE (parseStretchOptions (args, o), "") << args.joinIntoString (" ");
}

// --- What is written -------------------------------------------------------

TEST_F (StretchCommand, WritesTheRoundedLengthAndMovesEachChannelsToneByThePitchAlone)
{
    // Length, timing and pitch accuracy are the library's; here every channel
    // must reach its own place in the file, with the factors where they belong.
    struct Case
    {
        int numChannels;
        double timeFactor, semitones;
    };
    constexpr int kFrames = 22051; // odd: T x n is whole only for T = 2
    for (const auto& c : { Case { 1, 0.5, 0.0 }, Case { 2, 1.25, 7.0 }, Case { 3, 2.0, 0.0 }, Case { 2, 1.0, -5.0 } })
    {
        SCOPED_TRACE (juce::String (c.numChannels) + " channels, time " + juce::String (c.timeFactor) + ", pitch "
                      + juce::String (c.semitones));
        Channels input;
        for (int ch = 0; ch < c.numChannels; ++ch)
            input.push_back (sine (220.0 * (ch + 1), kFrames)); // a swap or a mix of channels shows
        writeAudio (file ("in.wav"), input, kRate, 24);

        const auto run = stretch ({ "--time", juce::String (c.timeFactor), "--pitch", juce::String (c.semitones) });
        ASSERT_EQ (run.code, ExitCode::success) << run.err;
        const auto wav = readWav (file ("out.wav"));
        EXPECT_EQ (wav.lengthSamples, std::llround (c.timeFactor * kFrames));
        EXPECT_EQ (std::make_tuple (wav.numChannels, wav.sampleRate), std::make_tuple (c.numChannels, kRate));
        EXPECT_TRUE (wav.allFinite);
        for (int ch = 0; ch < wav.numChannels; ++ch)
            expectHz (wav.samples, ch, 220.0 * (ch + 1) * std::pow (2.0, c.semitones / 12.0));
        EXPECT_NE (run.out.find (std::to_string (wav.lengthSamples) + " frames"), std::string::npos) << run.out;
        EXPECT_NE (run.out.find ("x realtime"), std::string::npos) << run.out;
    }
}

TEST_F (StretchCommand, KeepsTheInputsRateAndDepthUnlessBitsIsGiven)
{
    struct Case
    {
        const char* in;
        double rate;
        int inBits, outBits;
        juce::StringArray options;
    };
    for (const auto& c : { Case { "in.wav", 48000.0, 16, 16, {} }, Case { "in.aiff", 96000.0, 24, 24, {} },
                           Case { "in.wav", 44100.0, 16, 32, { "--bits", "32" } } })
    {
        writeAudio (file (c.in), { sine (440.0, 8000, c.rate) }, c.rate, c.inBits);
        auto options = c.options;
        options.addArray ({ "--time", "1.5" });
        const auto run = stretch (options, c.in);
        ASSERT_EQ (run.code, ExitCode::success) << run.err;
        const auto wav = readWav (file ("out.wav"));
        EXPECT_EQ (std::make_tuple (wav.sampleRate, wav.bitsPerSample, wav.isFloat, wav.lengthSamples),
                   std::make_tuple (c.rate, c.outBits, c.outBits == 32, (juce::int64) 12000))
            << c.in << " at " << c.rate << " Hz, " << c.inBits << " bits";
    }
}

TEST_F (StretchCommand, AnEmptyInputGivesAnEmptyFileAndAnIntegerFileWarnsOfClipping)
{
    writeAudio (file ("in.wav"), { {} }, kRate, 16);
    const auto empty = stretch ({ "--time", "3", "--pitch", "5" });
    ASSERT_EQ (empty.code, ExitCode::success) << empty.err;
    EXPECT_EQ (readWav (file ("out.wav")).lengthSamples, 0);

    Channels loud { sine (440.0, 8000) };
    for (auto& s : loud[0])
        s *= 3.0f;
    writeAudio (file ("in.wav"), loud, kRate, 32);
    const auto clipped = stretch ({ "--bits", "16" });
    EXPECT_EQ (clipped.code, ExitCode::success);
    EXPECT_NE (clipped.err.find ("clipped"), std::string::npos) << clipped.err;
    EXPECT_EQ (stretch ({}).err, "") << "a float file keeps the peak";
}

// --- Failures: the exit code, a message naming the cause, an earlier output kept

TEST_F (StretchCommand, BadInputsFailWithTheInputCode)
{
    ASSERT_TRUE (file ("out.wav").replaceWithText ("an earlier result"));
    ASSERT_TRUE (file ("corrupt.wav").replaceWithText ("RIFF....WAVEfmt and then nothing that makes sense"));
    ASSERT_TRUE (file ("dir.wav").createDirectory().wasOk());
    // A valid header over data cut short: the reader would pad it with silence.
    writeAudio (file ("whole.wav"), { sine (440.0, 20000) }, kRate, 16);
    juce::MemoryBlock bytes;
    ASSERT_TRUE (file ("whole.wav").loadFileAsData (bytes));
    ASSERT_TRUE (file ("truncated.wav").replaceWithData (bytes.getData(), bytes.getSize() / 2));

    for (const auto* in : { "missing.wav", "corrupt.wav", "dir.wav", "truncated.wav" })
    {
        const auto run = stretch ({ "--time", "2" }, in);
        EXPECT_EQ (run.code, ExitCode::input) << in << ": " << run.err;
        EXPECT_NE (run.err.find (path (in).toStdString()), std::string::npos) << run.err;
    }
    EXPECT_EQ (file ("out.wav").loadFileAsString(), "an earlier result");
}

TEST_F (StretchCommand, FactorsAndModesTheLibraryRefusesFailAsUsageWithItsText)
{
    writeAudio (file ("in.wav"), { sine (440.0, 4000) }, kRate, 16);
    ASSERT_TRUE (file ("out.wav").replaceWithText ("an earlier result"));

    // Within every range, but time x pitch factor (1/32) is below what the library takes.
    const auto tooSlow = stretch ({ "--time", "0.25", "--pitch", "-36" });
    EXPECT_EQ (tooSlow.code, ExitCode::usage);
    EXPECT_NE (tooSlow.err.find (meridex::describeError (meridex::kBelowMinimumFactor)), std::string::npos)
        << tooSlow.err;

    // A mode of the table that this build lacks: the factory's answer, and what there is.
    const auto notBuilt = stretch ({ "--mode", "Pro V3" });
    EXPECT_EQ (notBuilt.code, ExitCode::usage);
    EXPECT_NE (notBuilt.err.find (meridex::describeError (meridex::kModeNotBuilt)), std::string::npos) << notBuilt.err;
    EXPECT_NE (notBuilt.err.find ("\"Efficient V3\""), std::string::npos) << notBuilt.err;

    // Options the parser refuses: usage too, before the input is looked at.
    EXPECT_EQ (stretch ({ "--mode", "Pro" }, "missing.wav").code, ExitCode::usage);
    EXPECT_EQ (stretch ({ "--time", "8" }, "missing.wav").code, ExitCode::usage);
    EXPECT_EQ (file ("out.wav").loadFileAsString(), "an earlier result");
}

TEST_F (StretchCommand, UnwritableOutputsFailWithTheOutputCodeAndLeaveNoFile)
{
    writeAudio (file ("in.wav"), { sine (440.0, 4000) }, kRate, 16);
    const auto readOnly = file ("read-only");
    ASSERT_TRUE (readOnly.createDirectory().wasOk());
    ASSERT_TRUE (readOnly.setReadOnly (true));
    // Privileged users write into read-only directories: test that one only where it means something.
    const bool readOnlyHolds = readOnly.getChildFile ("probe").create().failed();

    for (const auto* out : { "no-such-dir/out.wav", "read-only/out.wav", "." })
    {
        if (juce::String (out).startsWith ("read-only") && ! readOnlyHolds)
            continue;
        const auto run = stretch ({ "--time", "2" }, "in.wav", out);
        EXPECT_EQ (run.code, ExitCode::output) << out << ": " << run.err;
        EXPECT_NE (run.err.find (path (out).toStdString()), std::string::npos) << run.err;
        EXPECT_FALSE (file (out).existsAsFile());
    }
    readOnly.setReadOnly (false);
    readOnly.deleteRecursively();

    // Success replaces a longer file, with nothing left beside it.
    ASSERT_TRUE (file ("out.wav").replaceWithText (juce::String::repeatedString ("a longer earlier result ", 2000)));
    ASSERT_EQ (stretch ({ "--time", "0.5" }).code, ExitCode::success);
    EXPECT_EQ (readWav (file ("out.wav")).lengthSamples, 2000);
    EXPECT_EQ (dir.getNumberOfChildFiles (juce::File::findFilesAndDirectories), 2);
}
