#include "controllable/lib/ForwardingParameterValue.h"

namespace qvrControllableLib
{
ParameterValuePtr createForwardingValue (ParameterType& type, ParameterDef* owner, int role, ParameterValue* source)
{
    if (type.isFloat())
        return new ForwardingFloatParameterValue (owner, role, source);
    if (type.isInt())
        return new ForwardingIntParameterValue (owner, role, source);
    if (type.isBool())
        return new ForwardingBoolParameterValue (owner, role, source);
    return new ForwardingStringParameterValue (owner, role, source);
}

const juce::ReferenceCountedArray<ParameterValue>& ForwardingValueList::getValues()
{
    return source != nullptr ? source->getValues() : empty;
}

void ForwardingChangeListener::parameterChanged (ParameterDef*)
{
    if (updateChoiceIndices)
    {
        target->getValue()->updateChoiceIndex();
        if (auto list = target->getValueList())
            for (auto* entry : list->getValues())
                entry->updateChoiceIndex();
    }
    target->notifyChanged (false, false);
}
} // namespace qvrControllableLib
