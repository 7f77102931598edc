#pragma once

#include "controllable/lib/DefaultValueConverter.h"

// A loop's resampling modes by name. Printing shows every value but 0, 1
// and 3 as "Looped"; an unknown text parses to 2 ("Looped").
class ResamplingModeValueConverter : public qvrControllableLib::DefaultValueConverter
{
public:
    enum Mode : int
    {
        kVariSpeed = 0,
        kSliced = 1,
        kLooped = 2,
        kPitchSpeed = 3
    };

    qvrControllableAPI::ErrorCode intFromString (const juce::String& in, int& out) override;
    qvrControllableAPI::ErrorCode stringFromInt (const int& in, juce::String& out) override;
};
