#pragma once

#include "CheckOptions.h"
#include "ProblemList.h"

#include <juce_audio_processors/juce_audio_processors.h>

#include <vector>

namespace pluginCheck
{
// The host's parameters with the format's bypass told apart: VST3 requires a
// bypass parameter and JUCE's wrapper appends one when the processor has none;
// JUCE's LV2 host turns the lv2:enabled port into one. Points into the
// instance it was collected from, which must outlive it.
struct HostParameters
{
    // All but the bypass, in the host's order.
    std::vector<juce::AudioProcessorParameter*> table;
    juce::AudioProcessorParameter* bypass = nullptr;
    int bypassIndex = -1;
    int total = 0;
};

HostParameters collectParameters (juce::AudioPluginInstance& instance);

// The parameter ID a hosted parameter reports; empty for any other.
juce::String idOf (const juce::AudioProcessorParameter* parameter);

// Count, names and stable IDs against the contract table, in the way the
// format lets hosts find them (VST3 by index and ID, LV2 by property).
void checkParameterTable (const HostParameters& parameters, const Options& options, CheckReport& report);

// The text a host shows next to a slider comes from the plug-in (VST3); a
// parameter that has none at an end of its range shows an empty box.
void checkParameterTexts (const HostParameters& parameters, CheckReport& report);

// A non-default value that every parameter type can hold exactly: the far end
// of the range from the default.
float farEndFromDefault (const juce::AudioProcessorParameter& parameter);

// Adds a problem for every parameter of `actual` that does not hold the far
// end from the default of its counterpart in `reference`.
void compareWithFarEnds (const HostParameters& actual, const HostParameters& reference, ProblemList& problems);
} // namespace pluginCheck
