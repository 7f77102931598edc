#include "controllable/toolbox/FileChooserTextEditor.h"

namespace qvrControllableToolbox
{
// Lets the owner commit the text the way the return key does (returnPressed
// is protected): listeners hear textEditorReturnKeyPressed as usual.
class FileChooserTextEditor::FileNameEditor : public juce::TextEditor
{
public:
    using juce::TextEditor::TextEditor;
    void commitAsIfReturnPressed() { returnPressed(); }
};

FileChooserTextEditor::FileChooserTextEditor (const juce::String& componentName)
    : juce::Component (componentName), editor (std::make_unique<FileNameEditor> (kTextEditorName)),
      trigger (kTriggerText)
{
    trigger.setName (kTriggerName);
    trigger.onClick = [this] { launchChooser(); };
    addAndMakeVisible (*editor);
    addAndMakeVisible (trigger);
    setSize (kDefaultWidth, kDefaultHeight);
}

FileChooserTextEditor::~FileChooserTextEditor() = default;

juce::TextEditor& FileChooserTextEditor::getTextEditor() noexcept
{
    return *editor;
}

void FileChooserTextEditor::resized()
{
    auto area = getLocalBounds();
    // A square button at the right end; the editor takes the rest.
    trigger.setBounds (area.removeFromRight (juce::jmin (area.getHeight(), area.getWidth() / 2)));
    editor->setBounds (area);
}

void FileChooserTextEditor::launchChooser()
{
    const auto current = editor->getText().trim();
    const juce::File start = juce::File::isAbsolutePath (current) ? juce::File (current) : juce::File();
    const bool directories = chooserTarget == ChooserTarget::directories;
    chooser = std::make_unique<juce::FileChooser> (directories ? "Choose a folder" : "Choose a file", start,
                                                   filePatterns);
    const int flags = juce::FileBrowserComponent::openMode
                      | (directories ? juce::FileBrowserComponent::canSelectDirectories
                                     : juce::FileBrowserComponent::canSelectFiles);
    // The chooser lives in this component, but its answer comes from the
    // message loop: the component may have gone in between.
    juce::Component::SafePointer<FileChooserTextEditor> safeThis (this);
    chooser->launchAsync (flags, [safeThis] (const juce::FileChooser& fc) {
        const auto result = fc.getResult();
        if (safeThis != nullptr && result != juce::File())
            safeThis->takeChosenFile (result);
    });
}

void FileChooserTextEditor::takeChosenFile (const juce::File& file)
{
    editor->setText (file.getFullPathName(), false);
    editor->commitAsIfReturnPressed();
}
} // namespace qvrControllableToolbox
