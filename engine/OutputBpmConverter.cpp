#include "engine/OutputBpmConverter.h"

using qvrControllableAPI::ErrorCode;
using qvrControllableAPI::kOk;

ErrorCode OutputBpmConverter::stringFromFloat (const double& in, juce::String& out)
{
    out = juce::String (in, 1);
    if (out.endsWith (".0"))
        out = out.dropLastCharacters (2);
    return kOk;
}
