#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

#include "controllable/toolbox/BoundParameterValue.h"

namespace qvrControllableToolbox
{
// Attached to every bound slider: a mouse-down with the command modifier
// (Ctrl on Linux and Windows) puts the bound value back to the parameter's
// default, as one gesture through the automation handle if there is one,
// else with setFrom. A parameter whose default is null has nothing to go
// back to and is left alone.
//
// Registers itself with the slider and removes itself when destroyed, unless
// the slider has gone. Owned by the connector's binding. Message thread only.
class SliderResetMouseListener : public juce::MouseListener
{
public:
    SliderResetMouseListener (juce::Slider& slider, const BoundParameterValue& bound);
    ~SliderResetMouseListener() override;

    void mouseDown (const juce::MouseEvent& event) override;

    // True when there was a default to go back to.
    bool resetToDefault();

private:
    // As a plain Component: removing a mouse listener is still allowed while
    // the slider is inside Component's destructor.
    juce::Component::SafePointer<juce::Component> slider;
    BoundParameterValue bound;

    JUCE_DECLARE_NON_COPYABLE (SliderResetMouseListener)
};
} // namespace qvrControllableToolbox
