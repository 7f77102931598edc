#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

namespace qvrControllableToolbox
{
class TextEditorDesktopOverlay;

// Carries the texts between a covered text editor and the overlay's own:
// the covered text goes into the overlay when it opens, each change typed in
// the overlay goes back (without a change message, as the covered editor's
// binding commits only when the overlay finishes), and return, escape and
// focus loss finish the overlay.
class EditorConnectionListener : public juce::TextEditor::Listener
{
public:
    EditorConnectionListener (TextEditorDesktopOverlay& overlay, juce::TextEditor& covered);

    void copyCoveredText (juce::TextEditor& overlayEditor);

    void textEditorTextChanged (juce::TextEditor&) override;
    void textEditorReturnKeyPressed (juce::TextEditor&) override;
    void textEditorEscapeKeyPressed (juce::TextEditor&) override;
    void textEditorFocusLost (juce::TextEditor&) override;

private:
    TextEditorDesktopOverlay& overlay;
    juce::Component::SafePointer<juce::TextEditor> covered;

    JUCE_DECLARE_NON_COPYABLE (EditorConnectionListener)
};

// Shows a juce::TextEditor in a desktop window of its own, laid over a text
// editor inside the plug-in window, for hosts in which a text field inside
// the plug-in window never gets the keyboard focus. A text editor is marked
// for it by a name ending in kNameSuffix; the part before is its parameter
// path.
//
// Owned by whoever opens it (for a bound editor, the connector's binding),
// which is told the result through Listener. show() and finish() alternate;
// the overlay can be shown again. Message thread only.
class TextEditorDesktopOverlay : public juce::Component
{
public:
    static constexpr const char* kNameSuffix = "_TextEditorDesktopOverlay";

    class Listener
    {
    public:
        virtual ~Listener() = default;
        // Once per show(): accepted is false when the user pressed escape.
        virtual void overlayFinished (TextEditorDesktopOverlay& overlay, bool accepted) = 0;
    };

    TextEditorDesktopOverlay (juce::TextEditor& covered, Listener& owner);
    ~TextEditorDesktopOverlay() override;

    static bool hasOverlayName (const juce::Component& component);
    // The name without the suffix (the whole name if it has none).
    static juce::String getCoveredName (const juce::String& componentName);

    // Opens the window over the covered editor's place on screen, with the
    // covered text and the keyboard focus. Needs a display.
    void show();
    void finish (bool accepted);
    bool isOpen() const noexcept { return open; }

    juce::TextEditor& getEditor() noexcept { return editor; }

    void resized() override;

private:
    juce::Component::SafePointer<juce::TextEditor> covered;
    Listener& owner;
    juce::TextEditor editor;
    EditorConnectionListener connection;
    bool open = false;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (TextEditorDesktopOverlay)
};
} // namespace qvrControllableToolbox
