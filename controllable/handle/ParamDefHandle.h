#pragma once

#include "controllable/handle/AbstractParameterHandle.h"
#include "controllable/lib/ParameterValues.h"

namespace qvrControllableHandle
{
// What a class that defines a parameter keeps as a member. Besides the read
// access of AbstractParameterHandle it holds, in this order, wrappers for
// the default, the value, the maximum and the minimum, the choices, and the
// raw pointer: the address of the current value's stored field, taken when
// the handle is bound, so that the audio thread reads with one load. The raw
// pointer is null for a list type (its content lives in the value list) and
// for a value without storage of its own.
//
// Made on the thread of the owner's constructor. For numbers and bools read()
// and store() may be called on any thread (relaxed atomic access to the
// stored field); a string handle's read() belongs to the threads that write
// the string, never to the audio thread. Everything else belongs to setup,
// settings and the message thread.
template <typename T>
class ParamDefHandle : public AbstractParameterHandle<T>
{
public:
    ParamDefHandle() = default;

    // Asks the kind's type singleton (or its list type) for a new parameter.
    explicit ParamDefHandle (const juce::String& name, ValueShape shape = ValueShape::single)
        : ParamDefHandle (
            (shape == ValueShape::list ? KindTraits<T>::listType() : KindTraits<T>::type()).createParameter (name))
    {
    }

    explicit ParamDefHandle (const ParameterDefPtr& p) { bind (p); }

    void bind (const ParameterDefPtr& p)
    {
        this->parameter = p;
        raw = nullptr;
        if (p == nullptr)
        {
            defaultValue = value = maximum = minimum = AbstractValueWrapper<T>();
            choices = AbstractChoicesWrapper<T>();
            return;
        }
        defaultValue = AbstractValueWrapper<T> (p->getDefault().get(), true);
        value = AbstractValueWrapper<T> (p->getValue().get(), false);
        maximum = AbstractValueWrapper<T> (p->getMaximum().get(), false);
        minimum = AbstractValueWrapper<T> (p->getMinimum().get(), false);
        choices = AbstractChoicesWrapper<T> (p->getChoices().get());
        if (! p->getType()->isList())
            if (auto* stored = dynamic_cast<qvrControllableLib::StoredParameterValue<T>*> (p->getValue().get()))
                raw = stored->getStorage();
    }

    using Storage = qvrControllableLib::StorageOf<T>;

    // One relaxed load, no modifier. Only for a handle whose raw pointer is
    // set (a bound parameter of a plain type).
    T read() const noexcept { return qvrControllableLib::ValueStorage<T>::load (*raw); }
    // One relaxed store: no range check, no choice index, no notification.
    // For bookkeeping that its readers poll (positions, counters).
    void store (const T& x) const noexcept (qvrControllableLib::ValueStorage<T>::isAtomic)
    {
        qvrControllableLib::ValueStorage<T>::store (*raw, x);
    }
    // The stored field itself, for read-modify-write (fetch_add) on it.
    Storage* getRaw() const noexcept { return raw; }

    // A checked write through the framework (range, modifier, notification).
    ErrorCode write (const T& x) const { return KindTraits<T>::set (*this->parameter->getValue(), x); }

    AbstractValueWrapper<T> defaultValue, value, maximum, minimum;
    AbstractChoicesWrapper<T> choices;

private:
    Storage* raw = nullptr;
};

using FloatParamDefHandle = ParamDefHandle<double>;
using IntParamDefHandle = ParamDefHandle<int>;
using BoolParamDefHandle = ParamDefHandle<bool>;
using StringParamDefHandle = ParamDefHandle<juce::String>;
} // namespace qvrControllableHandle
