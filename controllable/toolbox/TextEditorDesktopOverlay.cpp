#include "controllable/toolbox/TextEditorDesktopOverlay.h"

#include <cstring>

namespace qvrControllableToolbox
{
EditorConnectionListener::EditorConnectionListener (TextEditorDesktopOverlay& o, juce::TextEditor& c)
    : overlay (o), covered (&c)
{
}

void EditorConnectionListener::copyCoveredText (juce::TextEditor& overlayEditor)
{
    if (auto* c = covered.getComponent())
        overlayEditor.setText (c->getText(), false);
    overlayEditor.selectAll();
}

void EditorConnectionListener::textEditorTextChanged (juce::TextEditor& overlayEditor)
{
    if (auto* c = covered.getComponent())
        c->setText (overlayEditor.getText(), false);
}

void EditorConnectionListener::textEditorReturnKeyPressed (juce::TextEditor&)
{
    overlay.finish (true);
}

void EditorConnectionListener::textEditorEscapeKeyPressed (juce::TextEditor&)
{
    overlay.finish (false);
}

void EditorConnectionListener::textEditorFocusLost (juce::TextEditor&)
{
    overlay.finish (true);
}

//==============================================================================
TextEditorDesktopOverlay::TextEditorDesktopOverlay (juce::TextEditor& c, Listener& o)
    : juce::Component (c.getName()), covered (&c), owner (o), connection (*this, c)
{
    editor.setMultiLine (false);
    editor.addListener (&connection);
    addAndMakeVisible (editor);
    setAlwaysOnTop (true);
}

TextEditorDesktopOverlay::~TextEditorDesktopOverlay()
{
    editor.removeListener (&connection);
    if (isOnDesktop())
        removeFromDesktop();
}

bool TextEditorDesktopOverlay::hasOverlayName (const juce::Component& component)
{
    return component.getName().endsWith (kNameSuffix);
}

juce::String TextEditorDesktopOverlay::getCoveredName (const juce::String& componentName)
{
    return componentName.endsWith (kNameSuffix) ? componentName.dropLastCharacters ((int) std::strlen (kNameSuffix))
                                                : componentName;
}

void TextEditorDesktopOverlay::show()
{
    auto* c = covered.getComponent();
    if (c == nullptr || open)
        return;

    open = true;
    editor.setFont (c->getFont());
    connection.copyCoveredText (editor);
    setBounds (c->getScreenBounds());
    // A borderless plain window: a temporary (override-redirect) window gets
    // no keyboard focus from the X window manager, which defeats the purpose.
    addToDesktop (0);
    setVisible (true);
    toFront (true);
    editor.grabKeyboardFocus();
}

void TextEditorDesktopOverlay::finish (bool accepted)
{
    // Removing the window takes the focus away, which reports a second end.
    if (! open)
        return;
    open = false;
    setVisible (false);
    if (isOnDesktop())
        removeFromDesktop();
    owner.overlayFinished (*this, accepted);
}

void TextEditorDesktopOverlay::resized()
{
    editor.setBounds (getLocalBounds());
}
} // namespace qvrControllableToolbox
