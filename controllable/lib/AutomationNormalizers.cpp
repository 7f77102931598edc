#include "controllable/lib/AutomationNormalizers.h"

#include <cmath>

#include "controllable/api/Parameter.h"
#include "controllable/api/ParameterValue.h"
#include "controllable/api/ParameterValueList.h"

namespace qvrControllableLib
{
float LinearAutomationNormalizer::normalize (double value, double minimum, double maximum)
{
    return (float) ((value - minimum) / (maximum - minimum));
}

double LinearAutomationNormalizer::denormalize (float normalized, double minimum, double maximum)
{
    if (std::abs (normalized - 0.5f) <= deadZone)
        return (maximum - minimum) * 0.5 + minimum;
    return (maximum - minimum) * normalized + minimum;
}

LogarithmicAutomationNormalizer::LogarithmicAutomationNormalizer (ParameterDef* parameter, float deadZoneWidth)
    : deadZone (deadZoneWidth), base (parameter->getMaximum()->getFloat() / parameter->getMinimum()->getFloat())
{
}

float LogarithmicAutomationNormalizer::normalize (double value, double minimum, double)
{
    return (float) (std::log (value / minimum) / std::log (base));
}

double LogarithmicAutomationNormalizer::denormalize (float normalized, double minimum, double)
{
    const double exponent = std::abs (normalized - 0.5f) <= deadZone ? 0.5 : (double) normalized;
    return minimum * std::pow (base, exponent);
}

float SqrtAutomationNormalizer::normalize (double value, double minimum, double maximum)
{
    return (float) std::sqrt ((value - minimum) / (maximum - minimum));
}

double SqrtAutomationNormalizer::denormalize (float normalized, double minimum, double maximum)
{
    const float square = normalized * normalized;
    return square * (maximum - minimum) + minimum;
}

float ChoiceAutomationNormalizer::normalize (double value, double, double)
{
    auto choices = parameter->getChoices();
    const int k = choices->size();
    int index = -1;
    for (int i = 0; i < k; ++i)
    {
        if (std::abs (choices->get (i)->getFloat() - value) <= 1e-5)
        {
            index = i;
            break;
        }
    }
    if (index < 0)
        for (int i = 0; i < k; ++i)
            if (choices->get (i)->getFloat() < value)
                index = i;
    return (float) index / (float) (k - 1);
}

double ChoiceAutomationNormalizer::denormalize (float normalized, double, double)
{
    auto choices = parameter->getChoices();
    const int k = choices->size();
    int index = (int) std::nearbyint ((float) (k - 1) * normalized);
    if (index >= k)
        index = k - 1;
    if (index < 0)
        index = 0;
    return choices->get (index)->getFloat();
}
} // namespace qvrControllableLib
