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

// Equal steps of the host's range are equal ratios of the value:
// ln (x / min) / ln (base), with base = max / min read from the parameter when
// the normalizer is made (a later change of the range is not followed).
// Denormalising inside the dead zone gives the geometric middle. The range
// must be positive; x at or below 0 is not guarded. Made on the message
// thread; both mappings run on the host's thread and neither allocates.
class LogarithmicAutomationNormalizer : public AutomationNormalizer
{
public:
    LogarithmicAutomationNormalizer (ParameterDef* parameter, float deadZoneWidth);
    float normalize (double value, double minimum, double maximum) override;
    double denormalize (float normalized, double minimum, double maximum) override;

private:
    float deadZone;
    double base;
};

// Finer control at the low end: sqrt ((x - min) / (max - min)), and back
// n * n * (max - min) + min with the square taken in float.
class SqrtAutomationNormalizer : public AutomationNormalizer
{
public:
    float normalize (double value, double minimum, double maximum) override;
    double denormalize (float normalized, double minimum, double maximum) override;
};

class BoolAutomationNormalizer : public AutomationNormalizer
{
public:
    float normalize (double value, double, double) override { return (float) value; }
    double denormalize (float normalized, double, double) override { return normalized; }
};

// A reverse switch for hosts: true is sent as 1.0, false as 0.5 (not 0), and
// only a host value above 0.75 reads back as true.
class ReverseAutomationNormalizer : public AutomationNormalizer
{
public:
    float normalize (double value, double, double) override { return value > 0.5 ? 1.0f : 0.5f; }
    double denormalize (float normalized, double, double) override { return normalized > 0.75f ? 1.0 : 0.0; }
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
