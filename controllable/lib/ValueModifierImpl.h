#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/api/ValueModifier.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// The identity modifier, base of the others.
class ValueModifierImpl : public ValueModifier
{
public:
    ErrorCode toOuter (ParameterValue*, const bool& in, bool& out) override
    {
        out = in;
        return kOk;
    }
    ErrorCode toOuter (ParameterValue*, const int& in, int& out) override
    {
        out = in;
        return kOk;
    }
    ErrorCode toOuter (ParameterValue*, const juce::String& in, juce::String& out) override
    {
        out = in;
        return kOk;
    }
    ErrorCode toOuter (ParameterValue*, const double& in, double& out) override
    {
        out = in;
        return kOk;
    }
    ErrorCode toStored (ParameterValue*, const bool& in, bool& out) override
    {
        out = in;
        return kOk;
    }
    ErrorCode toStored (ParameterValue*, const int& in, int& out) override
    {
        out = in;
        return kOk;
    }
    ErrorCode toStored (ParameterValue*, const juce::String& in, juce::String& out) override
    {
        out = in;
        return kOk;
    }
    ErrorCode toStored (ParameterValue*, const double& in, double& out) override
    {
        out = in;
        return kOk;
    }

    bool appliesTo (ParameterValue* value) override
    {
        const int role = value->getRole();
        if (role == kRoleMinimum || role == kRoleMaximum)
            return appliesToRange();
        return true;
    }
};
} // namespace qvrControllableLib
