#pragma once

#include "controllable/lib/Controllables.h"

namespace qvrControllableLib
{
// Gives the controllables over which a dispatcher forwards.
class TargetProvider : public virtual juce::ReferenceCountedObject
{
public:
    virtual ControllableArray getTargets() = 0;
};

// Decides which forwarded parameters a merged namespace holds.
class ForwardingStrategy : public virtual juce::ReferenceCountedObject
{
public:
    virtual void forwardParameters (const ControllableArray& targets, ParameterArray& out) = 0;
};

// Merges by forwarded name in the order of first appearance; among equally
// named parameters the forward mode picks the first (2) or last (3) target.
class AbstractForwardingStrategy : public ForwardingStrategy
{
public:
    enum ForwardMode : int
    {
        kForwardToFirst = 2,
        kForwardToLast = 3
    };

    void forwardParameters (const ControllableArray& targets, ParameterArray& out) override;
    virtual int getForwardMode (const juce::String& name) = 0;
    virtual Controllable* selectTarget (const juce::Array<Controllable*>& targets, const juce::String& forwardedName,
                                        const juce::String& localName);
    virtual juce::String getForwardedName (ParameterDef* parameter, Controllable* controllable);
    virtual ParameterDefPtr createMultiTargetParameter (const juce::String& forwardedName,
                                                        const juce::Array<Controllable*>& targets, int count);
    virtual ParameterDefPtr createDelegatingParameter (ParameterDef* parameter, Controllable* controllable);
};

class ForwardToFirstStrategy : public AbstractForwardingStrategy
{
public:
    int getForwardMode (const juce::String&) override { return kForwardToFirst; }
};

// A controllable with parameters of its own, followed by the merged
// parameters of its targets. The merge runs once, on the first call of
// getParameters(), before audio starts.
class DispatchingControllable : public AbstractControllable
{
public:
    DispatchingControllable (ForwardingStrategy* strategy, TargetProvider* provider);

    const ParameterArray& getParameters() override;
    ParameterDefPtr addParameter (ParameterDef* parameter,
                                  ParameterPersistence persistence = ParameterPersistence::saved);
    ParameterDefPtr addParameter (const ParameterDefPtr& p,
                                  ParameterPersistence persistence = ParameterPersistence::saved)
    {
        return addParameter (p.get(), persistence);
    }

protected:
    juce::ReferenceCountedObjectPtr<ForwardingStrategy> strategy;
    // Not counted: the provider is usually the object that owns this one.
    TargetProvider* targetProvider;
    int numDirectParameters = 0;
};
} // namespace qvrControllableLib
