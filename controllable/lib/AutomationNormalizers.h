#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/api/ControllableForward.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// (x - min) / (max - min); denormalising snaps to the middle inside the dead zone.
class LinearAutomationNormalizer : public AutomationNormalizer
{
public:
    explicit LinearAutomationNormalizer (float deadZoneWidth = 0.0f) : deadZone (deadZoneWidth) {}
    float normalize (double value, double minimum, double maximum) override;
    double denormalize (float normalized, double minimum, double maximum) override;

private:
    float deadZone;
};

class BoolAutomationNormalizer : public AutomationNormalizer
{
public:
    float normalize (double value, double, double) override { return (float) value; }
    double denormalize (float normalized, double, double) override { return normalized; }
};

// Steps through the parameter's choices: index / (count - 1). With one
// choice the division is by zero, and that is not guarded.
class ChoiceAutomationNormalizer : public AutomationNormalizer
{
public:
    explicit ChoiceAutomationNormalizer (ParameterDef* p) : parameter (p) {}
    float normalize (double value, double minimum, double maximum) override;
    double denormalize (float normalized, double minimum, double maximum) override;

private:
    ParameterDef* parameter;
};
} // namespace qvrControllableLib
