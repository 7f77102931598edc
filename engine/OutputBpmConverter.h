#pragma once

#include "controllable/lib/DefaultValueConverter.h"

// Prints the output tempo with one decimal and drops a trailing ".0": 120
// shows as "120", 120.5 as "120.5". Parsing stays DefaultValueConverter's.
class OutputBpmConverter : public qvrControllableLib::DefaultValueConverter
{
public:
    qvrControllableAPI::ErrorCode stringFromFloat (const double& in, juce::String& out) override;
};
