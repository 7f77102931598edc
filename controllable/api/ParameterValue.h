#pragma once

#include "controllable/api/ControllableForward.h"

namespace qvrControllableAPI
{
// One value of one parameter, in one role. Float, int and bool values are
// written and read without a lock by any thread.
class ParameterValue : public virtual juce::ReferenceCountedObject
{
public:
    virtual bool isNull() = 0;
    virtual juce::String getString() = 0;
    virtual double getFloat() = 0;
    virtual int getInt() = 0;
    virtual bool getBool() = 0;
    virtual int getChoiceIndex() = 0;
    virtual void updateChoiceIndex() = 0;
    virtual ParameterValuePtr getNearestChoice() = 0;
    virtual ErrorCode setNull() = 0;
    virtual ErrorCode setString (const juce::String& text) = 0;
    virtual ErrorCode setFloat (double value) = 0;
    virtual ErrorCode setInt (int value) = 0;
    virtual ErrorCode setBool (bool value) = 0;
    virtual ErrorCode setFrom (ParameterValue* other) = 0;
    virtual ErrorCode replaceWith (ParameterValue* other) = 0;
    // The owner, not counted: a value never keeps its parameter alive.
    virtual ParameterDef* getParameter() = 0;
    virtual int getRole() = 0;
    virtual ValueConverterPtr getConverter() = 0;
    // For a minimum or maximum ask ValueModifier::appliesTo first.
    virtual ValueModifierPtr getModifier() = 0;
};
} // namespace qvrControllableAPI
