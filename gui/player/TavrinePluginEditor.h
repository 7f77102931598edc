#pragma once

#include <juce_audio_processors/juce_audio_processors.h>

#include "shell/GuiWidthValueConverter.h"

class TavrinePluginProcessor;
class TavrinePlayerInstance;

// The plug-in window. Shows the player's name, the tempo the engine runs at
// and the edited key until the player screens are in place. Owned by the
// host; the processor outlives it.
class TavrinePluginEditor : public juce::AudioProcessorEditor,
                            private juce::Timer
{
public:
    static constexpr int kDefaultWidth = GuiWidthValueConverter::kMedium;
    static constexpr int kDefaultHeight = 300;

    TavrinePluginEditor (TavrinePluginProcessor& processor, TavrinePlayerInstance& instance);
    ~TavrinePluginEditor() override;

    // The processor's editor factory (TavrinePluginProcessor::setEditorFactory).
    static juce::AudioProcessorEditor* create (TavrinePluginProcessor& processor);

    void paint (juce::Graphics& g) override;

private:
    void timerCallback() override;

    TavrinePlayerInstance& instance;
    juce::String statusText;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (TavrinePluginEditor)
};
