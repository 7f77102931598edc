#include "controllable/lib/DefaultValueConverter.h"

#include <cmath>

namespace qvrControllableLib
{
ErrorCode DefaultValueConverter::boolFromInt (const int& in, bool& out) { out = in != 0; return kOk; }
ErrorCode DefaultValueConverter::boolFromFloat (const double& in, bool& out) { out = in > 0.5; return kOk; }

ErrorCode DefaultValueConverter::boolFromString (const juce::String& in, bool& out)
{
    out = in.equalsIgnoreCase ("true") || in.equalsIgnoreCase ("yes") || in.equalsIgnoreCase ("on")
          || in == "1" || in == "1.0";
    return kOk;
}

ErrorCode DefaultValueConverter::intFromBool (const bool& in, int& out) { out = in ? 1 : 0; return kOk; }

ErrorCode DefaultValueConverter::intFromFloat (const double& in, int& out)
{
    // nearbyint follows the current rounding mode: half to even by default.
    out = (int) std::nearbyint (in);
    return kOk;
}

ErrorCode DefaultValueConverter::intFromString (const juce::String& in, int& out) { out = in.getIntValue(); return kOk; }
ErrorCode DefaultValueConverter::floatFromBool (const bool& in, double& out) { out = in ? 1.0 : 0.0; return kOk; }
ErrorCode DefaultValueConverter::floatFromInt (const int& in, double& out) { out = (double) in; return kOk; }
ErrorCode DefaultValueConverter::floatFromString (const juce::String& in, double& out) { out = in.getDoubleValue(); return kOk; }
ErrorCode DefaultValueConverter::stringFromBool (const bool& in, juce::String& out) { out = in ? "true" : "false"; return kOk; }
ErrorCode DefaultValueConverter::stringFromInt (const int& in, juce::String& out) { out = juce::String (in); return kOk; }
ErrorCode DefaultValueConverter::stringFromFloat (const double& in, juce::String& out) { out = juce::String (in); return kOk; }

ErrorCode OutputBpmConverter::stringFromFloat (const double& in, juce::String& out)
{
    out = juce::String (in, 1);
    if (out.endsWith (".0"))
        out = out.dropLastCharacters (2);
    return kOk;
}

ErrorCode OutputBusValueConverter::stringFromInt (const int& in, juce::String& out)
{
    out = "Output " + juce::String (2 * in + 1) + "/" + juce::String (2 * in + 2);
    return kOk;
}
} // namespace qvrControllableLib
