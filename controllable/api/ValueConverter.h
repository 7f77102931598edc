#pragma once

#include "controllable/api/ControllableForward.h"

namespace qvrControllableAPI
{
// Every conversion between the four kinds, and to and from text, goes through
// the parameter's converter. Each returns an error code; kOk means `out` holds
// the result.
// The identity conversions are kept one per line.
// clang-format off
class ValueConverter : public virtual juce::ReferenceCountedObject
{
public:
    virtual ErrorCode boolFromBool (const bool& in, bool& out) { out = in; return kOk; }
    virtual ErrorCode boolFromInt (const int& in, bool& out) = 0;
    virtual ErrorCode boolFromFloat (const double& in, bool& out) = 0;
    virtual ErrorCode boolFromString (const juce::String& in, bool& out) = 0;
    virtual ErrorCode intFromBool (const bool& in, int& out) = 0;
    virtual ErrorCode intFromInt (const int& in, int& out) { out = in; return kOk; }
    virtual ErrorCode intFromFloat (const double& in, int& out) = 0;
    virtual ErrorCode intFromString (const juce::String& in, int& out) = 0;
    virtual ErrorCode floatFromBool (const bool& in, double& out) = 0;
    virtual ErrorCode floatFromInt (const int& in, double& out) = 0;
    virtual ErrorCode floatFromFloat (const double& in, double& out) { out = in; return kOk; }
    virtual ErrorCode floatFromString (const juce::String& in, double& out) = 0;
    virtual ErrorCode stringFromBool (const bool& in, juce::String& out) = 0;
    virtual ErrorCode stringFromInt (const int& in, juce::String& out) = 0;
    virtual ErrorCode stringFromFloat (const double& in, juce::String& out) = 0;
    virtual ErrorCode stringFromString (const juce::String& in, juce::String& out) { out = in; return kOk; }
    // The text of a null value.
    virtual juce::String getNullText() = 0;
};
// clang-format on

// Dispatches a conversion between two kinds to the matching operation.
template <typename From, typename To>
ErrorCode convertValue (ValueConverter& converter, const From& in, To& out)
{
    if constexpr (std::is_same_v<To, bool>)
    {
        if constexpr (std::is_same_v<From, bool>)
            return converter.boolFromBool (in, out);
        else if constexpr (std::is_same_v<From, int>)
            return converter.boolFromInt (in, out);
        else if constexpr (std::is_same_v<From, double>)
            return converter.boolFromFloat (in, out);
        else
            return converter.boolFromString (in, out);
    }
    else if constexpr (std::is_same_v<To, int>)
    {
        if constexpr (std::is_same_v<From, bool>)
            return converter.intFromBool (in, out);
        else if constexpr (std::is_same_v<From, int>)
            return converter.intFromInt (in, out);
        else if constexpr (std::is_same_v<From, double>)
            return converter.intFromFloat (in, out);
        else
            return converter.intFromString (in, out);
    }
    else if constexpr (std::is_same_v<To, double>)
    {
        if constexpr (std::is_same_v<From, bool>)
            return converter.floatFromBool (in, out);
        else if constexpr (std::is_same_v<From, int>)
            return converter.floatFromInt (in, out);
        else if constexpr (std::is_same_v<From, double>)
            return converter.floatFromFloat (in, out);
        else
            return converter.floatFromString (in, out);
    }
    else
    {
        if constexpr (std::is_same_v<From, bool>)
            return converter.stringFromBool (in, out);
        else if constexpr (std::is_same_v<From, int>)
            return converter.stringFromInt (in, out);
        else if constexpr (std::is_same_v<From, double>)
            return converter.stringFromFloat (in, out);
        else
            return converter.stringFromString (in, out);
    }
}
} // namespace qvrControllableAPI
