#include "controllable/lib/Controllables.h"

#include <ostream>

#include "controllable/api/ParameterValue.h"

namespace qvrControllableLib
{
ParameterDefPtr AbstractControllable::findParameter (const juce::String& name)
{
    for (auto* p : getParameters())
        if (p->getName() == name)
            return ParameterDefPtr (p);
    return nullptr;
}

void AbstractControllable::dump (std::ostream& out)
{
    const auto& all = getParameters();
    out << "controllable defines " << all.size() << " parameters:\n";
    for (auto* p : all)
        out << p->getName() << "=" << p->getValue()->getString() << "\n";
}

ParameterDefPtr BasicControllable::addParameter (ParameterDef* parameter, ParameterPersistence persistence)
{
    parameter->setTransient (persistence == ParameterPersistence::transient);
    parameters.add (parameter);
    return ParameterDefPtr (parameter);
}

ParameterDefPtr ReferencingControllable::addParameter (ParameterDef* parameter)
{
    parameters.add (parameter);
    return ParameterDefPtr (parameter);
}

const ParameterArray& ForwardingControllable::getParameters()
{
    return target != nullptr ? target->getParameters() : parameters;
}

ParameterDefPtr ForwardingControllable::findParameter (const juce::String& name)
{
    return target != nullptr ? target->findParameter (name) : AbstractControllable::findParameter (name);
}
} // namespace qvrControllableLib
