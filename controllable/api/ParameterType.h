#pragma once

#include "controllable/api/ControllableForward.h"

namespace qvrControllableAPI
{
// The kind of a parameter. Exactly eight process-wide instances exist (float,
// string, int, bool and their list variants); each owns the FIFO through
// which changes made off the message thread reach asynchronous listeners.
class ParameterType : public virtual juce::ReferenceCountedObject
{
public:
    virtual bool isString() = 0;
    virtual bool isFloat() = 0;
    virtual bool isInt() = 0;
    virtual bool isBool() = 0;
    virtual bool isList() = 0;
    virtual ParameterDefPtr createParameter (const juce::String& name) = 0;
    virtual ParameterValuePtr createValue (ParameterDef* parameter, int role) = 0;
    virtual ParameterValueListPtr createValueList (ParameterDef* parameter, int role) = 0;
    virtual ParameterValuePtr createDefaultValue (ParameterDef* parameter, int role) = 0;
    virtual ValueConverterPtr getDefaultConverter() = 0;
    virtual ValueModifierPtr getDefaultModifier() = 0;
    // Any thread; lock-free but for the writers' short critical section.
    // False when the FIFO is full.
    virtual bool enqueueChange (ParameterDef* parameter) = 0;
    virtual bool cancelChanges (ParameterDef* parameter) = 0;
    virtual void cancelAllChanges() = 0;
    virtual void startAsyncUpdates() = 0;
    virtual void stopAsyncUpdates() = 0;
};
} // namespace qvrControllableAPI
