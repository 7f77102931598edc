#pragma once

#include "CheckReport.h"

#include <juce_audio_processors/juce_audio_processors.h>

#include <functional>

namespace pluginCheck
{
enum class BusChoice
{
    mainOnly,
    all
};

// One rendering run of an instance: rate, block size, buses and length.
struct RenderPass
{
    juce::String label;
    double sampleRate;
    int blockSize;
    BusChoice buses;
    double seconds;
};

// Renders one pass: a zero-length block first (hosts send them), then blocks
// with MIDI at offset 0, the last offset, two at one offset and random ones,
// under the scripted transport. `betweenBlocks` runs before each block with
// its index and the number of blocks. Nothing is loaded in an instance of this
// check (clean HOME, no samples), so the output must be finite, plausible and
// in fact silent, on every channel the host enabled.
void render (juce::AudioPluginInstance& instance, const RenderPass& pass, CheckReport& report,
             const std::function<void (int, int)>& betweenBlocks);

// Processes one silent block: some formats report parameter values only once
// the plug-in has processed a block (JUCE's LV2 host learns them from the
// plug-in's messages).
void processOneBlock (juce::AudioPluginInstance& instance, int blockSize);
} // namespace pluginCheck
