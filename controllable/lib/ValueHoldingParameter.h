#pragma once

#include "controllable/lib/AbstractParameter.h"

namespace qvrControllableLib
{
// A parameter that holds its own values: the current value (role 1), the
// value list (2), default (3), minimum (4), maximum (5) and choices (6).
// Minimum and maximum start null (no bound); the default starts with the zero
// of the kind and the value starts equal to it.
class ValueHoldingParameter : public AbstractParameter
{
public:
    ValueHoldingParameter (const juce::String& name, ParameterType* type, ParameterValue* defaultValue = nullptr);
    ~ValueHoldingParameter() override;

    ParameterTypePtr getType() override { return type; }
    ValueConverterPtr getConverter() override { return converter; }
    ValueModifierPtr getModifier() override { return modifier; }
    ParameterValuePtr getValue() override { return value; }
    ParameterValueListPtr getValueList() override { return valueList; }
    ParameterValuePtr getDefault() override { return defaultValue; }
    ParameterValuePtr getMinimum() override { return minimum; }
    ParameterValuePtr getMaximum() override { return maximum; }
    ParameterValueListPtr getChoices() override { return choices; }

    ErrorCode replaceValue (ParameterValue* oldValue, ParameterValue* newValue) override;
    ErrorCode replaceValueList (ParameterValueList* oldList, ParameterValueList* newList) override;
    ErrorCode setConverter (ValueConverter* newConverter) override;
    ErrorCode setModifier (ValueModifier* newModifier) override;

private:
    ParameterTypePtr type;
    ValueConverterPtr converter;
    ValueModifierPtr modifier;
    ParameterValuePtr value;
    ParameterValueListPtr valueList;
    ParameterValuePtr defaultValue;
    ParameterValuePtr minimum;
    ParameterValuePtr maximum;
    ParameterValueListPtr choices;

    JUCE_DECLARE_NON_COPYABLE (ValueHoldingParameter)
};
} // namespace qvrControllableLib
