#pragma once

#include "controllable/toolbox/ComponentListeners.h"

namespace qvrControllableToolbox
{
// Both halves of the binding of a juce::TextEditor in one object, because
// they share the flag `changing`: from the user's first keystroke until the
// text is committed the editor is in the middle of a change of its own, and
// a parameter change must not overwrite what is being typed.
//
// Commit (return, focus loss, or commit() called by an owner): a text that
// differs from the value's getString goes to setString, or is parsed and sent
// through the automation handle; then the editor shows the resulting
// getString with the caret at the end. Escape drops the edit.
//
// Completion: while the user types at the end of the text of a parameter
// with choices, and exactly one choice's text begins with what was typed
// (ignoring case), the editor shows that choice with the rest selected. A
// change that only cut the end off the previous text is a deletion and is
// not completed, so that deleting the selected rest doesn't bring it back.
//
// TextEditor delivers its notifications as messages, so all of this runs
// from the message loop. Message thread only.
class CombinedTextEditorListener : public ParameterComponentListener<juce::String>,
                                   public ParameterToolboxListener,
                                   private juce::TextEditor::Listener
{
public:
    CombinedTextEditorListener (juce::TextEditor& editor, const BoundParameterValue& bound);

    void updateValue (ParameterValue& value) override;

    void commit();
    void revert();
    bool isChanging() const noexcept { return changing; }

private:
    void textEditorTextChanged (juce::TextEditor&) override;
    void textEditorReturnKeyPressed (juce::TextEditor&) override { commit(); }
    void textEditorEscapeKeyPressed (juce::TextEditor&) override { revert(); }
    void textEditorFocusLost (juce::TextEditor&) override { commit(); }

    void complete (juce::TextEditor& editor, const juce::String& typed);
    void showValue (juce::TextEditor& editor);

    ComponentRegistration<juce::TextEditor, juce::TextEditor::Listener> editor;
    bool changing = false;
    // The text as last shown or typed, completion included.
    juce::String lastText;
};
} // namespace qvrControllableToolbox
