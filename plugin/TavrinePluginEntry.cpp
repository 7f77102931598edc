#include "gui/player/TavrinePluginEditor.h"
#include "shell/TavrinePluginProcessor.h"

// The factory every plug-in format calls once per instance, on the message
// thread. The plug-in is the one binary that has both the processor and the
// player's window, so it wires them together here, before any host can ask
// the new processor for its window.
juce::AudioProcessor* JUCE_CALLTYPE createPluginFilter()
{
    TavrinePluginProcessor::setEditorFactory (&TavrinePluginEditor::create);
    return new TavrinePluginProcessor();
}
