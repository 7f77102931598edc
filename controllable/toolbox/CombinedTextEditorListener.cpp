#include "controllable/toolbox/CombinedTextEditorListener.h"

namespace qvrControllableToolbox
{
CombinedTextEditorListener::CombinedTextEditorListener (juce::TextEditor& e, const BoundParameterValue& b)
    : ParameterComponentListener<juce::String> (b), ParameterToolboxListener (e, b), editor (e, *this)
{
}

void CombinedTextEditorListener::updateValue (ParameterValue&)
{
    if (auto* e = editor.getComponent(); e != nullptr && ! changing)
        showValue (*e);
}

void CombinedTextEditorListener::showValue (juce::TextEditor& e)
{
    auto value = bound.getValue();
    if (value == nullptr)
        return;
    e.setText (value->getString(), false);
    e.moveCaretToEnd();
    lastText = e.getText();
}

void CombinedTextEditorListener::commit()
{
    auto* e = editor.getComponent();
    auto value = bound.getValue();
    if (e == nullptr || value == nullptr)
        return;

    // Still set while the write notifies, so that our own updateValue keeps
    // its hands off the editor until the result is shown below.
    changing = true;
    const auto text = e->getText();
    if (value->isNull() || text != value->getString())
        bound.writeText (text, GestureFraming::ownGesture);
    changing = false;
    showValue (*e);
}

void CombinedTextEditorListener::revert()
{
    changing = false;
    if (auto* e = editor.getComponent())
        showValue (*e);
}

void CombinedTextEditorListener::textEditorTextChanged (juce::TextEditor& e)
{
    changing = true;
    const auto typed = e.getText();
    const bool deletion = typed.length() < lastText.length() && lastText.startsWith (typed);
    lastText = typed;
    if (! deletion && e.getCaretPosition() == typed.length())
        complete (e, typed);
}

void CombinedTextEditorListener::complete (juce::TextEditor& e, const juce::String& typed)
{
    auto choices = bound.getChoices();
    if (choices == nullptr || typed.isEmpty())
        return;

    juce::String match;
    int matches = 0;
    for (auto* entry : choices->getValues())
    {
        const auto text = entry->getString();
        if (text.startsWithIgnoreCase (typed))
        {
            match = text;
            if (++matches > 1)
                return;
        }
    }
    if (matches != 1 || match.length() <= typed.length())
        return;

    // Not sent as a change: the completion is the editor's own doing.
    e.setText (match, false);
    e.setHighlightedRegion ({ typed.length(), match.length() });
    lastText = match;
}
} // namespace qvrControllableToolbox
