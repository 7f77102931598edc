#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/lib/AbstractParameter.h"
#include "controllable/lib/ParameterValues.h"

namespace qvrControllableLib
{
// A parameter with its own name, listeners and strategy but no value: it
// leans on getTarget() for type, converter, modifier, values and range.
class AbstractDelegatingParameter : public AbstractParameter,
                                    public ParameterChangeListener
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

// Delegates to the parameter of a given name in whichever controllable its
// provider names now: `editLoop.gain` is the gain of the edited loop. The
// target is resolved at every getTarget() call, which moves the listener
// registration when the answer changed (so it runs on the message thread);
// a change of target does not itself notify. Never saved, never automated.
class DynamicDelegatingParameter : public AbstractDelegatingParameter
{
public:
    using ControllableProvider = DynamicValueProvider<ControllablePtr>;

    DynamicDelegatingParameter (const juce::String& targetName, ControllableProvider* provider,
                                const juce::String& name);
    ~DynamicDelegatingParameter() override;

    ParameterDefPtr getTarget() override;
    bool isTransient() override { return true; }

    AutomationHandlePtr createAutomationHandle (juce::AudioProcessor*, int, const juce::String&,
                                                AutomationNormalizer*) override
    {
        return nullptr;
    }
    void removeAutomationHandle() override {}
    AutomationHandlePtr getAutomationHandle() override { return nullptr; }

    ParameterTypePtr getType() override;
    void parameterChanged (ParameterDef* changed) override;

private:
    void release();

    std::unique_ptr<ControllableProvider> provider;
    juce::String targetName;
    Controllable* resolvedControllable = nullptr;
    ParameterDefPtr resolvedParameter;
    ParameterTypePtr resolvedType;
    juce::CriticalSection resolveLock;
};

// Stands for several parameters at once: reads and listens to the first;
// a change made through it is copied to all the others.
class MultiTargetDelegatingParameter : public AbstractDelegatingParameter
{
public:
    MultiTargetDelegatingParameter (const juce::String& name, ParameterDef* firstTarget,
                                    const ParameterArray& furtherTargets);
    ~MultiTargetDelegatingParameter() override;

    ParameterDefPtr getTarget() override { return first; }
    AutomationHandlePtr getAutomationHandle() override { return nullptr; }
    void parameterChanged (ParameterDef* changed) override;
    ParameterValuePtr getValue() override;

private:
    class SpreadingValue;

    ParameterDefPtr first;
    ParameterArray further;
    ParameterValuePtr value;
};
} // namespace qvrControllableLib
