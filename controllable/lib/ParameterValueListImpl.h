#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/api/Parameter.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// An array of counted values of one role of one parameter.
class ParameterValueListImpl : public ParameterValueList
{
public:
    ParameterValueListImpl (ParameterDef* owner, int listRole) : parameter (owner), role (listRole) {}

    ParameterDef* getParameter() override { return parameter; }
    int getRole() override { return role; }
    int size() override { return values.size(); }
    ParameterValuePtr get (int index) override { return values[index]; }
    ErrorCode set (int index, ParameterValue* value) override;
    ParameterValuePtr add (ParameterValue* value) override;
    ParameterValuePtr addDefault() override;
    ParameterValuePtr addFloat (double value) override;
    ParameterValuePtr addString (const juce::String& value) override;
    ParameterValuePtr addInt (int value) override;
    ParameterValuePtr addBool (bool value) override;
    ErrorCode remove (ParameterValue* value) override;
    ErrorCode removeAt (int index) override;
    void clear() override { values.clear(); }
    const juce::ReferenceCountedArray<ParameterValue>& getValues() override { return values; }
    ErrorCode replaceWith (ParameterValueList* other) override;
    ErrorCode setFrom (ParameterValueList* other) override;

    virtual ValueConverterPtr getConverter() { return parameter->getConverter(); }

private:
    template <typename Setter>
    ParameterValuePtr appendNew (Setter&& setter);

    ParameterDef* parameter;
    int role;
    juce::ReferenceCountedArray<ParameterValue> values;

    JUCE_DECLARE_NON_COPYABLE (ParameterValueListImpl)
};
} // namespace qvrControllableLib
