#pragma once

#include "controllable/api/ControllableForward.h"

namespace qvrControllableAPI
{
// A pair of mappings between the stored value and the value the outside sees.
class ValueModifier : public virtual juce::ReferenceCountedObject
{
public:
    virtual ErrorCode toOuter (ParameterValue* value, const bool& in, bool& out) = 0;
    virtual ErrorCode toOuter (ParameterValue* value, const int& in, int& out) = 0;
    virtual ErrorCode toOuter (ParameterValue* value, const juce::String& in, juce::String& out) = 0;
    virtual ErrorCode toOuter (ParameterValue* value, const double& in, double& out) = 0;
    virtual ErrorCode toStored (ParameterValue* value, const bool& in, bool& out) = 0;
    virtual ErrorCode toStored (ParameterValue* value, const int& in, int& out) = 0;
    virtual ErrorCode toStored (ParameterValue* value, const juce::String& in, juce::String& out) = 0;
    virtual ErrorCode toStored (ParameterValue* value, const double& in, double& out) = 0;
    // True for every role except minimum and maximum; for those appliesToRange().
    virtual bool appliesTo (ParameterValue* value) = 0;
    virtual bool appliesToRange() { return true; }
};
} // namespace qvrControllableAPI
