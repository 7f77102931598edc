#include "CheckOptions.h"

namespace pluginCheck
{
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
} // namespace pluginCheck
