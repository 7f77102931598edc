#pragma once

#include "controllable/lib/DefaultValueConverter.h"

// Window widths by name: 444 "Small", 525 "Medium", 700 "Large", any other
// width "Custom". Every text but "Small" and "Large" parses to 525, so an
// unknown name falls back to the medium window. kMedium is also the width
// the player window opens with.
class GuiWidthValueConverter : public qvrControllableLib::DefaultValueConverter
{
public:
    static constexpr int kSmall = 444;
    static constexpr int kMedium = 525;
    static constexpr int kLarge = 700;

    qvrControllableAPI::ErrorCode intFromString (const juce::String& in, int& out) override;
    qvrControllableAPI::ErrorCode stringFromInt (const int& in, juce::String& out) override;
};
