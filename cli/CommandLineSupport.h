#pragma once

#include <juce_core/juce_core.h>

// Small pieces that every sub-command of the command line shares.
namespace tavrineCli
{
bool isHelpFlag (const juce::String& arg);

// juce::String::getIntValue and getDoubleValue accept "12abc" as 12 and "abc"
// as 0; a typo must not become a number, so the whole text must parse.
bool parseWholeNumber (const juce::String& text, long long& value);
bool parseFiniteNumber (const juce::String& text, double& value);

// A path as given on the command line, relative to the working directory.
juce::File resolvePath (const juce::String& path);
} // namespace tavrineCli
