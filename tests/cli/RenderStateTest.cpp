#include <gtest/gtest.h>

#include <sstream>

#include "cli/RenderCommand.h"
#include "tests/cli/CliTestSupport.h"

using namespace tavrineCli;

namespace
{
// The `value` of a parameter in a saved state file, "<absent>" if not there.
juce::String savedValue (const juce::File& stateFile, const juce::String& name)
{
    const auto state = juce::parseXML (stateFile);
    if (state == nullptr || state->getChildElement (0) == nullptr)
        return "<no state>";
    const auto* p = state->getChildElement (0)->getChildByAttribute ("name", name);
    return p != nullptr ? p->getStringAttribute ("value", "<absent>") : juce::String ("<absent>");
}
} // namespace

TEST (RenderOptions, CollectsSettingsInOrderAndRejectsOnesWithoutAName)
{
    RenderOptions options;
    ASSERT_EQ (parseRenderOptions ({ "--state", "in.xml", "--set", "loop0.gain.xyMode=0.5", "--set=master.gain=0.25",
                                     "--save-state=out.xml" },
                                   options),
               juce::String());
    EXPECT_EQ (options.statePath, "in.xml");
    EXPECT_EQ (options.saveStatePath, "out.xml");
    EXPECT_EQ (options.settings.joinIntoString (" "), "loop0.gain.xyMode=0.5 master.gain=0.25");

    for (const char* bad : { "gain", "=0.5" })
        EXPECT_EQ (parseRenderOptions ({ "--set", bad }, options),
                   juce::String ("--set: '") + bad + "' is not NAME=VALUE");
    EXPECT_EQ (parseRenderOptions ({ "--save-state" }, options), "--save-state needs a value");
}

class RenderState : public CliTempDirTest
{
protected:
    ExitCode run (std::initializer_list<juce::String> extra)
    {
        juce::StringArray args { "--seconds", "0.05", "--block", "256", "--out", file ("out.wav").getFullPathName() };
        for (const auto& a : extra)
            args.add (a);
        out.str ({});
        err.str ({});
        return runRenderCommand (args, out, err);
    }

    std::ostringstream out, err;
};

TEST_F (RenderState, SetValuesAreInTheSavedStateAndAStateFileRoundTrips)
{
    const auto first = file ("first.xml"), second = file ("second.xml");
    ASSERT_EQ (run ({ "--set", "loop0.gain.xyMode=0.5", "--set", "loop2.colourCode=dark red", "--set",
                      "master.detectClipping=false", "--set", "loop1.envelopeAttack=300", "--save-state",
                      first.getFullPathName() }),
               ExitCode::success)
        << err.str();
    EXPECT_EQ (savedValue (first, "loop0.gain.xyMode"), "0.5000000000");
    EXPECT_EQ (savedValue (first, "loop2.colourCode"), "dark red");
    EXPECT_EQ (savedValue (first, "master.detectClipping"), "false");
    EXPECT_EQ (savedValue (first, "loop1.envelopeAttack"), "300");
    EXPECT_TRUE (first.loadFileAsString().startsWith ("<?xml"));

    // A state applied and saved again is the same file; a --set after it wins.
    ASSERT_EQ (run ({ "--state", first.getFullPathName(), "--save-state", second.getFullPathName() }),
               ExitCode::success)
        << err.str();
    EXPECT_EQ (second.loadFileAsString(), first.loadFileAsString());
    ASSERT_EQ (run ({ "--set", "loop0.gain.xyMode=0.125", "--state", first.getFullPathName(), "--save-state",
                      second.getFullPathName() }),
               ExitCode::success)
        << err.str();
    EXPECT_EQ (savedValue (second, "loop0.gain.xyMode"), "0.1250000000");
    EXPECT_EQ (savedValue (second, "loop2.colourCode"), "dark red");
}

TEST_F (RenderState, BadNamesAndBadStateFilesFailBeforeTheRender)
{
    ASSERT_TRUE (file ("garbage.xml").replaceWithText ("<state><c prefix="));
    ASSERT_TRUE (file ("other.xml").replaceWithText ("<settings/>"));
    struct Case
    {
        std::initializer_list<juce::String> args;
        ExitCode code;
        juce::String message;
    };
    const Case cases[] = {
        { { "--set", "loop0.noSuchThing=1" }, ExitCode::usage, "--set: unknown parameter 'loop0.noSuchThing'" },
        { { "--set", "engine.master.gain=1" }, ExitCode::usage, "--set: unknown parameter 'engine.master.gain'" },
        { { "--state", file ("missing.xml").getFullPathName() },
          ExitCode::input,
          "cannot read state file " + file ("missing.xml").getFullPathName() },
        { { "--state", file ("garbage.xml").getFullPathName() },
          ExitCode::input,
          file ("garbage.xml").getFullPathName() + " is not a player state: " },
        { { "--state", file ("other.xml").getFullPathName() },
          ExitCode::input,
          file ("other.xml").getFullPathName() + " is not a player state (its root is <settings>)" },
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ (run (c.args), c.code) << c.message;
        EXPECT_TRUE (juce::String (err.str()).startsWith ("tavrine render: " + c.message)) << err.str();
        EXPECT_FALSE (file ("out.wav").exists()) << c.message;
    }

    const auto unwritable = file ("no-such-dir").getChildFile ("state.xml");
    EXPECT_EQ (run ({ "--save-state", unwritable.getFullPathName() }), ExitCode::output);
    EXPECT_EQ (juce::String (err.str()).trim(),
               "tavrine render: writing state file " + unwritable.getFullPathName() + " failed");
}
