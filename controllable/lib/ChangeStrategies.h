#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/api/Parameter.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// Base of the strategies: knows its parameter without counting it.
class AbstractChangeListenerStrategy : public ChangeListenerStrategy
{
public:
    explicit AbstractChangeListenerStrategy (ParameterDef* p) : parameter (p) {}

protected:
    ParameterDef* parameter;
};

// The strategy of every new parameter: a real change notifies at once.
class InformOnChangeStrategy : public AbstractChangeListenerStrategy
{
public:
    using AbstractChangeListenerStrategy::AbstractChangeListenerStrategy;
    void valueChanged() override { parameter->notifyChanged (false, false); }
};

// Holds back notifications during a bulk update; when the last reference
// goes it notifies once if anything changed.
class PostponingChangeListenerStrategy : public ChangeListenerStrategy
{
public:
    explicit PostponingChangeListenerStrategy (ParameterDef* p) : parameter (p) {}
    ~PostponingChangeListenerStrategy() override
    {
        if (pending)
            parameter->notifyChanged (false, false);
    }
    void valueChanged() override { pending = true; }
    bool isPending() const noexcept { return pending; }

private:
    ParameterDefPtr parameter;
    bool pending = false;
};

// Scope of a bulk update: every added parameter notifies at most once, after
// all values are in place, in the order of addition, when release() runs.
class PostponedUpdates
{
public:
    PostponedUpdates() = default;
    ~PostponedUpdates() { release(); }

    void add (ParameterDef* parameter);
    void addAll (Controllable* controllable);
    void release();

private:
    juce::ReferenceCountedArray<ParameterDef> parameters;
    juce::ReferenceCountedArray<ChangeListenerStrategy> savedStrategies;

    JUCE_DECLARE_NON_COPYABLE (PostponedUpdates)
};
} // namespace qvrControllableLib
