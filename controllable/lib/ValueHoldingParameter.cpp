#include "controllable/lib/ValueHoldingParameter.h"

#include "controllable/api/ParameterType.h"
#include "controllable/api/ParameterValue.h"
#include "controllable/api/ParameterValueList.h"
#include "controllable/api/ValueConverter.h"
#include "controllable/api/ValueModifier.h"

namespace qvrControllableLib
{
ValueHoldingParameter::ValueHoldingParameter (const juce::String& parameterName, ParameterType* parameterType,
                                              ParameterValue* initialDefault)
    : AbstractParameter (parameterName), type (parameterType)
{
    converter = type->getDefaultConverter();
    modifier = type->getDefaultModifier();
    minimum = type->createValue (this, kRoleMinimum);
    maximum = type->createValue (this, kRoleMaximum);
    choices = type->createValueList (this, kRoleChoices);
    if (initialDefault != nullptr)
        defaultValue = initialDefault;
    else
        defaultValue = type->createDefaultValue (this, kRoleDefault);
    value = type->createValue (this, kRoleValue);
    value->setFrom (defaultValue.get());
    valueList = type->createValueList (this, kRoleValueList);
}

ValueHoldingParameter::~ValueHoldingParameter()
{
    // The FIFO holds plain pointers: none may outlive the parameter.
    cancelQueuedChanges (type.get());
}

ErrorCode ValueHoldingParameter::replaceValue (ParameterValue* oldValue, ParameterValue* newValue)
{
    const ParameterValuePtr replacement (newValue);
    if (oldValue == value.get())
        value = replacement;
    else if (oldValue == minimum.get())
        minimum = replacement;
    else if (oldValue == maximum.get())
        maximum = replacement;
    else if (oldValue == defaultValue.get())
        defaultValue = replacement;
    notifyChanged (false, false);
    return kOk;
}

ErrorCode ValueHoldingParameter::replaceValueList (ParameterValueList* oldList, ParameterValueList* newList)
{
    const ParameterValueListPtr replacement (newList);
    if (oldList == valueList.get())
    {
        valueList = replacement;
    }
    else if (oldList == choices.get())
    {
        choices = replacement;
        // Every current value finds its index in the new choices.
        value->updateChoiceIndex();
        if (valueList != nullptr)
            for (auto* entry : valueList->getValues())
                entry->updateChoiceIndex();
    }
    notifyChanged (false, false);
    return kOk;
}

ErrorCode ValueHoldingParameter::setConverter (ValueConverter* newConverter)
{
    if (newConverter != nullptr)
        converter = newConverter;
    return kOk;
}

ErrorCode ValueHoldingParameter::setModifier (ValueModifier* newModifier)
{
    modifier = newModifier;
    return kOk;
}
} // namespace qvrControllableLib
