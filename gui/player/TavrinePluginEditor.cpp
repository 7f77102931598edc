#include "gui/player/TavrinePluginEditor.h"

#include "shell/TavrinePluginProcessor.h"

TavrinePluginEditor::TavrinePluginEditor (TavrinePluginProcessor& processor, TavrinePlayerInstance& playerInstance)
    : juce::AudioProcessorEditor (processor), instance (playerInstance)
{
    setSize (kDefaultWidth, kDefaultHeight);
    timerCallback();
    startTimerHz (4);
}

juce::AudioProcessorEditor* TavrinePluginEditor::create (TavrinePluginProcessor& processor)
{
    return new TavrinePluginEditor (processor, processor.getPlayerInstance());
}

TavrinePluginEditor::~TavrinePluginEditor()
{
    stopTimer();
}

void TavrinePluginEditor::timerCallback()
{
    auto& engine = instance.getEngine();
    auto& master = engine.getMasterChain();
    const int editKey = engine.getDispatcher().editLoopIndex.read();
    const double bpm = master.outputBpm.read();
    auto text = "Tempo " + (bpm > 0.0 ? master.outputBpm->getValue()->getString() : juce::String ("-"))
                + "   Edited key " + TavrineEngine::getKeyName (editKey);
    if (text != statusText)
    {
        statusText = text;
        repaint();
    }
}

void TavrinePluginEditor::paint (juce::Graphics& g)
{
    g.fillAll (juce::Colour (0xff1d2126));
    g.setColour (juce::Colours::white);
    g.setFont (24.0f);
    g.drawText (getAudioProcessor()->getName(), getLocalBounds().removeFromTop (getHeight() / 2),
                juce::Justification::centredBottom);
    g.setFont (15.0f);
    g.setColour (juce::Colours::lightgrey);
    g.drawText (statusText, getLocalBounds().removeFromBottom (getHeight() / 2).reduced (10),
                juce::Justification::centredTop);
}
