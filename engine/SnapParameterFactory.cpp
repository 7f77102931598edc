#include "engine/SnapParameterFactory.h"

#include "controllable/lib/ChangeStrategies.h"
#include "controllable/lib/ParameterTypeImpl.h"
#include "engine/SnapModeValueConverter.h"

using namespace qvrControllableAPI;

SnapParameterFactory::~SnapParameterFactory()
{
    for (auto* mode : snapModes)
        mode->removeChangeListener (this, true);
}

SnapParameterFactory::Grid SnapParameterFactory::createGrid (qvrControllableLib::BasicControllable& owner,
                                                             const juce::String& prefix, int defaultMode, bool withOff)
{
    // "loop" + "SnapMode", but "gain." + "snapMode".
    const bool lowerCase = prefix.isEmpty() || prefix.endsWithChar ('.');
    qvrControllableHandle::IntParamDefHandle mode (prefix + (lowerCase ? "snapMode" : "SnapMode"));
    for (int n : { 1, 2, 3, 4, 6, 8, 12, 16, 24, 32, 48, 64 })
        mode.choices.add (n);
    if (withOff)
        mode.choices.add (SnapModeValueConverter::kOff);
    mode->setConverter (new SnapModeValueConverter());
    mode.defaultValue = defaultMode;

    auto times = qvrControllableLib::ParameterTypes::floatListType().createParameter (
        prefix + (lowerCase ? "snapTimes" : "SnapTimes"));
    fillTimes (*times, defaultMode);

    owner.addParameter (mode.getParameter());
    owner.addParameter (times, qvrControllableLib::ParameterPersistence::transient);
    snapModes.add (mode.getParameter());
    snapTimes.add (times);
    mode->addChangeListener (this, true);
    return { mode.getParameter(), times };
}

void SnapParameterFactory::fillTimes (ParameterDef& times, int n)
{
    qvrControllableLib::PostponedUpdates postponed;
    postponed.add (&times);
    auto list = times.getValueList();
    list->clear();
    const int divisions = juce::jmax (1, n);
    for (int i = 0; i <= divisions; ++i)
        list->addFloat ((double) i / divisions);
    postponed.release();
}

void SnapParameterFactory::parameterChanged (ParameterDef* parameter)
{
    const int index = snapModes.indexOf (parameter);
    if (index >= 0)
        fillTimes (*snapTimes.getUnchecked (index), parameter->getValue()->getInt());
}
