#include <gtest/gtest.h>

#include <sstream>

#include "cli/RenderCommand.h"

using namespace tavrineCli;

namespace
{
juce::StringArray argsOf (const char* line)
{
    return juce::StringArray::fromTokens (line, " ", {});
}
} // namespace

TEST (RenderOptions, ParsesEveryOptionInBothForms)
{
    RenderOptions options;
    options.tailSeconds = 9.0; // parsing starts from the defaults, not from what the caller left
    ASSERT_EQ (parseRenderOptions (argsOf ("--midi in.mid --out=o.wav --rate 48000 --block=64 --bpm 97.5 "
                                           "--stopped --seconds=2.5 --bits 16"),
                                   options),
               juce::String());
    EXPECT_EQ (options.midiPath, "in.mid");
    EXPECT_EQ (options.outPath, "o.wav");
    EXPECT_EQ (options.sampleRate, 48000);
    EXPECT_EQ (options.blockSize, 64);
    EXPECT_DOUBLE_EQ (options.bpm, 97.5);
    EXPECT_EQ (options.transport, Transport::stopped);
    EXPECT_EQ (options.lengthSeconds, 2.5);
    EXPECT_DOUBLE_EQ (options.tailSeconds, 1.0);
    EXPECT_EQ (options.bitsPerSample, 16);

    // Keys keep their order; a file name may itself hold "=".
    ASSERT_EQ (parseRenderOptions (argsOf ("--key F#3=a=b.wav --key=C1=drums.wav"), options), juce::String());
    ASSERT_EQ (options.keys.size(), 2);
    EXPECT_EQ (options.keys[0].key, 30);
    EXPECT_EQ (options.keys[0].path, "a=b.wav");
    EXPECT_EQ (options.keys[1].key, 0);
    EXPECT_EQ (options.keys[1].path, "drums.wav");
}

TEST (RenderOptions, AcceptsRangeBoundsAndReportsEveryKindOfBadInput)
{
    struct Case
    {
        const char* line;
        const char* error; // empty: accepted
    };
    const Case cases[] = {
        { "--rate 8000 --block 1 --bpm 1 --tail 0", "" },
        { "--rate 384000 --block 16384 --bpm 999 --seconds 3600 --bits 32", "" },
        { "--rate 7999", "--rate: 7999 is out of range (8000 to 384000)" },
        { "--block 0", "--block: 0 is out of range (1 to 16384)" },
        { "--bpm 0.9", "--bpm: 0.9 is out of range" },
        { "--bpm 999.1", "--bpm: 999.1 is out of range" },
        { "--seconds 0", "--seconds: 0 is out of range" },
        { "--tail -0.5", "--tail: -0.5 is out of range" },
        { "--bits 8", "--bits: '8' is not one of 16, 24, 32" },
        // Lenient conversions would read "48k" as 48 and "abc" as 0.
        { "--rate 48k", "--rate: '48k' is not a whole number" },
        { "--rate 48000.0", "--rate: '48000.0' is not a whole number" },
        { "--bpm nan", "--bpm: 'nan' is not a number" },
        { "--frobnicate", "unknown option '--frobnicate'" },
        { "stray.wav", "unexpected argument 'stray.wav'" },
        { "--rate", "--rate needs a value" },
        { "--out --rate 44100", "--out needs a value" }, // an option is never taken as a value
        { "--stopped=yes", "--stopped takes no value" },
        { "--seconds 2 --tail 1", "--seconds and --tail exclude each other" },
        { "--key C1=a.wav --key=b6=b.wav", "" },
        { "--key C7=a.wav", "--key: 'C7' is not a key (C1 to B6)" },
        { "--key C1", "--key: 'C1' is not KEY=FILE" },
        { "--key C1=", "--key: 'C1=' is not KEY=FILE" },
    };
    for (const auto& c : cases)
    {
        RenderOptions options;
        const auto error = parseRenderOptions (argsOf (c.line), options);
        EXPECT_TRUE (juce::String (c.error).isEmpty() ? error.isEmpty() : error.startsWith (c.error))
            << c.line << " -> " << error;
    }
}

TEST (RenderCommandLine, HelpWinsOverErrorsAndUsageErrorsWriteNothing)
{
    std::ostringstream out, err;
    EXPECT_EQ (runRenderCommand (argsOf ("--rate bogus --help"), out, err), ExitCode::success);
    EXPECT_NE (out.str().find ("--seconds"), std::string::npos);
    EXPECT_TRUE (err.str().empty());

    std::ostringstream out2, err2;
    EXPECT_EQ (runRenderCommand (argsOf ("--block 0 --out /nonexistent/never.wav"), out2, err2), ExitCode::usage);
    EXPECT_TRUE (out2.str().empty());
    EXPECT_NE (err2.str().find ("--block"), std::string::npos);
}
