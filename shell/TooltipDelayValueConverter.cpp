#include "shell/TooltipDelayValueConverter.h"

using qvrControllableAPI::ErrorCode;
using qvrControllableAPI::kOk;

ErrorCode TooltipDelayValueConverter::intFromString (const juce::String& in, int& out)
{
    const auto text = in.trim();
    // "ms" first: every text that ends in "ms" also ends in "s".
    if (text.endsWith ("ms"))
        out = text.dropLastCharacters (2).getIntValue();
    else if (text.endsWith ("s"))
        out = qvrControllableLib::roundHalfEven (text.dropLastCharacters (1).getDoubleValue() * 1000.0);
    else
        out = kDisabledMs;
    return kOk;
}

ErrorCode TooltipDelayValueConverter::stringFromInt (const int& in, juce::String& out)
{
    if (in == kDisabledMs)
        out = "(tooltips disabled)";
    else if (in < 1000)
        out = juce::String (in) + "ms";
    else
        out = juce::String ((double) in / 1000.0, 1) + "s";
    return kOk;
}
