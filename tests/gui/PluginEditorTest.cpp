#include <gtest/gtest.h>

#include "gui/player/TavrinePluginEditor.h"
#include "shell/TavrinePluginProcessor.h"

namespace
{
// The plug-in entry's wiring, for the life of one test.
struct PlayerEditorInstalled
{
    PlayerEditorInstalled() { TavrinePluginProcessor::setEditorFactory (&TavrinePluginEditor::create); }
    ~PlayerEditorInstalled() { TavrinePluginProcessor::setEditorFactory (nullptr); }
};
} // namespace

TEST (PluginEditor, OpensAtTheMediumWidthPaintsAndClosesTwice)
{
    PlayerEditorInstalled installed;
    TavrinePluginProcessor processor;
    ASSERT_TRUE (processor.hasEditor());
    for (int i = 0; i < 2; ++i)
    {
        std::unique_ptr<juce::AudioProcessorEditor> editor (processor.createEditor());
        ASSERT_NE (dynamic_cast<TavrinePluginEditor*> (editor.get()), nullptr);
        EXPECT_EQ (editor->getWidth(), GuiWidthValueConverter::kMedium);
        auto image = editor->createComponentSnapshot (editor->getLocalBounds());
        EXPECT_TRUE (image.isValid());
    }
}
