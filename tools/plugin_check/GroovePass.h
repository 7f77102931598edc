#pragma once

#include "CheckReport.h"

#include <juce_audio_formats/juce_audio_formats.h>
#include <juce_audio_processors/juce_audio_processors.h>

#include <vector>

namespace pluginCheck
{
// The first musical check: a keyboard restored from a state plays. A one-bar
// loop of clicks on the beats, at 120 bpm, is written to `folder` and put on
// the first key through the state (as JUCE's VST3 host keeps it); the key is
// held while the host runs at another tempo, and the clicks must come on the
// host's beats.
struct GroovePass
{
    double sampleRate;
    double hostBpm;
    double seconds;
};

// Writes the click loop (44100 Hz, stereo, one bar at 120 bpm, its name
// stating the tempo) and returns it.
juce::File writeClickLoop (const juce::File& folder);

// Where sound crosses 0.05 after at least 5 ms below it: one onset per click
// of the loop, whatever the stretcher did to its shape.
std::vector<juce::int64> findOnsets (const std::vector<float>& mono, double sampleRate);

void playGroove (juce::AudioPluginInstance& instance, const juce::File& clickLoop, const GroovePass& pass,
                 CheckReport& report);
} // namespace pluginCheck
