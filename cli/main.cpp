#include "shell/TavrinePluginProcessor.h"

int main (int, char**)
{
    juce::ScopedJuceInitialiser_GUI juce;
    TavrinePluginProcessor p;
    return 0;
}
