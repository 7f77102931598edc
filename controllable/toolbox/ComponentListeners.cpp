#include "controllable/toolbox/ComponentListeners.h"

#include <cmath>

namespace qvrControllableToolbox
{
//==============================================================================
int ChoiceComponentListener::getRawValue() const
{
    auto value = bound.getValue();
    return value != nullptr ? value->getChoiceIndex() : -1;
}

ErrorCode ChoiceComponentListener::setRawValue (const int& index)
{
    auto choices = bound.getChoices();
    auto value = bound.getValue();
    if (choices == nullptr || value == nullptr || ! juce::isPositiveAndBelow (index, choices->size()))
        return kNotFound;
    return value->setFrom (choices->get (index).get());
}

int ChoiceComponentListener::getNumChoices() const
{
    auto choices = bound.getChoices();
    return choices != nullptr ? choices->size() : 0;
}

void ChoiceComponentListener::writeChoice (int index, GestureFraming framing)
{
    auto choices = bound.getChoices();
    auto value = bound.getValue();
    if (choices == nullptr || value == nullptr || ! juce::isPositiveAndBelow (index, choices->size()))
        return;
    if (hasAutomation())
        bound.writeFrom (*choices->get (index), framing);
    else if (value->isNull() || value->getChoiceIndex() != index)
        setRawValue (index);
}

int shownChoiceIndex (ParameterValue& value)
{
    const int own = value.getChoiceIndex();
    if (own >= 0)
        return own;
    auto choices = value.getParameter()->getChoices();
    auto nearest = value.getNearestChoice();
    return choices != nullptr ? choices->getValues().indexOf (nearest.get()) : -1;
}

//==============================================================================
ParameterToolboxListener::ParameterToolboxListener (juce::Component& c, const BoundParameterValue& b)
    : component (&c), boundValue (b)
{
}

void ParameterToolboxListener::parameterChanged (ParameterDef* parameter)
{
    if (getComponent() == nullptr)
        return;

    auto& bound = boundValue.getParameter();
    if (parameter == &bound)
        if (auto choices = boundValue.getChoices())
            updateChoices (*choices);

    auto minimum = bound.getMinimum();
    auto maximum = bound.getMaximum();
    if (minimum != nullptr && maximum != nullptr && ! minimum->isNull() && ! maximum->isNull())
        updateRange (*minimum, *maximum);

    // The component may have been deleted by one of the calls above.
    if (getComponent() == nullptr)
        return;
    if (auto value = boundValue.getValue(); value != nullptr && ! value->isNull())
        updateValue (*value);
}

//==============================================================================
ParameterSliderListener::ParameterSliderListener (juce::Slider& s, const BoundParameterValue& b)
    : ParameterComponentListener<double> (b), slider (s, *this)
{
}

void ParameterSliderListener::sliderValueChanged (juce::Slider*)
{
    auto* s = slider.getComponent();
    auto value = bound.getValue();
    if (s == nullptr || value == nullptr)
        return;

    const double position = s->getValue();
    if (hasAutomation())
        bound.writeFloat (position, dragging ? GestureFraming::insideOpenGesture : GestureFraming::ownGesture);
    else if (value->isNull() || value->getFloat() != position)
        setRawValue (position);

    if (! value->isNull())
        s->setValue (value->getFloat(), juce::dontSendNotification);
}

void ParameterSliderListener::sliderDragStarted (juce::Slider*)
{
    dragging = true;
    if (auto handle = getAutomationHandle())
        handle->beginGesture();
}

void ParameterSliderListener::sliderDragEnded (juce::Slider*)
{
    dragging = false;
    if (auto handle = getAutomationHandle())
        handle->endGesture();
}

void SliderChangeListener::updateValue (ParameterValue& value)
{
    if (auto* slider = dynamic_cast<juce::Slider*> (getComponent()))
        slider->setValue (value.getFloat(), juce::dontSendNotification);
}

void SliderChangeListener::updateRange (ParameterValue& minimum, ParameterValue& maximum)
{
    auto* slider = dynamic_cast<juce::Slider*> (getComponent());
    const double lo = minimum.getFloat();
    const double hi = maximum.getFloat();
    // A slider's range must not be empty; an empty parameter range (a
    // maximum still to be set) keeps the slider's present one.
    if (slider == nullptr || ! (hi > lo))
        return;
    double interval = slider->getInterval();
    if (interval == 0.0 && getBound().getParameter().getType()->isInt())
        interval = 1.0;
    if (slider->getMinimum() != lo || slider->getMaximum() != hi || slider->getInterval() != interval)
        slider->setRange (lo, hi, interval);
}

//==============================================================================
ParameteChoiceSliderListener::ParameteChoiceSliderListener (juce::Slider& s, const BoundParameterValue& b)
    : ChoiceComponentListener (b), slider (s, *this)
{
}

void ParameteChoiceSliderListener::sliderValueChanged (juce::Slider*)
{
    auto* s = slider.getComponent();
    const int count = getNumChoices();
    if (s == nullptr || count == 0)
        return;

    const int index = juce::jlimit (0, count - 1, juce::roundToInt (s->getValue()));
    writeChoice (index, dragging ? GestureFraming::insideOpenGesture : GestureFraming::ownGesture);

    if (auto value = bound.getValue(); value != nullptr && ! value->isNull())
        s->setValue (shownChoiceIndex (*value), juce::dontSendNotification);
}

void ParameteChoiceSliderListener::sliderDragStarted (juce::Slider*)
{
    dragging = true;
    if (auto handle = getAutomationHandle())
        handle->beginGesture();
}

void ParameteChoiceSliderListener::sliderDragEnded (juce::Slider*)
{
    dragging = false;
    if (auto handle = getAutomationHandle())
        handle->endGesture();
}

void ChoiceSliderChangeListener::updateValue (ParameterValue& value)
{
    if (auto* slider = dynamic_cast<juce::Slider*> (getComponent()))
        slider->setValue (shownChoiceIndex (value), juce::dontSendNotification);
}

void ChoiceSliderChangeListener::updateChoices (ParameterValueList& choices)
{
    auto* slider = dynamic_cast<juce::Slider*> (getComponent());
    if (slider == nullptr)
        return;
    // One position per choice; a single choice still needs a non-empty range.
    const double top = juce::jmax (1, choices.size() - 1);
    if (slider->getMinimum() != 0.0 || slider->getMaximum() != top || slider->getInterval() != 1.0)
        slider->setRange (0.0, top, 1.0);
}

//==============================================================================
ParameterToggleButtonListener::ParameterToggleButtonListener (juce::ToggleButton& b, const BoundParameterValue& v)
    : ParameterComponentListener<bool> (v), button (b, *this)
{
}

void ParameterToggleButtonListener::buttonClicked (juce::Button*)
{
    auto* b = button.getComponent();
    auto value = bound.getValue();
    if (b == nullptr || value == nullptr)
        return;

    const bool state = b->getToggleState();
    if (hasAutomation())
        bound.writeBool (state, GestureFraming::ownGesture);
    else if (value->isNull() || value->getBool() != state)
        setRawValue (state);

    b->setToggleState (value->getBool(), juce::dontSendNotification);
}

void ToggleButtonChangeListener::updateValue (ParameterValue& value)
{
    if (auto* button = dynamic_cast<juce::Button*> (getComponent()))
        button->setToggleState (value.getBool(), juce::dontSendNotification);
}

//==============================================================================
ParameterButtonListener::ParameterButtonListener (juce::Button& b, const BoundParameterValue& v)
    : ParameterComponentListener<bool> (v), button (b, *this)
{
}

void ParameterButtonListener::buttonClicked (juce::Button*)
{
    auto* b = button.getComponent();
    auto value = bound.getValue();
    if (b == nullptr || value == nullptr)
        return;

    const bool state = value->isNull() || ! value->getBool();
    if (hasAutomation())
        bound.writeBool (state, GestureFraming::ownGesture);
    else
        setRawValue (state);

    b->setToggleState (value->getBool(), juce::dontSendNotification);
}

void ButtonChangeListener::updateValue (ParameterValue& value)
{
    if (auto* button = dynamic_cast<juce::Button*> (getComponent()))
        button->setToggleState (value.getBool(), juce::dontSendNotification);
}

//==============================================================================
ParameterChoiceButtonListener::ParameterChoiceButtonListener (juce::Button& b, const BoundParameterValue& v)
    : ChoiceComponentListener (v), button (b, *this)
{
}

void ParameterChoiceButtonListener::buttonClicked (juce::Button*)
{
    auto* b = button.getComponent();
    auto value = bound.getValue();
    const int count = getNumChoices();
    if (b == nullptr || value == nullptr || count == 0)
        return;

    // A value that matches no choice starts from before the first.
    const int next = (getRawValue() + 1) % count;
    auto choices = bound.getChoices();
    if (bound.getParameter().getType()->isString())
        value->setString (choices->get (next)->getString());
    else
        writeChoice (next, GestureFraming::ownGesture);

    b->setButtonText (value->getString());
}

void ChoiceButtonChangeListener::updateValue (ParameterValue& value)
{
    if (auto* button = dynamic_cast<juce::Button*> (getComponent()))
        button->setButtonText (value.getString());
}

//==============================================================================
ParameterComboBoxListener::ParameterComboBoxListener (juce::ComboBox& box, const BoundParameterValue& v)
    : ChoiceComponentListener (v), comboBox (box, *this)
{
}

void ParameterComboBoxListener::comboBoxChanged (juce::ComboBox*)
{
    auto* box = comboBox.getComponent();
    auto value = bound.getValue();
    if (box == nullptr || value == nullptr)
        return;

    const int index = box->getSelectedItemIndex();
    if (juce::isPositiveAndBelow (index, getNumChoices()))
        writeChoice (index, GestureFraming::ownGesture);
    else if (index < 0)
        value->setString (box->getText());

    if (const int shown = value->getChoiceIndex(); shown >= 0)
        box->setSelectedItemIndex (shown, juce::dontSendNotification);
    else
        box->setText (value->getString(), juce::dontSendNotification);
}

void ComboBoxChangeListener::updateValue (ParameterValue& value)
{
    auto* box = dynamic_cast<juce::ComboBox*> (getComponent());
    if (box == nullptr)
        return;
    if (const int index = value.getChoiceIndex(); juce::isPositiveAndBelow (index, box->getNumItems()))
        box->setSelectedItemIndex (index, juce::dontSendNotification);
    else
        box->setText (value.getString(), juce::dontSendNotification);
}

void ComboBoxChangeListener::updateChoices (ParameterValueList& choices)
{
    auto* box = dynamic_cast<juce::ComboBox*> (getComponent());
    if (box == nullptr)
        return;

    juce::StringArray texts;
    for (auto* entry : choices.getValues())
    {
        const auto text = entry->getString();
        texts.add (text.isNotEmpty() ? text : juce::String (kEmptyChoiceText));
    }

    bool same = box->getNumItems() == texts.size();
    for (int i = 0; same && i < texts.size(); ++i)
        same = box->getItemText (i) == texts[i];
    if (same)
        return;

    box->clear (juce::dontSendNotification);
    for (int i = 0; i < texts.size(); ++i)
        box->addItem (texts[i], i + 1);
}

//==============================================================================
ParameterLabelListener::ParameterLabelListener (juce::Label& l, const BoundParameterValue& v)
    : ParameterComponentListener<juce::String> (v), label (l, *this)
{
}

void ParameterLabelListener::labelTextChanged (juce::Label*)
{
    auto* l = label.getComponent();
    auto value = bound.getValue();
    if (l == nullptr || value == nullptr)
        return;

    const auto text = l->getText();
    if (value->isNull() || text != value->getString())
        bound.writeText (text, GestureFraming::ownGesture);

    l->setText (value->getString(), juce::dontSendNotification);
}

void LabelChangeListener::updateValue (ParameterValue& value)
{
    if (auto* label = dynamic_cast<juce::Label*> (getComponent()))
        label->setText (value.getString(), juce::dontSendNotification);
}
} // namespace qvrControllableToolbox
