#include "shell/TavrinePluginProcessor.h"

// The factory every plug-in format calls once per instance.
juce::AudioProcessor* JUCE_CALLTYPE createPluginFilter()
{
    return new TavrinePluginProcessor();
}
