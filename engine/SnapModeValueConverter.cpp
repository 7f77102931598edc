#include "engine/SnapModeValueConverter.h"

using qvrControllableAPI::ErrorCode;
using qvrControllableAPI::kOk;

ErrorCode SnapModeValueConverter::intFromString (const juce::String& in, int& out)
{
    if (in.trim().equalsIgnoreCase ("Off"))
    {
        out = kOff;
        return kOk;
    }
    // A text without "/" leaves nothing to read and is refused like "1/0":
    // a grid of zero or negative divisions has no meaning.
    const int divisions = in.fromFirstOccurrenceOf ("/", false, false).getIntValue();
    if (divisions < 1)
        return kRefusedText;
    out = divisions;
    return kOk;
}

ErrorCode SnapModeValueConverter::stringFromInt (const int& in, juce::String& out)
{
    out = in == kOff ? juce::String ("Off") : "1/" + juce::String (in);
    return kOk;
}
