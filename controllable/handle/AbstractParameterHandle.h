#pragma once

#include "controllable/handle/ValueWrappers.h"

namespace qvrControllableHandle
{
// Counted access to a parameter of kind T for code that uses it but did not
// define it: its value, minimum, maximum and default as wrappers, its value
// list and its choices. Wrappers are made on each call, so they follow a
// value that was replaced since.
//
// Made and used on the message thread or the owner's thread; the audio
// thread reads through a ParamDefHandle's raw pointer or a shortcut instead.
template <typename T>
class AbstractParameterHandle
{
public:
    AbstractParameterHandle() = default;
    explicit AbstractParameterHandle (const ParameterDefPtr& p) : parameter (p) {}

    ParameterDef* operator->() const noexcept { return parameter.get(); }
    ParameterDef* get() const noexcept { return parameter.get(); }
    const ParameterDefPtr& getParameter() const noexcept { return parameter; }
    bool isBound() const noexcept { return parameter != nullptr; }

    AbstractValueWrapper<T> getValue() const { return wrap (&ParameterDef::getValue, false); }
    AbstractValueWrapper<T> getMinimum() const { return wrap (&ParameterDef::getMinimum, false); }
    AbstractValueWrapper<T> getMaximum() const { return wrap (&ParameterDef::getMaximum, false); }
    // Like the definer's: assigning through it sets the current value too.
    AbstractValueWrapper<T> getDefault() const { return wrap (&ParameterDef::getDefault, true); }

    AbstractListValueWrapper<T> getValueList() const
    {
        return AbstractListValueWrapper<T> (parameter != nullptr ? parameter->getValueList().get() : nullptr);
    }

    AbstractChoicesWrapper<T> getChoices() const
    {
        return AbstractChoicesWrapper<T> (parameter != nullptr ? parameter->getChoices().get() : nullptr);
    }

protected:
    AbstractValueWrapper<T> wrap (ParameterValuePtr (Parameter::*role)(), bool alsoCurrent) const
    {
        if (parameter == nullptr)
            return {};
        return AbstractValueWrapper<T> (((*parameter).*role)().get(), alsoCurrent);
    }

    ParameterDefPtr parameter;
};

using IntParameterHandle = AbstractParameterHandle<int>;
} // namespace qvrControllableHandle
