#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

namespace pluginCheck
{
// A transport the test scripts: stopped, playing, a tempo change while
// playing, stopped again. moveTo is called before each block; the plug-in
// reads the position during that block.
class ScriptedPlayHead : public juce::AudioPlayHead
{
public:
    // fraction: how far through the pass the coming block lies (0 .. 1).
    void moveTo (double fraction, double sampleRate, int blockSize);
    juce::Optional<PositionInfo> getPosition() const override;

private:
    bool playing = false;
    double bpm = 120.0, ppq = 0.0, rate = 44100.0;
    juce::int64 timeSamples = 0;
};
} // namespace pluginCheck
