#include "tools/plugin_check/CheckOptions.h"

#include <gtest/gtest.h>

#include <vector>

using namespace pluginCheck;

namespace
{
std::optional<Options> parse (const std::vector<const char*>& words, juce::String& error)
{
    juce::StringArray args;
    for (const char* word : words)
        args.add (word);
    return parseArguments (args, error);
}

struct RefusedCase
{
    std::vector<const char*> words;
    const char* errorStart;
};

class PluginCheckOptionsRefused : public ::testing::TestWithParam<RefusedCase>
{};
} // namespace

TEST (PluginCheckOptions, Lv2TakesItsUriInEitherOrderAndResolvesTheBundle)
{
    juce::String error;
    const auto options = parse ({ "--uri", "https://example.org/t2", "--lv2", "bundle.lv2", "--require-state" }, error);
    ASSERT_TRUE (options.has_value()) << error;
    EXPECT_TRUE (error.isEmpty());
    EXPECT_EQ (options->format, FormatKind::lv2);
    EXPECT_EQ (options->uri, "https://example.org/t2");
    EXPECT_EQ (options->state, StateRequirement::required);
    EXPECT_EQ (options->bundle, juce::File::getCurrentWorkingDirectory().getChildFile ("bundle.lv2"));
}

TEST (PluginCheckOptions, Vst3AloneOnlyReportsState)
{
    juce::String error;
    const auto options = parse ({ "--vst3", "/tmp/T.vst3" }, error);
    ASSERT_TRUE (options.has_value()) << error;
    EXPECT_EQ (options->format, FormatKind::vst3);
    EXPECT_EQ (options->bundle.getFullPathName(), "/tmp/T.vst3");
    EXPECT_TRUE (options->uri.isEmpty());
    EXPECT_EQ (options->state, StateRequirement::reportOnly);
}

TEST_P (PluginCheckOptionsRefused, SaysWhy)
{
    juce::String error;
    EXPECT_FALSE (parse (GetParam().words, error).has_value());
    EXPECT_TRUE (error.startsWith (GetParam().errorStart)) << error;
}

INSTANTIATE_TEST_SUITE_P (
    Cases, PluginCheckOptionsRefused,
    ::testing::Values (RefusedCase { {}, "give --vst3 or --lv2" },
                       RefusedCase { { "--require-state" }, "give --vst3 or --lv2" },
                       // A flag that takes a value, last on the line, must not read past the end.
                       RefusedCase { { "--vst3" }, "unexpected argument '--vst3'" },
                       RefusedCase { { "--lv2", "b.lv2", "--uri" }, "unexpected argument '--uri'" },
                       RefusedCase { { "--vst3", "a.vst3", "--lv2", "b.lv2" }, "unexpected argument '--lv2'" },
                       RefusedCase { { "--lv2", "b.lv2" }, "--uri goes with --lv2" },
                       RefusedCase { { "--vst3", "a.vst3", "--uri", "u" }, "--uri goes with --lv2" },
                       RefusedCase { { "--vst3", "a.vst3", "--verbose" }, "unexpected argument '--verbose'" }));
