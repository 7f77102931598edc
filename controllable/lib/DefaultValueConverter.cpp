#include "controllable/lib/DefaultValueConverter.h"

#include <cmath>
#include <limits>

namespace qvrControllableLib
{
ErrorCode DefaultValueConverter::boolFromInt (const int& in, bool& out)
{
    out = in != 0;
    return kOk;
}
ErrorCode DefaultValueConverter::boolFromFloat (const double& in, bool& out)
{
    out = in > 0.5;
    return kOk;
}

ErrorCode DefaultValueConverter::boolFromString (const juce::String& in, bool& out)
{
    out = in.equalsIgnoreCase ("true") || in.equalsIgnoreCase ("yes") || in.equalsIgnoreCase ("on") || in == "1"
          || in == "1.0";
    return kOk;
}

ErrorCode DefaultValueConverter::intFromBool (const bool& in, int& out)
{
    out = in ? 1 : 0;
    return kOk;
}

int roundHalfEven (double value) noexcept
{
    if (std::isnan (value))
        return 0;
    // nearbyint follows the current rounding mode: half to even by default.
    const double rounded = std::nearbyint (value);
    if (rounded <= (double) std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    if (rounded >= (double) std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    return (int) rounded;
}

ErrorCode DefaultValueConverter::intFromFloat (const double& in, int& out)
{
    out = roundHalfEven (in);
    return kOk;
}

ErrorCode DefaultValueConverter::intFromString (const juce::String& in, int& out)
{
    out = in.getIntValue();
    return kOk;
}
ErrorCode DefaultValueConverter::floatFromBool (const bool& in, double& out)
{
    out = in ? 1.0 : 0.0;
    return kOk;
}
ErrorCode DefaultValueConverter::floatFromInt (const int& in, double& out)
{
    out = (double) in;
    return kOk;
}
ErrorCode DefaultValueConverter::floatFromString (const juce::String& in, double& out)
{
    out = in.getDoubleValue();
    return kOk;
}
ErrorCode DefaultValueConverter::stringFromBool (const bool& in, juce::String& out)
{
    out = in ? "true" : "false";
    return kOk;
}
ErrorCode DefaultValueConverter::stringFromInt (const int& in, juce::String& out)
{
    out = juce::String (in);
    return kOk;
}
ErrorCode DefaultValueConverter::stringFromFloat (const double& in, juce::String& out)
{
    out = juce::String (in);
    return kOk;
}
} // namespace qvrControllableLib
