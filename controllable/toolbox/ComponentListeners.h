#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

#include "controllable/handle/ValueWrappers.h"
#include "controllable/toolbox/BoundParameterValue.h"

namespace qvrControllableToolbox
{
// The two halves of a binding between a component and a parameter value.
//
// Component side (a ParameterComponentListener<T>): registered with the
// component, turns the user's change into a write of the value (through the
// automation handle if there is one) and then shows what the value became,
// since clamping, a modifier or a refused text may differ from the input.
//
// Parameter side (a ParameterToolboxListener): registered as an asynchronous
// listener of the parameter, so it runs on the message thread only, and
// shows the choices, the range and the value on the component.
//
// Both reach the component through a safe pointer read as the component's
// own type (a typed SafePointer, or a dynamic_cast at each use): once the
// component's own destructor has run that reads null, because the object is
// no longer of the type, even while Component's destructor is still telling
// its listeners. So neither half touches a component that is being or has
// been deleted. The connector owns both halves and removes the parameter
// side from the parameter when the component goes.
//
// Message thread only.

// A component-side listener's registration with its component, for as long
// as both live. Reads the component through a typed safe pointer (see above):
// if the component goes first nothing is removed; otherwise the listener is
// removed when its owner, holding this as a member, is destroyed.
template <typename ComponentType, typename ListenerType>
class ComponentRegistration
{
public:
    ComponentRegistration (ComponentType& c, ListenerType& l) : component (&c), listener (l) { c.addListener (&l); }
    ~ComponentRegistration()
    {
        if (auto* c = component.getComponent())
            c->removeListener (&listener);
    }

    ComponentType* getComponent() const { return component.getComponent(); }

private:
    juce::Component::SafePointer<ComponentType> component;
    ListenerType& listener;

    JUCE_DECLARE_NON_COPYABLE (ComponentRegistration)
};

class ParameterComponentListenerBase
{
public:
    explicit ParameterComponentListenerBase (const BoundParameterValue& boundValue) : bound (boundValue) {}
    virtual ~ParameterComponentListenerBase() = default;

    bool hasAutomation() const { return bound.getAutomationHandle() != nullptr; }
    AutomationHandlePtr getAutomationHandle() const { return bound.getAutomationHandle(); }
    const BoundParameterValue& getBoundValue() const noexcept { return bound; }

protected:
    BoundParameterValue bound;

    JUCE_DECLARE_NON_COPYABLE (ParameterComponentListenerBase)
};

// T is what the component speaks: double for a slider, bool for a button,
// juce::String for text, the choice index (int) for choice components.
template <typename T>
class ParameterComponentListener : public ParameterComponentListenerBase
{
public:
    using ParameterComponentListenerBase::ParameterComponentListenerBase;

    // The wrapper for the bound value, made at each use (see BoundParameterValue).
    qvrControllableHandle::AbstractValueWrapper<T> getWrapper() const
    {
        return qvrControllableHandle::AbstractValueWrapper<T> (bound.getValue().get(), false);
    }

    virtual T getRawValue() const { return getWrapper().get(); }
    virtual ErrorCode setRawValue (const T& x)
    {
        auto wrapper = getWrapper();
        return wrapper.getValue() != nullptr ? wrapper.set (x) : kNotFound;
    }
};

// For components that show one of the choices: the raw value is the choice
// index, and setting it copies the entry in (with its choice index).
class ChoiceComponentListener : public ParameterComponentListener<int>
{
public:
    using ParameterComponentListener<int>::ParameterComponentListener;

    int getRawValue() const override;
    ErrorCode setRawValue (const int& index) override;

protected:
    int getNumChoices() const;
    // Writes choice `index` through the handle if there is one, else when it
    // differs from the current one.
    void writeChoice (int index, GestureFraming framing);
};

class ParameterToolboxListener : public ParameterChangeListener
{
public:
    ParameterToolboxListener (juce::Component& component, const BoundParameterValue& boundValue);

    // 1. choices of the bound parameter, 2. the range if both ends are set,
    // 3. the value if it isn't null; nothing once the component is gone.
    void parameterChanged (ParameterDef* parameter) override;

    virtual void updateValue (ParameterValue&) {}
    virtual void updateRange (ParameterValue& /*minimum*/, ParameterValue& /*maximum*/) {}
    virtual void updateChoices (ParameterValueList&) {}

    // Null once the component's destructor has begun.
    juce::Component* getComponent() const { return component.getComponent(); }

protected:
    const BoundParameterValue& getBound() const noexcept { return boundValue; }

private:
    juce::Component::SafePointer<juce::Component> component;
    BoundParameterValue boundValue;

    JUCE_DECLARE_NON_COPYABLE (ParameterToolboxListener)
};

//==============================================================================
// Slider without choices: the slider's value is the parameter's outer value.
class ParameterSliderListener : public ParameterComponentListener<double>,
                                private juce::Slider::Listener
{
public:
    ParameterSliderListener (juce::Slider& slider, const BoundParameterValue& bound);

private:
    void sliderValueChanged (juce::Slider*) override;
    void sliderDragStarted (juce::Slider*) override;
    void sliderDragEnded (juce::Slider*) override;

    ComponentRegistration<juce::Slider, juce::Slider::Listener> slider;
    // A change outside a drag (wheel, keys, text box) is a gesture of its own.
    bool dragging = false;
};

class SliderChangeListener : public ParameterToolboxListener
{
public:
    using ParameterToolboxListener::ParameterToolboxListener;
    void updateValue (ParameterValue& value) override;
    void updateRange (ParameterValue& minimum, ParameterValue& maximum) override;
};

// Slider on a parameter with choices: the position is the choice index.
class ParameteChoiceSliderListener : public ChoiceComponentListener,
                                     private juce::Slider::Listener
{
public:
    ParameteChoiceSliderListener (juce::Slider& slider, const BoundParameterValue& bound);

private:
    void sliderValueChanged (juce::Slider*) override;
    void sliderDragStarted (juce::Slider*) override;
    void sliderDragEnded (juce::Slider*) override;

    ComponentRegistration<juce::Slider, juce::Slider::Listener> slider;
    bool dragging = false;
};

class ChoiceSliderChangeListener : public ParameterToolboxListener
{
public:
    using ParameterToolboxListener::ParameterToolboxListener;
    void updateValue (ParameterValue& value) override;
    void updateChoices (ParameterValueList& choices) override;
};

// The index of the choice a value shows as: its own, or the nearest one's.
int shownChoiceIndex (ParameterValue& value);

//==============================================================================
// Toggle button: the new state is the button's own toggle state.
class ParameterToggleButtonListener : public ParameterComponentListener<bool>,
                                      private juce::Button::Listener
{
public:
    ParameterToggleButtonListener (juce::ToggleButton& button, const BoundParameterValue& bound);

private:
    void buttonClicked (juce::Button*) override;

    ComponentRegistration<juce::ToggleButton, juce::Button::Listener> button;
};

class ToggleButtonChangeListener : public ParameterToolboxListener
{
public:
    using ParameterToolboxListener::ParameterToolboxListener;
    void updateValue (ParameterValue& value) override;
};

// Any other button on a bool parameter: a click negates the value.
class ParameterButtonListener : public ParameterComponentListener<bool>,
                                private juce::Button::Listener
{
public:
    ParameterButtonListener (juce::Button& button, const BoundParameterValue& bound);

private:
    void buttonClicked (juce::Button*) override;

    ComponentRegistration<juce::Button, juce::Button::Listener> button;
};

class ButtonChangeListener : public ParameterToolboxListener
{
public:
    using ParameterToolboxListener::ParameterToolboxListener;
    void updateValue (ParameterValue& value) override;
};

// A button on another parameter with choices: each click moves to the next
// choice, wrapping to the first; the button text shows the choice.
class ParameterChoiceButtonListener : public ChoiceComponentListener,
                                      private juce::Button::Listener
{
public:
    ParameterChoiceButtonListener (juce::Button& button, const BoundParameterValue& bound);

private:
    void buttonClicked (juce::Button*) override;

    ComponentRegistration<juce::Button, juce::Button::Listener> button;
};

class ChoiceButtonChangeListener : public ParameterToolboxListener
{
public:
    using ParameterToolboxListener::ParameterToolboxListener;
    void updateValue (ParameterValue& value) override;
};

//==============================================================================
// Combo box: item i is choice i (item id i + 1, since 0 means none). Text
// typed into an editable box goes through setString.
class ParameterComboBoxListener : public ChoiceComponentListener,
                                  private juce::ComboBox::Listener
{
public:
    ParameterComboBoxListener (juce::ComboBox& comboBox, const BoundParameterValue& bound);

private:
    void comboBoxChanged (juce::ComboBox*) override;

    ComponentRegistration<juce::ComboBox, juce::ComboBox::Listener> comboBox;
};

class ComboBoxChangeListener : public ParameterToolboxListener
{
public:
    using ParameterToolboxListener::ParameterToolboxListener;
    void updateValue (ParameterValue& value) override;
    // Rebuilds the items only when their texts differ: a rebuild would close
    // an open popup on every change of the value.
    void updateChoices (ParameterValueList& choices) override;

    // ComboBox refuses items with empty text; an empty choice shows as this.
    static constexpr const char* kEmptyChoiceText = " ";
};

//==============================================================================
// Label: an edit goes through the converter; the label shows getString.
class ParameterLabelListener : public ParameterComponentListener<juce::String>,
                               private juce::Label::Listener
{
public:
    ParameterLabelListener (juce::Label& label, const BoundParameterValue& bound);

private:
    void labelTextChanged (juce::Label*) override;

    ComponentRegistration<juce::Label, juce::Label::Listener> label;
};

class LabelChangeListener : public ParameterToolboxListener
{
public:
    using ParameterToolboxListener::ParameterToolboxListener;
    void updateValue (ParameterValue& value) override;
};
} // namespace qvrControllableToolbox
