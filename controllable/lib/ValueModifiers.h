#pragma once

#include "controllable/lib/ValueModifierImpl.h"

namespace qvrControllableLib
{
// The modifiers the program ships. A modifier maps a stored value to what
// the outside sees (toOuter) and back (toStored); a view such as `gainDb` on
// `gain` is a forwarding parameter with one of these. Stateless after
// construction and shared freely; every operation may run on the audio
// thread (shortcuts apply them there), so none allocates or locks.
//
// Kinds a modifier does not name pass unchanged (ValueModifierImpl).

// outer = multiplier x log_base (stored / reference), with natural logarithms.
//
// Float reads bound the stored value below by 1e-16 taken as a 32-bit float
// (kLowerBound), so that silence reads as a finite level: a gain of 0 under
// (10, 20, 1) reads about -320 dB. Float writes compute the power at single
// precision and widen it before multiplying by the reference, so a stored
// value written through a modifier has float precision. Int reads have no
// lower bound; int reads and writes round half to even, in double precision.
class LogarithmicValueModifier : public ValueModifierImpl
{
public:
    static constexpr double kLowerBound = (double) 1.0e-16f; // 1.0000000168623835e-16

    LogarithmicValueModifier (double base, double multiplier, double reference);

    using ValueModifierImpl::toOuter;
    using ValueModifierImpl::toStored;
    ErrorCode toOuter (ParameterValue* value, const int& in, int& out) override;
    ErrorCode toOuter (ParameterValue* value, const double& in, double& out) override;
    ErrorCode toStored (ParameterValue* value, const int& in, int& out) override;
    ErrorCode toStored (ParameterValue* value, const double& in, double& out) override;

protected:
    double base;
    double multiplier;
    double reference;
};

// Decibels with a floor, base 10: a reading below the floor is the floor,
// and writing the floor or less stores 0 (silence).
class DecibelValueModifier : public LogarithmicValueModifier
{
public:
    DecibelValueModifier (double floorDb, double multiplier, double reference);

    using LogarithmicValueModifier::toOuter;
    using LogarithmicValueModifier::toStored;
    ErrorCode toOuter (ParameterValue* value, const int& in, int& out) override;
    ErrorCode toOuter (ParameterValue* value, const double& in, double& out) override;
    ErrorCode toStored (ParameterValue* value, const int& in, int& out) override;
    ErrorCode toStored (ParameterValue* value, const double& in, double& out) override;

protected:
    double floor;
};

// One switch seen from the other side: bools negate, floats become 1 / x
// both ways (a length factor seen as a speed factor). 1 / 0 is not guarded.
class InversionValueModifier : public ValueModifierImpl
{
public:
    using ValueModifierImpl::toOuter;
    using ValueModifierImpl::toStored;
    ErrorCode toOuter (ParameterValue* value, const bool& in, bool& out) override;
    ErrorCode toOuter (ParameterValue* value, const double& in, double& out) override;
    ErrorCode toStored (ParameterValue* value, const bool& in, bool& out) override;
    ErrorCode toStored (ParameterValue* value, const double& in, double& out) override;
};

// A frequency ratio in cents: 100 x the logarithmic reading, so with the
// defaults 1200 x log2 (ratio). Writing divides by 100 first.
class PitchCentsModifier : public LogarithmicValueModifier
{
public:
    explicit PitchCentsModifier (double base = 2.0, double multiplier = 12.0, double reference = 1.0);

    using LogarithmicValueModifier::toOuter;
    using LogarithmicValueModifier::toStored;
    ErrorCode toOuter (ParameterValue* value, const double& in, double& out) override;
    ErrorCode toStored (ParameterValue* value, const double& in, double& out) override;
};

// A stretch factor on a linear scale on which 0 is no stretch: the
// logarithmic reading of 1 / factor, so with the defaults -log10 (factor).
// Writing negates and takes the power.
class StretchLinearizerModifier : public LogarithmicValueModifier
{
public:
    explicit StretchLinearizerModifier (double base = 10.0, double multiplier = 1.0, double reference = 1.0);

    using LogarithmicValueModifier::toOuter;
    using LogarithmicValueModifier::toStored;
    ErrorCode toOuter (ParameterValue* value, const double& in, double& out) override;
    ErrorCode toStored (ParameterValue* value, const double& in, double& out) override;
};
} // namespace qvrControllableLib
