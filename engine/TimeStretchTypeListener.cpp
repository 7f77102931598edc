#include "engine/TimeStretchTypeListener.h"

#include <utility>

#include "controllable/api/Parameter.h"
#include "controllable/api/ParameterValue.h"

TimeStretchTypeListener::TimeStretchTypeListener (qvrControllableAPI::ParameterDef* type,
                                                  qvrControllableAPI::ParameterDef* procMode,
                                                  qvrControllableAPI::ParameterDef* mode)
{
    timeStretchType.bind (type);
    meridexProcMode.bind (procMode);
    resamplingMode.bind (mode);
    for (auto* p : { type, procMode, mode })
        p->addChangeListener (this, true);
    parameterChanged (type);
}

TimeStretchTypeListener::~TimeStretchTypeListener()
{
    for (auto* p : { timeStretchType.get(), meridexProcMode.get(), resamplingMode.get() })
        p->removeChangeListener (this, true);
}

void TimeStretchTypeListener::parameterChanged (qvrControllableAPI::ParameterDef* parameter)
{
    if (applying)
        return;
    const juce::ScopedValueSetter<bool> guard (applying, true);

    const juce::String type = timeStretchType->getValue()->getString();
    const juce::String procMode = meridexProcMode->getValue()->getString();
    const bool v = type == kVariSpeed;
    const bool p = resamplingMode.read() == kPitchSpeed;
    const bool d = procMode != type;
    const bool typeChanged = parameter == timeStretchType.get();
    const bool modeChanged = parameter == resamplingMode.get();
    const bool procModeChanged = parameter == meridexProcMode.get();

    if (typeChanged && v && ! p)
    {
        savedResamplingMode = resamplingMode.read();
        resamplingMode.write (kPitchSpeed);
    }
    else if (modeChanged && p && ! v)
    {
        savedResamplingMode = 1;
        timeStretchType->getValue()->setString (kVariSpeed);
    }
    else if ((typeChanged && p && ! v) || (modeChanged && v && ! p))
    {
        timeStretchType->getValue()->setString (procMode);
        resamplingMode.write (savedResamplingMode);
    }
    else if (typeChanged && d && ! v && ! p)
    {
        meridexProcMode->getValue()->setString (type);
    }
    else if (procModeChanged && d && ! v && ! p)
    {
        timeStretchType->getValue()->setString (procMode);
    }
}
