#pragma once

#include "controllable/lib/DefaultValueConverter.h"

// Tooltip delays: below 1000 ms as "250ms", from there in seconds as "1.5s";
// 4000 means disabled and prints as "(tooltips disabled)". A text with no
// unit parses to 4000.
class TooltipDelayValueConverter : public qvrControllableLib::DefaultValueConverter
{
public:
    static constexpr int kDisabledMs = 4000;

    qvrControllableAPI::ErrorCode intFromString (const juce::String& in, int& out) override;
    qvrControllableAPI::ErrorCode stringFromInt (const int& in, juce::String& out) override;
};
