#include "controllable/lib/ValueModifiers.h"

#include <algorithm>
#include <cmath>

#include "controllable/lib/DefaultValueConverter.h"

namespace qvrControllableLib
{
//==============================================================================
LogarithmicValueModifier::LogarithmicValueModifier (double logBase, double scale, double referenceValue)
    : base (logBase), multiplier (scale), reference (referenceValue)
{
}

ErrorCode LogarithmicValueModifier::toOuter (ParameterValue*, const int& in, int& out)
{
    // No lower bound here: an int of 0 reads as the most negative int.
    out = roundHalfEven (multiplier * std::log ((double) in / reference) / std::log (base));
    return kOk;
}

ErrorCode LogarithmicValueModifier::toOuter (ParameterValue*, const double& in, double& out)
{
    out = multiplier * std::log (std::max (in, kLowerBound) / reference) / std::log (base);
    return kOk;
}

ErrorCode LogarithmicValueModifier::toStored (ParameterValue*, const int& in, int& out)
{
    out = roundHalfEven (reference * std::pow (base, (double) in / multiplier));
    return kOk;
}

ErrorCode LogarithmicValueModifier::toStored (ParameterValue*, const double& in, double& out)
{
    // The power is taken in float and widened before the reference scales
    // it: a value written through a view has float precision, and saved
    // states and render keys compare those exact doubles.
    const float power = std::pow ((float) base, (float) (in / multiplier));
    out = reference * (double) power;
    return kOk;
}

//==============================================================================
DecibelValueModifier::DecibelValueModifier (double floorDb, double scale, double referenceValue)
    : LogarithmicValueModifier (10.0, scale, referenceValue), floor (floorDb)
{
}

ErrorCode DecibelValueModifier::toOuter (ParameterValue* value, const int& in, int& out)
{
    LogarithmicValueModifier::toOuter (value, in, out);
    if ((double) out < floor)
        out = roundHalfEven (floor);
    return kOk;
}

ErrorCode DecibelValueModifier::toOuter (ParameterValue* value, const double& in, double& out)
{
    LogarithmicValueModifier::toOuter (value, in, out);
    if (out < floor)
        out = floor;
    return kOk;
}

ErrorCode DecibelValueModifier::toStored (ParameterValue* value, const int& in, int& out)
{
    if ((double) in <= floor)
    {
        out = 0;
        return kOk;
    }
    return LogarithmicValueModifier::toStored (value, in, out);
}

ErrorCode DecibelValueModifier::toStored (ParameterValue* value, const double& in, double& out)
{
    if (in <= floor)
    {
        out = 0.0;
        return kOk;
    }
    return LogarithmicValueModifier::toStored (value, in, out);
}

//==============================================================================
ErrorCode InversionValueModifier::toOuter (ParameterValue*, const bool& in, bool& out)
{
    out = ! in;
    return kOk;
}
ErrorCode InversionValueModifier::toOuter (ParameterValue*, const double& in, double& out)
{
    out = 1.0 / in;
    return kOk;
}
ErrorCode InversionValueModifier::toStored (ParameterValue*, const bool& in, bool& out)
{
    out = ! in;
    return kOk;
}
ErrorCode InversionValueModifier::toStored (ParameterValue*, const double& in, double& out)
{
    out = 1.0 / in;
    return kOk;
}

//==============================================================================
PitchCentsModifier::PitchCentsModifier (double logBase, double scale, double referenceValue)
    : LogarithmicValueModifier (logBase, scale, referenceValue)
{
}

ErrorCode PitchCentsModifier::toOuter (ParameterValue* value, const double& in, double& out)
{
    LogarithmicValueModifier::toOuter (value, in, out);
    out *= 100.0;
    return kOk;
}

ErrorCode PitchCentsModifier::toStored (ParameterValue* value, const double& in, double& out)
{
    return LogarithmicValueModifier::toStored (value, in / 100.0, out);
}

//==============================================================================
StretchLinearizerModifier::StretchLinearizerModifier (double logBase, double scale, double referenceValue)
    : LogarithmicValueModifier (logBase, scale, referenceValue)
{
}

ErrorCode StretchLinearizerModifier::toOuter (ParameterValue* value, const double& in, double& out)
{
    return LogarithmicValueModifier::toOuter (value, 1.0 / in, out);
}

ErrorCode StretchLinearizerModifier::toStored (ParameterValue* value, const double& in, double& out)
{
    return LogarithmicValueModifier::toStored (value, -in, out);
}
} // namespace qvrControllableLib
