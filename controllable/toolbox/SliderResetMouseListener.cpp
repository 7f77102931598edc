#include "controllable/toolbox/SliderResetMouseListener.h"

namespace qvrControllableToolbox
{
SliderResetMouseListener::SliderResetMouseListener (juce::Slider& s, const BoundParameterValue& b)
    : slider (&s), bound (b)
{
    s.addMouseListener (this, false);
}

SliderResetMouseListener::~SliderResetMouseListener()
{
    if (auto* s = slider.getComponent())
        s->removeMouseListener (this);
}

void SliderResetMouseListener::mouseDown (const juce::MouseEvent& event)
{
    if (event.mods.isCommandDown())
        resetToDefault();
}

bool SliderResetMouseListener::resetToDefault()
{
    auto defaultValue = bound.getParameter().getDefault();
    if (defaultValue == nullptr || defaultValue->isNull())
        return false;
    bound.writeFrom (*defaultValue, GestureFraming::ownGesture);
    return true;
}
} // namespace qvrControllableToolbox
