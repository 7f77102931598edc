#pragma once

#include <juce_core/juce_core.h>

#include <optional>

namespace pluginCheck
{
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

// What one run checks, from the command line.
struct Options
{
    FormatKind format = FormatKind::vst3;
    juce::File bundle;
    juce::String uri;
    StateRequirement state = StateRequirement::reportOnly;
};

inline constexpr const char* kUsage = "usage: tavrine_plugin_check --vst3 PATH_TO.vst3 [--require-state]\n"
                                      "       tavrine_plugin_check --lv2 BUNDLE_DIR --uri URI [--require-state]\n";

// The options, or nothing with `error` saying why. A relative bundle path is
// taken from the current directory.
std::optional<Options> parseArguments (const juce::StringArray& args, juce::String& error);
} // namespace pluginCheck
