#pragma once

#include "controllable/lib/DefaultValueConverter.h"

// Shows stereo bus n (from 0) as "Output 2n+1/2n+2": bus 0 is "Output 1/2".
// Reads its own text back ("Output 3/4" is bus 1), so that a bus stored as
// text survives a restart; a plain number is taken as the bus.
class OutputBusValueConverter : public qvrControllableLib::DefaultValueConverter
{
public:
    qvrControllableAPI::ErrorCode stringFromInt (const int& in, juce::String& out) override;
    qvrControllableAPI::ErrorCode intFromString (const juce::String& in, int& out) override;
};
