#pragma once

#include "controllable/handle/KindTraits.h"

namespace qvrControllableHandle
{
// Something that stands for one value of a parameter.
class ValueWrapper
{
public:
    ValueWrapper() = default;
    ValueWrapper (const ValueWrapper&) = default;
    ValueWrapper& operator= (const ValueWrapper&) = default;
    virtual ~ValueWrapper() = default;

    // Null when the wrapper stands for nothing (a default-constructed one).
    virtual ParameterValuePtr getValue() const = 0;
};

// One value of a parameter in the kind T, so that a definer can write
// `minimum = 0.0`. A wrapper with alsoCurrent set (the default's) copies each
// assignment into the parameter's current value as well: a default is said
// once and the value starts there.
//
// Copies share the wrapped value. Made and assigned on the thread of the
// owner's constructor, or on the message thread.
template <typename T>
class AbstractValueWrapper : public ValueWrapper
{
public:
    AbstractValueWrapper() = default;
    AbstractValueWrapper (ParameterValue* wrapped, bool setsCurrentToo) : value (wrapped), alsoCurrent (setsCurrentToo)
    {
    }

    ParameterValuePtr getValue() const override { return value; }
    bool isAlsoCurrent() const noexcept { return alsoCurrent; }
    bool isNull() const { return value == nullptr || value->isNull(); }

    T get() const { return value != nullptr ? KindTraits<T>::get (*value) : T {}; }
    operator T() const { return get(); }

    // Stores through the value's checked path (range, modifier,
    // notification); returns that path's code.
    ErrorCode set (const T& x)
    {
        if (value == nullptr)
        {
            jassertfalse; // a wrapper that was never given a value
            return kUnsupported;
        }
        const auto result = KindTraits<T>::set (*value, x);
        if (result == kOk && alsoCurrent)
            if (auto current = value->getParameter()->getValue(); current != nullptr && current != value)
                return current->setFrom (value.get());
        return result;
    }

    AbstractValueWrapper& operator= (const T& x)
    {
        set (x);
        return *this;
    }

private:
    ParameterValuePtr value;
    bool alsoCurrent = false;
};

using FloatValueWrapper = AbstractValueWrapper<double>;
using StringValueWrapper = AbstractValueWrapper<juce::String>;
using IntValueWrapper = AbstractValueWrapper<int>;
using BoolValueWrapper = AbstractValueWrapper<bool>;

// A list of values of a parameter in the kind T: the current values of a
// list parameter, or the choices. Entries are read and written in place, so
// a write notifies like any value's.
template <typename T>
class AbstractListValueWrapper
{
public:
    AbstractListValueWrapper() = default;
    explicit AbstractListValueWrapper (ParameterValueList* wrapped) : list (wrapped) {}

    ParameterValueListPtr getList() const { return list; }
    int size() const { return list != nullptr ? list->size() : 0; }

    AbstractListValueWrapper& add (const T& x)
    {
        if (list != nullptr)
            KindTraits<T>::add (*list, x);
        return *this;
    }

    // The entry as T; the zero of the kind past the end.
    T operator[] (int index) const
    {
        auto e = getEntryValue (index);
        return e != nullptr ? KindTraits<T>::get (*e) : T {};
    }

    // The entry as a wrapper that writes in place; an empty wrapper past the end.
    AbstractValueWrapper<T> getEntry (int index) const
    {
        return AbstractValueWrapper<T> (getEntryValue (index).get(), false);
    }

    ErrorCode set (int index, const T& x)
    {
        auto e = getEntryValue (index);
        return e != nullptr ? KindTraits<T>::set (*e, x) : kNotFound;
    }

    ParameterValuePtr getEntryValue (int index) const
    {
        if (list == nullptr || ! juce::isPositiveAndBelow (index, list->size()))
            return nullptr;
        return list->get (index);
    }

protected:
    ParameterValueListPtr list;
};

using FloatListValueWrapper = AbstractListValueWrapper<double>;
using StringListValueWrapper = AbstractListValueWrapper<juce::String>;
using IntListValueWrapper = AbstractListValueWrapper<int>;
using BoolListValueWrapper = AbstractListValueWrapper<bool>;

// The choices of a parameter. Adding a choice recomputes the choice index of
// every current value (role 1 and each entry of role 2), since the value may
// now match it.
template <typename T>
class AbstractChoicesWrapper : public AbstractListValueWrapper<T>
{
public:
    AbstractChoicesWrapper() = default;
    explicit AbstractChoicesWrapper (ParameterValueList* choices) : AbstractListValueWrapper<T> (choices) {}

    AbstractChoicesWrapper& add (const T& x)
    {
        AbstractListValueWrapper<T>::add (x);
        if (auto* parameter = getParameter())
        {
            parameter->getValue()->updateChoiceIndex();
            if (auto values = parameter->getValueList(); values != nullptr)
                for (auto* entry : values->getValues())
                    entry->updateChoiceIndex();
        }
        return *this;
    }

    // -1 when the current value matches no choice.
    int getCurrentChoiceIndex() const
    {
        auto* parameter = getParameter();
        return parameter != nullptr ? parameter->getValue()->getChoiceIndex() : -1;
    }

    // The choice the current value matches, or null.
    ParameterValuePtr getCurrentChoice() const { return this->getEntryValue (getCurrentChoiceIndex()); }

private:
    ParameterDef* getParameter() const { return this->list != nullptr ? this->list->getParameter() : nullptr; }
};

using FloatChoicesWrapper = AbstractChoicesWrapper<double>;
using StringChoicesWrapper = AbstractChoicesWrapper<juce::String>;
using IntChoicesWrapper = AbstractChoicesWrapper<int>;
} // namespace qvrControllableHandle
