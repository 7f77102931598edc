#pragma once

#include <juce_core/juce_core.h>

#include "controllable/api/ControllableErrors.h"

// Forward declarations and the counted pointer names of the parameter API.
// Everything here is reference counted through juce::ReferenceCountedObject
// (atomic count); a value knows its parameter without counting it.
namespace qvrControllableAPI
{
class Controllable;
class Parameter;
class ParameterDef;
class ParameterValue;
class ParameterValueList;
class ParameterType;
class ValueConverter;
class ValueModifier;
class AutomationNormalizer;
class AutomationHandle;
class ParameterChangeListener;
class ChangeListenerStrategy;

using ControllablePtr = juce::ReferenceCountedObjectPtr<Controllable>;
using ParameterDefPtr = juce::ReferenceCountedObjectPtr<ParameterDef>;
using ParameterValuePtr = juce::ReferenceCountedObjectPtr<ParameterValue>;
using ParameterValueListPtr = juce::ReferenceCountedObjectPtr<ParameterValueList>;
using ParameterTypePtr = juce::ReferenceCountedObjectPtr<ParameterType>;
using ValueConverterPtr = juce::ReferenceCountedObjectPtr<ValueConverter>;
using ValueModifierPtr = juce::ReferenceCountedObjectPtr<ValueModifier>;
using AutomationHandlePtr = juce::ReferenceCountedObjectPtr<AutomationHandle>;
using ChangeListenerStrategyPtr = juce::ReferenceCountedObjectPtr<ChangeListenerStrategy>;

using ParameterArray = juce::ReferenceCountedArray<ParameterDef>;
using ControllableArray = juce::ReferenceCountedArray<Controllable>;

// Roles of the subordinate objects of a parameter.
enum Role : int
{
    kRoleValue = 1,
    kRoleValueList = 2,
    kRoleDefault = 3,
    kRoleMinimum = 4,
    kRoleMaximum = 5,
    kRoleChoices = 6
};
} // namespace qvrControllableAPI
