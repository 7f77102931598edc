#pragma once

#include <juce_core/juce_core.h>

#include <vector>

namespace pluginCheck
{
// What the plug-in must present. Written out independently of the plug-in's
// sources on purpose: this is the contract with hosts and saved sessions.

inline constexpr const char* kProductName = "Tavrine 2";
inline constexpr int kNumKeys = 72;
inline constexpr int kNumRows = 9;
inline constexpr int kNumHostParameters = kNumKeys * kNumRows;
inline constexpr int kNumOutputBuses = 16;

struct ExpectedParameter
{
    juce::String name, path;
};

// The host parameter table in host index order: kNumRows x key + row.
std::vector<ExpectedParameter> makeExpectedTable();

// The ID a hosted VST3 parameter of this path reports.
juce::String vst3IdForPath (const juce::String& path);

// The ID JUCE's LV2 host reports for the property of this path.
juce::String lv2IdForPath (const juce::String& uri, const juce::String& path);
} // namespace pluginCheck
