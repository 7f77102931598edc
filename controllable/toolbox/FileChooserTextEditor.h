#pragma once

#include <memory>
#include <juce_gui_basics/juce_gui_basics.h>

namespace qvrControllableToolbox
{
// A file name field: a text editor named "file name text editor" and, to its
// right, a juce::TextButton named "fileChooserTrigger" with the text "...",
// which opens an asynchronous juce::FileChooser. A chosen file's full path is
// put into the editor and committed as if the user had pressed return, so
// whatever listens to the editor (the connector's text editor binding) takes
// it the same way as typed text.
//
// Owned by its parent. Message thread only; the chooser's answer is dropped
// if this component is gone by then.
class FileChooserTextEditor : public juce::Component
{
public:
    static constexpr const char* kTextEditorName = "file name text editor";
    static constexpr const char* kTriggerName = "fileChooserTrigger";
    static constexpr const char* kTriggerText = "...";
    static constexpr int kDefaultWidth = 300;
    static constexpr int kDefaultHeight = 32;

    enum class ChooserTarget
    {
        files,
        directories
    };

    explicit FileChooserTextEditor (const juce::String& componentName = {});
    ~FileChooserTextEditor() override;

    juce::TextEditor& getTextEditor() noexcept;
    juce::TextButton& getTriggerButton() noexcept { return trigger; }

    void setChooserTarget (ChooserTarget target) { chooserTarget = target; }
    // Patterns such as "*.wav;*.aiff"; empty allows everything.
    void setFilePatterns (const juce::String& patterns) { filePatterns = patterns; }

    // What the chooser does with its answer: shows the path and commits it.
    void takeChosenFile (const juce::File& file);

    void resized() override;

private:
    class FileNameEditor;

    void launchChooser();

    std::unique_ptr<FileNameEditor> editor;
    juce::TextButton trigger;
    std::unique_ptr<juce::FileChooser> chooser;
    ChooserTarget chooserTarget = ChooserTarget::files;
    juce::String filePatterns;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (FileChooserTextEditor)
};
} // namespace qvrControllableToolbox
