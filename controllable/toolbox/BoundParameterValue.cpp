#include "controllable/toolbox/BoundParameterValue.h"

#include <cmath>

namespace qvrControllableToolbox
{
BoundParameterValue::BoundParameterValue (ParameterDef& p, int index) : parameter (&p), listIndex (index) {}

ParameterValuePtr BoundParameterValue::getValue() const
{
    if (! isListEntry())
        return parameter->getValue();
    auto list = parameter->getValueList();
    if (list == nullptr || listIndex >= list->size())
        return nullptr;
    return list->get (listIndex);
}

ParameterValueListPtr BoundParameterValue::getChoices() const
{
    auto choices = parameter->getChoices();
    return choices != nullptr && choices->size() > 0 ? choices : nullptr;
}

AutomationHandlePtr BoundParameterValue::getAutomationHandle() const
{
    // The host slot stands for the current value: never for an entry of the
    // list, and never for a string, which a handle cannot carry.
    if (isListEntry() || parameter->getType()->isString())
        return nullptr;
    return parameter->getAutomationHandle();
}

double BoundParameterValue::clampToRange (double x) const
{
    auto minimum = parameter->getMinimum();
    auto maximum = parameter->getMaximum();
    if (minimum != nullptr && ! minimum->isNull())
        x = juce::jmax (x, minimum->getFloat());
    if (maximum != nullptr && ! maximum->isNull())
        x = juce::jmin (x, maximum->getFloat());
    return x;
}

template <typename Send>
ErrorCode BoundParameterValue::send (AutomationHandle& handle, GestureFraming framing, Send&& sendOnce) const
{
    if (framing == GestureFraming::ownGesture)
        handle.beginGesture();
    sendOnce();
    if (framing == GestureFraming::ownGesture)
        handle.endGesture();
    return kOk;
}

ErrorCode BoundParameterValue::writeFloat (double x, GestureFraming framing) const
{
    if (auto handle = getAutomationHandle())
    {
        if (parameter->getType()->isBool())
            return send (*handle, framing, [&] { handle->sendInt (x > 0.5 ? 1 : 0); });
        return send (*handle, framing, [&] { handle->sendFloat (clampToRange (x)); });
    }
    auto value = getValue();
    return value != nullptr ? value->setFloat (x) : kNotFound;
}

ErrorCode BoundParameterValue::writeBool (bool state, GestureFraming framing) const
{
    if (auto handle = getAutomationHandle())
        return send (*handle, framing, [&] { handle->sendInt (state ? 1 : 0); });
    auto value = getValue();
    return value != nullptr ? value->setBool (state) : kNotFound;
}

ErrorCode BoundParameterValue::writeFrom (ParameterValue& source, GestureFraming framing) const
{
    if (auto handle = getAutomationHandle())
    {
        auto type = parameter->getType();
        if (type->isBool())
            return send (*handle, framing, [&] { handle->sendInt (source.getBool() ? 1 : 0); });
        // A choice is sent as it is (the handle steps through the choices);
        // anything else is kept inside the range the host slot maps.
        const bool isChoice = getChoices() != nullptr;
        if (type->isInt())
        {
            const int n = isChoice ? source.getInt() : (int) std::lround (clampToRange (source.getInt()));
            return send (*handle, framing, [&] { handle->sendInt (n); });
        }
        const double x = isChoice ? source.getFloat() : clampToRange (source.getFloat());
        return send (*handle, framing, [&] { handle->sendFloat (x); });
    }
    auto value = getValue();
    return value != nullptr ? value->setFrom (&source) : kNotFound;
}

ErrorCode BoundParameterValue::writeText (const juce::String& text, GestureFraming framing) const
{
    auto handle = getAutomationHandle();
    if (handle == nullptr)
    {
        auto value = getValue();
        return value != nullptr ? value->setString (text) : kNotFound;
    }

    auto converter = parameter->getConverter();
    auto type = parameter->getType();
    if (type->isBool())
    {
        bool state = false;
        if (const auto result = converter->boolFromString (text, state); result != kOk)
            return result;
        return send (*handle, framing, [&] { handle->sendInt (state ? 1 : 0); });
    }
    if (type->isInt())
    {
        int n = 0;
        if (const auto result = converter->intFromString (text, n); result != kOk)
            return result;
        const int clamped = (int) std::lround (clampToRange (n));
        return send (*handle, framing, [&] { handle->sendInt (clamped); });
    }
    double x = 0.0;
    if (const auto result = converter->floatFromString (text, x); result != kOk)
        return result;
    return send (*handle, framing, [&] { handle->sendFloat (clampToRange (x)); });
}
} // namespace qvrControllableToolbox
