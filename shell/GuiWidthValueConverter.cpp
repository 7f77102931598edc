#include "shell/GuiWidthValueConverter.h"

using qvrControllableAPI::ErrorCode;
using qvrControllableAPI::kOk;

ErrorCode GuiWidthValueConverter::intFromString (const juce::String& in, int& out)
{
    if (in == "Small")
        out = kSmall;
    else if (in == "Large")
        out = kLarge;
    else
        out = kMedium;
    return kOk;
}

ErrorCode GuiWidthValueConverter::stringFromInt (const int& in, juce::String& out)
{
    switch (in)
    {
        case kSmall: out = "Small"; break;
        case kMedium: out = "Medium"; break;
        case kLarge: out = "Large"; break;
        default: out = "Custom"; break;
    }
    return kOk;
}
