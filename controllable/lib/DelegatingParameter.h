#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/lib/AbstractParameter.h"

namespace qvrControllableLib
{
// A parameter with its own name, listeners and strategy but no value: it
// leans on getTarget() for type, converter, modifier, values and range.
class AbstractDelegatingParameter : public AbstractParameter, public ParameterChangeListener
{
public:
    using AbstractParameter::AbstractParameter;

    ParameterTypePtr getType() override;
    bool isTransient() override;
    ValueConverterPtr getConverter() override;
    ValueModifierPtr getModifier() override;
    ParameterValuePtr getValue() override;
    ParameterValueListPtr getValueList() override;
    ParameterValuePtr getDefault() override;
    ParameterValuePtr getMinimum() override;
    ParameterValuePtr getMaximum() override;
    ParameterValueListPtr getChoices() override;

    ErrorCode replaceValue (ParameterValue*, ParameterValue*) override { return kOk; }
    ErrorCode replaceValueList (ParameterValueList*, ParameterValueList*) override { return kOk; }
    ErrorCode setConverter (ValueConverter*) override { return kOk; }
    ErrorCode setModifier (ValueModifier*) override { return kOk; }

    virtual ParameterDefPtr getTarget() = 0;
};

// Delegates to one fixed target and tells its own listeners of the target's
// changes. It listens to the target asynchronously, so even its synchronous
// listeners hear of a change on the message thread; code that must react on
// the writing thread listens to the target itself.
class DelegatingParameter : public AbstractDelegatingParameter
{
public:
    DelegatingParameter (const juce::String& name, ParameterDef* target);
    ~DelegatingParameter() override;

    ParameterDefPtr getTarget() override { return target; }
    bool isTransient() override { return target->isTransient(); }

    AutomationHandlePtr createAutomationHandle (juce::AudioProcessor* processor, int index,
                                                const juce::String& hostName,
                                                AutomationNormalizer* normalizer) override;
    void removeAutomationHandle() override;
    AutomationHandlePtr getAutomationHandle() override;

    void parameterChanged (ParameterDef* changed) override;

private:
    ParameterDefPtr target;

    JUCE_DECLARE_NON_COPYABLE (DelegatingParameter)
};
} // namespace qvrControllableLib
