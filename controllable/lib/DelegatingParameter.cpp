#include "controllable/lib/DelegatingParameter.h"

#include "controllable/api/ParameterType.h"

namespace qvrControllableLib
{
ParameterTypePtr AbstractDelegatingParameter::getType()
{
    return getTarget()->getType();
}
bool AbstractDelegatingParameter::isTransient()
{
    return getTarget()->isTransient();
}
ValueConverterPtr AbstractDelegatingParameter::getConverter()
{
    return getTarget()->getConverter();
}
ValueModifierPtr AbstractDelegatingParameter::getModifier()
{
    return getTarget()->getModifier();
}
ParameterValuePtr AbstractDelegatingParameter::getValue()
{
    return getTarget()->getValue();
}
ParameterValueListPtr AbstractDelegatingParameter::getValueList()
{
    return getTarget()->getValueList();
}
ParameterValuePtr AbstractDelegatingParameter::getDefault()
{
    return getTarget()->getDefault();
}
ParameterValuePtr AbstractDelegatingParameter::getMinimum()
{
    return getTarget()->getMinimum();
}
ParameterValuePtr AbstractDelegatingParameter::getMaximum()
{
    return getTarget()->getMaximum();
}
ParameterValueListPtr AbstractDelegatingParameter::getChoices()
{
    return getTarget()->getChoices();
}

DelegatingParameter::DelegatingParameter (const juce::String& parameterName, ParameterDef* targetParameter)
    : AbstractDelegatingParameter (parameterName), target (targetParameter)
{
    target->addChangeListener (this, false);
}

DelegatingParameter::~DelegatingParameter()
{
    target->removeChangeListener (this, false);
    cancelQueuedChanges (getType().get());
}

AutomationHandlePtr DelegatingParameter::createAutomationHandle (juce::AudioProcessor* processor, int index,
                                                                 const juce::String& hostName,
                                                                 AutomationNormalizer* normalizer)
{
    return target->createAutomationHandle (processor, index, hostName, normalizer);
}

void DelegatingParameter::removeAutomationHandle()
{
    target->removeAutomationHandle();
}
AutomationHandlePtr DelegatingParameter::getAutomationHandle()
{
    return target->getAutomationHandle();
}

void DelegatingParameter::parameterChanged (ParameterDef*)
{
    notifyChanged (false, false);
}
} // namespace qvrControllableLib

namespace qvrControllableLib
{
DynamicDelegatingParameter::DynamicDelegatingParameter (const juce::String& nameOfTarget,
                                                        ControllableProvider* controllableProvider,
                                                        const juce::String& parameterName)
    : AbstractDelegatingParameter (parameterName), provider (controllableProvider), targetName (nameOfTarget)
{
}

DynamicDelegatingParameter::~DynamicDelegatingParameter()
{
    release();
    cancelQueuedChanges (resolvedType.get());
}

void DynamicDelegatingParameter::release()
{
    if (resolvedParameter != nullptr)
        resolvedParameter->removeChangeListener (this, false);
    resolvedParameter = nullptr;
    resolvedControllable = nullptr;
}

ParameterDefPtr DynamicDelegatingParameter::getTarget()
{
    ControllablePtr current;
    if (provider != nullptr)
        provider->getValue (nullptr, current);

    const juce::ScopedLock sl (resolveLock);
    if (current == nullptr)
    {
        release();
        return nullptr;
    }
    if (current.get() != resolvedControllable)
    {
        release();
        resolvedParameter = current->findParameter (targetName);
        resolvedControllable = current.get();
        if (resolvedParameter != nullptr)
        {
            resolvedParameter->addChangeListener (this, false);
            resolvedType = resolvedParameter->getType();
        }
    }
    return resolvedParameter;
}

ParameterTypePtr DynamicDelegatingParameter::getType()
{
    if (auto target = getTarget())
        return target->getType();
    return resolvedType;
}

void DynamicDelegatingParameter::parameterChanged (ParameterDef* changed)
{
    // Only the current target's changes reach the delegate's listeners.
    if (changed == resolvedParameter.get())
        notifyChanged (false, false);
}

// The value of a multi-target parameter: the first target's value, with
// every write copied to the further targets.
class MultiTargetDelegatingParameter::SpreadingValue : public ParameterValue
{
public:
    SpreadingValue (MultiTargetDelegatingParameter& p) : owner (p) {}

    ParameterValue& v() { return *owner.first->getValue(); }
    bool isNull() override { return v().isNull(); }
    juce::String getString() override { return v().getString(); }
    double getFloat() override { return v().getFloat(); }
    int getInt() override { return v().getInt(); }
    bool getBool() override { return v().getBool(); }
    int getChoiceIndex() override { return v().getChoiceIndex(); }
    void updateChoiceIndex() override { v().updateChoiceIndex(); }
    ParameterValuePtr getNearestChoice() override { return v().getNearestChoice(); }
    ErrorCode setNull() override { return spread (v().setNull()); }
    ErrorCode setString (const juce::String& x) override { return spread (v().setString (x)); }
    ErrorCode setFloat (double x) override { return spread (v().setFloat (x)); }
    ErrorCode setInt (int x) override { return spread (v().setInt (x)); }
    ErrorCode setBool (bool x) override { return spread (v().setBool (x)); }
    ErrorCode setFrom (ParameterValue* other) override { return spread (v().setFrom (other)); }
    ErrorCode replaceWith (ParameterValue*) override { return kUnsupported; }
    ParameterDef* getParameter() override { return &owner; }
    int getRole() override { return kRoleValue; }
    ValueConverterPtr getConverter() override { return v().getConverter(); }
    ValueModifierPtr getModifier() override { return v().getModifier(); }

private:
    ErrorCode spread (ErrorCode result)
    {
        if (result == kOk)
            for (auto* target : owner.further)
                target->getValue()->setFrom (owner.first->getValue().get());
        return result;
    }

    MultiTargetDelegatingParameter& owner;
};

MultiTargetDelegatingParameter::MultiTargetDelegatingParameter (const juce::String& parameterName,
                                                                ParameterDef* firstTarget,
                                                                const ParameterArray& furtherTargets)
    : AbstractDelegatingParameter (parameterName), first (firstTarget), further (furtherTargets)
{
    value = new SpreadingValue (*this);
    first->addChangeListener (this, false);
}

MultiTargetDelegatingParameter::~MultiTargetDelegatingParameter()
{
    first->removeChangeListener (this, false);
    cancelQueuedChanges (getType().get());
}

ParameterValuePtr MultiTargetDelegatingParameter::getValue()
{
    return value;
}

void MultiTargetDelegatingParameter::parameterChanged (ParameterDef* changed)
{
    // A change of the first target by itself is only told; spreading happens
    // for writes made through this parameter (SpreadingValue).
    if (changed == first.get())
        notifyChanged (false, false);
}
} // namespace qvrControllableLib
