#include "engine/TavrineLoopTimeline.h"

#include <cmath>

TavrineLoopTimeline::TavrineLoopTimeline()
{
    setPosition (0.0);
}

void TavrineLoopTimeline::bind (qvrControllableAPI::ParameterDef* totalLengthParameter,
                                qvrControllableAPI::ParameterDef* resamplingRatioParameter)
{
    totalLength.bind (totalLengthParameter);
    resamplingRatio.bind (resamplingRatioParameter);
}

double TavrineLoopTimeline::ratio() const noexcept
{
    if (resamplingRatio.getRaw() == nullptr)
        return 1.0;
    const double r = resamplingRatio.read();
    return std::isfinite (r) && r > 0.0 ? r : 1.0;
}

double TavrineLoopTimeline::getStep()
{
    const int length = totalLength.getRaw() != nullptr ? totalLength.read() : 0;
    if (length <= 0)
        return -1.0;
    return ratio() / length;
}

int TavrineLoopTimeline::samplesUntil (const double& time)
{
    const int length = totalLength.getRaw() != nullptr ? totalLength.read() : 0;
    if (length <= 0)
        return -1;
    // A time up to a step behind (isReachable) is due now, not lost: the
    // queue reads a negative count as "no length" and would skip it.
    return juce::jmax (0, (int) std::lround ((time - getPosition()) * length / ratio()));
}

void TavrineLoopTimeline::advance (const int& samples)
{
    const int length = totalLength.getRaw() != nullptr ? totalLength.read() : 0;
    if (length <= 0 || samples == 0)
        return;
    setPosition (getPosition() + ratio() * samples / length);
}

bool TavrineLoopTimeline::isReachable (const double& time)
{
    return getPosition() - time <= getStep();
}
