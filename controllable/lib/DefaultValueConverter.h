#pragma once

#include "controllable/api/ControllableAPI.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// Rounds to the nearest int, halves to even (the processor's default rounding
// mode, as std::nearbyint uses it). Values beyond the range of int saturate
// and NaN gives 0, so that a converter or modifier never converts a
// non-representable double (undefined behaviour).
int roundHalfEven (double value) noexcept;

// The converter that new parameters start with.
// bool: from int "not zero", from float "above 0.5", from text "true", "yes",
// "on", "1" or "1.0" in any case. int from float rounds half to even. Texts
// parse with juce::String, so nonsense reads as 0.
class DefaultValueConverter : public ValueConverter
{
public:
    DefaultValueConverter() = default;

    ErrorCode boolFromInt (const int& in, bool& out) override;
    ErrorCode boolFromFloat (const double& in, bool& out) override;
    ErrorCode boolFromString (const juce::String& in, bool& out) override;
    ErrorCode intFromBool (const bool& in, int& out) override;
    ErrorCode intFromFloat (const double& in, int& out) override;
    ErrorCode intFromString (const juce::String& in, int& out) override;
    ErrorCode floatFromBool (const bool& in, double& out) override;
    ErrorCode floatFromInt (const int& in, double& out) override;
    ErrorCode floatFromString (const juce::String& in, double& out) override;
    ErrorCode stringFromBool (const bool& in, juce::String& out) override;
    ErrorCode stringFromInt (const int& in, juce::String& out) override;
    ErrorCode stringFromFloat (const double& in, juce::String& out) override;
    juce::String getNullText() override { return nullText; }

protected:
    juce::String nullText;
};
} // namespace qvrControllableLib
