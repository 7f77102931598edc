#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/lib/ParameterTypeImpl.h"
#include "controllable/lib/ParameterValues.h"

namespace qvrControllableHandle
{
using namespace qvrControllableAPI;

template <typename T>
struct KindTraits;

template <> struct KindTraits<double>
{
    static qvrControllableLib::ParameterTypeImpl& type() { return qvrControllableLib::ParameterTypes::floatType(); }
    static double get (ParameterValue& v) { return v.getFloat(); }
    static ErrorCode set (ParameterValue& v, double x) { return v.setFloat (x); }
    static ParameterValuePtr add (ParameterValueList& l, double x) { return l.addFloat (x); }
};
template <> struct KindTraits<int>
{
    static qvrControllableLib::ParameterTypeImpl& type() { return qvrControllableLib::ParameterTypes::intType(); }
    static int get (ParameterValue& v) { return v.getInt(); }
    static ErrorCode set (ParameterValue& v, int x) { return v.setInt (x); }
    static ParameterValuePtr add (ParameterValueList& l, int x) { return l.addInt (x); }
};
template <> struct KindTraits<bool>
{
    static qvrControllableLib::ParameterTypeImpl& type() { return qvrControllableLib::ParameterTypes::boolType(); }
    static bool get (ParameterValue& v) { return v.getBool(); }
    static ErrorCode set (ParameterValue& v, bool x) { return v.setBool (x); }
    static ParameterValuePtr add (ParameterValueList& l, bool x) { return l.addBool (x); }
};
template <> struct KindTraits<juce::String>
{
    static qvrControllableLib::ParameterTypeImpl& type() { return qvrControllableLib::ParameterTypes::stringType(); }
    static juce::String get (ParameterValue& v) { return v.getString(); }
    static ErrorCode set (ParameterValue& v, const juce::String& x) { return v.setString (x); }
    static ParameterValuePtr add (ParameterValueList& l, const juce::String& x) { return l.addString (x); }
};

// Wraps one value of a parameter so that a definer can write `min = 0.0`.
// The default's wrapper also sets the current value (alsoCurrent), so that a
// default is said once.
template <typename T>
class AbstractValueWrapper
{
public:
    AbstractValueWrapper() = default;
    AbstractValueWrapper (ParameterValue* v, bool setsCurrentToo) : value (v), alsoCurrent (setsCurrentToo) {}

    ParameterValuePtr getValue() const { return value; }
    T get() const { return KindTraits<T>::get (*value); }
    operator T() const { return get(); }

    AbstractValueWrapper& operator= (const T& x)
    {
        KindTraits<T>::set (*value, x);
        if (alsoCurrent)
            KindTraits<T>::set (*value->getParameter()->getValue(), x);
        return *this;
    }

private:
    ParameterValuePtr value;
    bool alsoCurrent = false;
};

// The choices of a parameter.
template <typename T>
class AbstractChoicesWrapper
{
public:
    AbstractChoicesWrapper() = default;
    explicit AbstractChoicesWrapper (ParameterValueList* l) : list (l) {}

    AbstractChoicesWrapper& add (const T& x)
    {
        KindTraits<T>::add (*list, x);
        // The current value may now match a choice.
        list->getParameter()->getValue()->updateChoiceIndex();
        return *this;
    }
    int size() const { return list->size(); }
    int getCurrentChoice() const { return list->getParameter()->getValue()->getChoiceIndex(); }

private:
    ParameterValueListPtr list;
};

// What a class that defines a parameter keeps as a member: the parameter,
// wrappers for default, value, maximum and minimum, the choices, and the raw
// pointer to the current value's stored field (null for list types), which
// the audio thread reads with one load.
template <typename T>
class ParamDefHandle
{
public:
    ParamDefHandle() = default;
    explicit ParamDefHandle (const juce::String& name) : ParamDefHandle (KindTraits<T>::type().createParameter (name)) {}
    explicit ParamDefHandle (const ParameterDefPtr& p) { bind (p); }

    void bind (const ParameterDefPtr& p)
    {
        parameter = p;
        if (parameter == nullptr)
        {
            raw = nullptr;
            return;
        }
        defaultValue = AbstractValueWrapper<T> (parameter->getDefault().get(), true);
        value = AbstractValueWrapper<T> (parameter->getValue().get(), false);
        maximum = AbstractValueWrapper<T> (parameter->getMaximum().get(), false);
        minimum = AbstractValueWrapper<T> (parameter->getMinimum().get(), false);
        choices = AbstractChoicesWrapper<T> (parameter->getChoices().get());
        raw = nullptr;
        if (! parameter->getType()->isList())
            if (auto* stored = dynamic_cast<qvrControllableLib::StoredParameterValue<T>*> (parameter->getValue().get()))
                raw = stored->getStorage();
    }

    ParameterDef* operator->() const noexcept { return parameter.get(); }
    ParameterDef* get() const noexcept { return parameter.get(); }
    const ParameterDefPtr& getParameter() const noexcept { return parameter; }
    bool isBound() const noexcept { return parameter != nullptr; }

    // Audio thread: one load, no modifier.
    T read() const noexcept { return *raw; }
    T* getRaw() const noexcept { return raw; }

    // A checked write through the framework (range, modifier, notification).
    ErrorCode write (const T& x) const { return KindTraits<T>::set (*parameter->getValue(), x); }

    AbstractValueWrapper<T> defaultValue, value, maximum, minimum;
    AbstractChoicesWrapper<T> choices;

private:
    ParameterDefPtr parameter;
    T* raw = nullptr;
};

using FloatParamDefHandle = ParamDefHandle<double>;
using IntParamDefHandle = ParamDefHandle<int>;
using BoolParamDefHandle = ParamDefHandle<bool>;
using StringParamDefHandle = ParamDefHandle<juce::String>;
} // namespace qvrControllableHandle
