#include "controllable/lib/DelegatingParameter.h"

#include "controllable/api/ParameterType.h"

namespace qvrControllableLib
{
ParameterTypePtr AbstractDelegatingParameter::getType()            { return getTarget()->getType(); }
bool AbstractDelegatingParameter::isTransient()                    { return getTarget()->isTransient(); }
ValueConverterPtr AbstractDelegatingParameter::getConverter()      { return getTarget()->getConverter(); }
ValueModifierPtr AbstractDelegatingParameter::getModifier()        { return getTarget()->getModifier(); }
ParameterValuePtr AbstractDelegatingParameter::getValue()          { return getTarget()->getValue(); }
ParameterValueListPtr AbstractDelegatingParameter::getValueList()  { return getTarget()->getValueList(); }
ParameterValuePtr AbstractDelegatingParameter::getDefault()        { return getTarget()->getDefault(); }
ParameterValuePtr AbstractDelegatingParameter::getMinimum()        { return getTarget()->getMinimum(); }
ParameterValuePtr AbstractDelegatingParameter::getMaximum()        { return getTarget()->getMaximum(); }
ParameterValueListPtr AbstractDelegatingParameter::getChoices()    { return getTarget()->getChoices(); }

DelegatingParameter::DelegatingParameter (const juce::String& parameterName, ParameterDef* targetParameter)
    : AbstractDelegatingParameter (parameterName), target (targetParameter)
{
    target->addChangeListener (this, false);
}

DelegatingParameter::~DelegatingParameter()
{
    target->removeChangeListener (this, false);
    getType()->cancelChanges (this);
}

AutomationHandlePtr DelegatingParameter::createAutomationHandle (juce::AudioProcessor* processor, int index,
                                                                 const juce::String& hostName,
                                                                 AutomationNormalizer* normalizer)
{
    return target->createAutomationHandle (processor, index, hostName, normalizer);
}

void DelegatingParameter::removeAutomationHandle() { target->removeAutomationHandle(); }
AutomationHandlePtr DelegatingParameter::getAutomationHandle() { return target->getAutomationHandle(); }

void DelegatingParameter::parameterChanged (ParameterDef*)
{
    notifyChanged (false, false);
}
} // namespace qvrControllableLib
