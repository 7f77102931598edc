#pragma once

#include "controllable/api/ControllableForward.h"

namespace juce
{
class AudioProcessor;
}

namespace qvrControllableAPI
{
// What a user of a parameter needs. Operations are declared in the order the
// framework extends them.
class Parameter : public virtual juce::ReferenceCountedObject
{
public:
    virtual juce::String getName() = 0;
    virtual juce::String getDisplayName() = 0;
    virtual juce::String getDescription() = 0;
    virtual ParameterTypePtr getType() = 0;
    // Transient parameters stay out of saved state and resets.
    virtual bool isTransient() = 0;
    // Never null.
    virtual ValueConverterPtr getConverter() = 0;
    // May be null.
    virtual ValueModifierPtr getModifier() = 0;
    virtual ParameterValuePtr getValue() = 0;
    virtual ParameterValueListPtr getValueList() = 0;
    virtual ParameterValuePtr getDefault() = 0;
    virtual ParameterValuePtr getMinimum() = 0;
    virtual ParameterValuePtr getMaximum() = 0;
    virtual ParameterValueListPtr getChoices() = 0;
    // Exchanges the object in the role that holds oldValue; notifies even when
    // oldValue is held by no role. For definition time only: shortcuts keep
    // the address of a value's storage for ever.
    virtual ErrorCode replaceValue (ParameterValue* oldValue, ParameterValue* newValue) = 0;
    virtual ErrorCode replaceValueList (ParameterValueList* oldList, ParameterValueList* newList) = 0;
    virtual void addChangeListener (ParameterChangeListener* listener, bool synchronous) = 0;
    virtual void removeChangeListener (ParameterChangeListener* listener, bool synchronous) = 0;
    virtual void notifyChanged (bool fromAutomation, bool fromFifo) = 0;
    virtual bool hasChangeListeners() = 0;
    virtual ChangeListenerStrategyPtr getChangeStrategy() = 0;
    virtual void setChangeStrategy (ChangeListenerStrategy* strategy) = 0;
    virtual AutomationHandlePtr createAutomationHandle (juce::AudioProcessor* processor, int index,
                                                        const juce::String& name, AutomationNormalizer* normalizer) = 0;
    virtual void removeAutomationHandle() = 0;
    virtual AutomationHandlePtr getAutomationHandle() = 0;
    // A new parameter of `type` (this one's type if null) whose value, range
    // and default follow this parameter.
    virtual ParameterDefPtr createForwardingParameter (const juce::String& name, ParameterType* type) = 0;
    virtual ParameterDefPtr cloneParameter (const juce::String& name) = 0;
};

// A parameter as its owner sees it: adds the operations that define it.
class ParameterDef : public Parameter
{
public:
    virtual void setDisplayName (const juce::String& displayName) = 0;
    virtual void setDescription (const juce::String& description) = 0;
    virtual ErrorCode setConverter (ValueConverter* converter) = 0;
    virtual ErrorCode setModifier (ValueModifier* modifier) = 0;
    virtual void setTransient (bool transient) = 0;
};
} // namespace qvrControllableAPI
