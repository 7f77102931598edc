#pragma once

#include "controllable/lib/DefaultValueConverter.h"

// Grid divisions: n as "1/n", 1024 as "Off". Parsing reads "Off" in any case
// or the integer after the first "/"; a result below 1 is refused with
// kRefusedText and nothing is stored.
class SnapModeValueConverter : public qvrControllableLib::DefaultValueConverter
{
public:
    static constexpr int kOff = 1024;
    static constexpr qvrControllableAPI::ErrorCode kRefusedText = qvrControllableAPI::kNotFound;

    qvrControllableAPI::ErrorCode intFromString (const juce::String& in, int& out) override;
    qvrControllableAPI::ErrorCode stringFromInt (const int& in, juce::String& out) override;
};
