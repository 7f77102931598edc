#pragma once

#include <juce_core/juce_core.h>

namespace pluginCheck
{
// Prints the report and counts failures. A failure line says what was expected
// and what was found.
class CheckReport
{
public:
    void section (const juce::String& title);
    void pass (const juce::String& what);
    void note (const juce::String& what);
    void fail (const juce::String& what);
    void expect (bool holds, const juce::String& what, const juce::String& otherwise);
    int getNumFailures() const { return failures; }

private:
    int failures = 0;
};
} // namespace pluginCheck
