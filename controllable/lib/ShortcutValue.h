#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/api/ParameterValue.h"
#include "controllable/api/ParameterValueList.h"
#include "controllable/api/ValueModifier.h"
#include "controllable/lib/ForwardingParameterValue.h"
#include "controllable/lib/ParameterValues.h"

namespace qvrControllableLib
{
// Direct access to the storage of a value, for the audio thread: a read is a
// relaxed atomic load (a plain mov on x86-64) (through the collected modifiers if any, innermost first), a
// write a plain store (through the modifiers' toStored, outermost first)
// (relaxed) followed by the choice index update and the notification. A dynamic value
// has no storage: a shortcut on it stays unconnected. Connecting
// allocates; reading and writing never do and take no lock.
//
// Embedded by value. connect() on the message thread before audio runs.
template <typename T>
class GenericShortcutValue
{
public:
    GenericShortcutValue() = default;
    explicit GenericShortcutValue (ParameterValue* value) { connect (value); }

    void connect (ParameterValue* value)
    {
        disconnect();
        // Walk the forwarding chain from the outermost view to the value that
        // stores; every view's modifier takes part, outermost first.
        ParameterValue* current = value;
        while (auto* forwarding = dynamic_cast<AbstractForwardingParameterValue<T>*> (current))
        {
            collectModifier (current);
            current = forwarding->getSource();
        }
        auto* stored = dynamic_cast<StoredParameterValue<T>*> (current);
        if (stored == nullptr || stored->getStorage() == nullptr)
        {
            modifiers.clear();
            modifierHolders.clear();
            return;
        }
        collectModifier (current);
        final = stored;
        finalHolder = current;
        owner = current->getParameter();
        storage = stored->getStorage();
        auto choices = owner->getChoices();
        hasChoices = choices != nullptr && choices->size() > 0;
        hasModifiers = ! modifiers.isEmpty();
    }

    void disconnect()
    {
        storage = nullptr;
        final = nullptr;
        finalHolder = nullptr;
        owner = nullptr;
        modifiers.clear();
        modifierHolders.clear();
        hasChoices = hasModifiers = false;
    }

    bool isConnected() const noexcept { return storage != nullptr; }
    ParameterDef* getParameter() const noexcept { return owner; }

    // Audio thread.
    T get() const noexcept
    {
        T v = ValueStorage<T>::load (*storage);
        if (hasModifiers)
            for (int i = modifiers.size(); --i >= 0;)
            {
                T outer {};
                modifiers.getUnchecked (i)->toOuter (final, v, outer);
                v = outer;
            }
        return v;
    }

    T getRaw() const noexcept { return ValueStorage<T>::load (*storage); }

    // Audio thread. Stores without range check; true if the stored value changed.
    bool set (const T& outerValue) noexcept
    {
        T v = outerValue;
        if (hasModifiers)
            for (auto* m : modifiers)
            {
                T stored {};
                m->toStored (final, v, stored);
                v = stored;
            }
        return setRaw (v);
    }

    bool setRaw (const T& v) noexcept
    {
        const T old = ValueStorage<T>::load (*storage);
        ValueStorage<T>::store (*storage, v);
        if (hasChoices)
            final->updateChoiceIndex();
        return ! (old == v);
    }

    // Audio thread. Stores and, on a real change, notifies the listeners.
    bool setNotifying (const T& outerValue, bool fromAutomation = false)
    {
        const bool changed = set (outerValue);
        if (changed)
            owner->notifyChanged (fromAutomation, false);
        return changed;
    }

private:
    void collectModifier (ParameterValue* value)
    {
        if (auto modifier = value->getModifier(); modifier != nullptr && modifier->appliesTo (value))
        {
            modifiers.add (modifier.get());
            modifierHolders.add (modifier);
        }
    }

    StorageOf<T>* storage = nullptr;
    bool hasChoices = false;
    bool hasModifiers = false;
    StoredParameterValue<T>* final = nullptr;
    ParameterValuePtr finalHolder;
    ParameterDef* owner = nullptr;
    juce::Array<ValueModifier*> modifiers;
    juce::ReferenceCountedArray<ValueModifier> modifierHolders;
};

using FloatShortcutValue = GenericShortcutValue<double>;
using IntShortcutValue = GenericShortcutValue<int>;
using BoolShortcutValue = GenericShortcutValue<bool>;
} // namespace qvrControllableLib
