#include "controllable/lib/ChangeStrategies.h"

#include "controllable/api/Controllable.h"

namespace qvrControllableLib
{
void PostponedUpdates::add (ParameterDef* parameter)
{
    if (parameter == nullptr)
        return;
    savedStrategies.add (parameter->getChangeStrategy());
    parameter->setChangeStrategy (new PostponingChangeListenerStrategy (parameter));
    parameters.add (parameter);
}

void PostponedUpdates::addAll (Controllable* controllable)
{
    for (auto* p : controllable->getParameters())
        add (p);
}

void PostponedUpdates::release()
{
    for (int i = 0; i < parameters.size(); ++i)
    {
        auto parameter = parameters.getUnchecked (i);
        const ChangeListenerStrategyPtr postponing = parameter->getChangeStrategy();
        parameter->setChangeStrategy (savedStrategies.getUnchecked (i).get());
        // The postponing strategy notifies from its destructor when this last
        // reference goes, if the value changed meanwhile.
        juce::ignoreUnused (postponing);
    }
    parameters.clear();
    savedStrategies.clear();
}
} // namespace qvrControllableLib
