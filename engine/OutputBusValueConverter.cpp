#include "engine/OutputBusValueConverter.h"

using qvrControllableAPI::ErrorCode;
using qvrControllableAPI::kOk;

ErrorCode OutputBusValueConverter::stringFromInt (const int& in, juce::String& out)
{
    out = "Output " + juce::String (2 * in + 1) + "/" + juce::String (2 * in + 2);
    return kOk;
}

ErrorCode OutputBusValueConverter::intFromString (const juce::String& in, int& out)
{
    const auto text = in.trim();
    if (text.startsWithIgnoreCase ("Output"))
    {
        const int left = text.fromFirstOccurrenceOf (" ", false, false).getIntValue();
        out = juce::jmax (0, (left - 1) / 2);
        return kOk;
    }
    out = text.getIntValue();
    return kOk;
}
