#pragma once

namespace qvrControllableAPI
{
// The mapping between a host's 0..1 float and a native value. Not counted:
// the automation handle owns its normalizer.
class AutomationNormalizer
{
public:
    virtual ~AutomationNormalizer() = default;
    virtual float normalize (double value, double minimum, double maximum) = 0;
    virtual double denormalize (float normalized, double minimum, double maximum) = 0;
};
} // namespace qvrControllableAPI
