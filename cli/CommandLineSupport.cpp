#include "cli/CommandLineSupport.h"

#include <charconv>
#include <cmath>

namespace tavrineCli
{
bool isHelpFlag (const juce::String& arg)
{
    return arg == "--help" || arg == "-h";
}

bool parseWholeNumber (const juce::String& text, long long& value)
{
    const auto s = text.toStdString();
    const auto* end = s.data() + s.size();
    const auto [ptr, ec] = std::from_chars (s.data(), end, value);
    return ! s.empty() && ec == std::errc() && ptr == end;
}

bool parseFiniteNumber (const juce::String& text, double& value)
{
    const auto s = text.toStdString();
    const auto* end = s.data() + s.size();
    const auto [ptr, ec] = std::from_chars (s.data(), end, value);
    return ! s.empty() && ec == std::errc() && ptr == end && std::isfinite (value);
}

juce::File resolvePath (const juce::String& path)
{
    return juce::File::getCurrentWorkingDirectory().getChildFile (path);
}
} // namespace tavrineCli
