#include "controllable/lib/DispatchingControllable.h"

#include "controllable/lib/DelegatingParameter.h"

namespace qvrControllableLib
{
void AbstractForwardingStrategy::forwardParameters (const ControllableArray& targets, ParameterArray& out)
{
    juce::StringArray forwardedNames, localNames;
    for (auto* controllable : targets)
        for (auto* parameter : controllable->getParameters())
        {
            const auto forwarded = getForwardedName (parameter, controllable);
            if (! forwardedNames.contains (forwarded))
            {
                forwardedNames.add (forwarded);
                localNames.add (parameter->getName());
            }
        }

    for (int i = 0; i < forwardedNames.size(); ++i)
    {
        juce::Array<Controllable*> holders;
        for (auto* controllable : targets)
            if (controllable->findParameter (localNames[i]) != nullptr)
                holders.add (controllable);

        if (auto* target = selectTarget (holders, forwardedNames[i], localNames[i]))
            if (auto parameter = target->findParameter (localNames[i]))
                if (auto forwarded = createDelegatingParameter (parameter.get(), target))
                    out.add (forwarded);
    }
}

Controllable* AbstractForwardingStrategy::selectTarget (const juce::Array<Controllable*>& targets,
                                                        const juce::String& forwardedName, const juce::String&)
{
    if (targets.isEmpty())
        return nullptr;
    switch (getForwardMode (forwardedName))
    {
        case kForwardToFirst: return targets.getFirst();
        case kForwardToLast: return targets.getLast();
        default: return nullptr;
    }
}

juce::String AbstractForwardingStrategy::getForwardedName (ParameterDef* parameter, Controllable*)
{
    return parameter->getName();
}

ParameterDefPtr AbstractForwardingStrategy::createMultiTargetParameter (const juce::String&,
                                                                        const juce::Array<Controllable*>&, int)
{
    // Multi-target delegates are made by derived strategies that need them.
    return nullptr;
}

ParameterDefPtr AbstractForwardingStrategy::createDelegatingParameter (ParameterDef* parameter,
                                                                       Controllable* controllable)
{
    return new DelegatingParameter (getForwardedName (parameter, controllable), parameter);
}

DispatchingControllable::DispatchingControllable (ForwardingStrategy* forwardingStrategy, TargetProvider* provider)
    : strategy (forwardingStrategy), targetProvider (provider)
{
}

const ParameterArray& DispatchingControllable::getParameters()
{
    if (parameters.size() == numDirectParameters && targetProvider != nullptr && strategy != nullptr)
        strategy->forwardParameters (targetProvider->getTargets(), parameters);
    return parameters;
}

ParameterDefPtr DispatchingControllable::addParameter (ParameterDef* parameter, ParameterPersistence persistence)
{
    parameter->setTransient (persistence == ParameterPersistence::transient);
    parameters.add (parameter);
    ++numDirectParameters;
    return ParameterDefPtr (parameter);
}
} // namespace qvrControllableLib
