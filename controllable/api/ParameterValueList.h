#pragma once

#include "controllable/api/ControllableForward.h"

namespace qvrControllableAPI
{
// The list of current values of a list parameter (role 2) or the choices of
// a parameter (role 6). Touched on the message thread or under the owner's
// own discipline: there is no lock.
class ParameterValueList : public virtual juce::ReferenceCountedObject
{
public:
    virtual ParameterDef* getParameter() = 0;
    virtual int getRole() = 0;
    virtual int size() = 0;
    virtual ParameterValuePtr get (int index) = 0;
    virtual ErrorCode set (int index, ParameterValue* value) = 0;
    virtual ParameterValuePtr add (ParameterValue* value) = 0;
    virtual ParameterValuePtr addDefault() = 0;
    virtual ParameterValuePtr addFloat (double value) = 0;
    virtual ParameterValuePtr addString (const juce::String& value) = 0;
    virtual ParameterValuePtr addInt (int value) = 0;
    virtual ParameterValuePtr addBool (bool value) = 0;
    virtual ErrorCode remove (ParameterValue* value) = 0;
    virtual ErrorCode removeAt (int index) = 0;
    virtual void clear() = 0;
    virtual const juce::ReferenceCountedArray<ParameterValue>& getValues() = 0;
    virtual ErrorCode replaceWith (ParameterValueList* other) = 0;
    virtual ErrorCode setFrom (ParameterValueList* other) = 0;
};
} // namespace qvrControllableAPI
