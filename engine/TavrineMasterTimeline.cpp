#include "engine/TavrineMasterTimeline.h"

#include <cmath>

TavrineMasterTimeline::TavrineMasterTimeline (qvrControllableAPI::ParameterDef* outputBpmParameter,
                                              qvrControllableAPI::ParameterDef* triggerPlayModeParameter)
    : outputBpm (outputBpmParameter), triggerPlayMode (triggerPlayModeParameter)
{
    triggerPlayMode->addChangeListener (this, true);
}

TavrineMasterTimeline::~TavrineMasterTimeline()
{
    triggerPlayMode->removeChangeListener (this, true);
}

double TavrineMasterTimeline::positionOf (std::int64_t samples) const noexcept
{
    const double bpm = outputBpm.read();
    if (bpm > 0.0)
        return (double) samples / kSampleRate / 60.0 * bpm / kBeatsPerUnit;
    return (double) samples;
}

std::int64_t TavrineMasterTimeline::samplesOf (double position) const noexcept
{
    const double bpm = outputBpm.read();
    if (bpm > 0.0)
        return (std::int64_t) std::floor (position * kBeatsPerUnit / bpm * 60.0 * kSampleRate + 0.500000001);
    return (std::int64_t) std::floor (position + 0.500000001);
}

double TavrineMasterTimeline::getPosition()
{
    return positionOf (samplePosition.load());
}

void TavrineMasterTimeline::setPosition (const double& position)
{
    samplePosition.store (samplesOf (position));
    AudioEventTimeline::setPosition (position);
}

double TavrineMasterTimeline::getStep()
{
    return outputBpm.read() > 0.0 ? positionOf (1) : 1.0;
}

int TavrineMasterTimeline::samplesUntil (const double& time)
{
    return (int) (samplesOf (time) - samplePosition.load());
}

void TavrineMasterTimeline::advance (const int& samples)
{
    samplePosition.fetch_add (samples);
    AudioEventTimeline::setPosition (getPosition());
}

bool TavrineMasterTimeline::isReachable (const double& time)
{
    return getPosition() - time <= getStep();
}

void TavrineMasterTimeline::parameterChanged (qvrControllableAPI::ParameterDef* parameter)
{
    if (parameter == triggerPlayMode.get() && parameter->getValue()->getBool())
        restartRequested.store (true);
}

void TavrineMasterTimeline::applyRequestedRestart()
{
    if (restartRequested.exchange (false))
        setPosition (0.0);
}
