#include "ScriptedPlayHead.h"

namespace pluginCheck
{
void ScriptedPlayHead::moveTo (double fraction, double sampleRate, int blockSize)
{
    playing = fraction >= 0.25 && fraction < 0.75;
    bpm = fraction < 0.5 ? 120.0 : 97.5;
    if (playing)
    {
        timeSamples += blockSize;
        ppq += bpm / 60.0 * blockSize / sampleRate;
    }
    rate = sampleRate;
}

juce::Optional<juce::AudioPlayHead::PositionInfo> ScriptedPlayHead::getPosition() const
{
    PositionInfo info;
    info.setIsPlaying (playing);
    info.setBpm (bpm);
    info.setTimeInSamples (timeSamples);
    info.setTimeInSeconds ((double) timeSamples / rate);
    info.setPpqPosition (ppq);
    info.setTimeSignature (TimeSignature { 4, 4 });
    return info;
}
} // namespace pluginCheck
