#pragma once

#include <juce_core/juce_core.h>

namespace pluginCheck
{
// Wall time of the steps of a check, for the report.
class Stopwatch
{
public:
    // The time since construction or the last lap, as text.
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
} // namespace pluginCheck
