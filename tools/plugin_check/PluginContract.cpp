#include "PluginContract.h"

#include <utility>

namespace pluginCheck
{
namespace
{
// Host index = kNumRows x key + row; each row is a label and the path of the
// parameter below "loop<key>".
constexpr std::pair<const char*, const char*> kRows[kNumRows] = {
    { "Begin", "nextBeginLoop" },
    { "Length", "nextLoopLength" },
    { "Volume", "gain.xyMode" },
    { "Pan", "balance.xyMode" },
    { "Cutoff", "filterFrequency.xyMode" },
    { "Resonance", "filterQ.xyMode" },
    { "Reverse", "globalReverse" },
    { "Resampling", "resamplingRatio.xyMode" },
    { "Finetuning", "resamplingRatio.fine" },
};

juce::String keyName (int key)
{
    static const char* const noteNames[] = { "C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B" };
    return juce::String (noteNames[key % 12]) + juce::String (key / 12 + 1);
}
} // namespace

std::vector<ExpectedParameter> makeExpectedTable()
{
    std::vector<ExpectedParameter> table;
    for (int key = 0; key < kNumKeys; ++key)
        for (const auto& [label, path] : kRows)
            table.push_back ({ keyName (key) + " " + label,
                               ("loop" + juce::String (key) + "." + path).replaceCharacter ('.', '_') });
    return table;
}

// JUCE's VST3 wrapper publishes a parameter under the hash of its string ID,
// with the top bit cleared for hosts that reject negative IDs; the hosted
// parameter reports that number in decimal.
juce::String vst3IdForPath (const juce::String& path)
{
    const auto hash = static_cast<juce::uint32> (path.hashCode()) & 0x7fffffffu;
    return juce::String (hash);
}

// JUCE's LV2 wrapper writes a parameter as the property <URI:ID>, with every
// character that a Turtle name cannot hold (here the dots) turned into '_';
// JUCE's LV2 host reports "des:" and the property.
juce::String lv2IdForPath (const juce::String& uri, const juce::String& path)
{
    return "des:" + uri + ":" + path.replaceCharacter ('.', '_');
}
} // namespace pluginCheck
