#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/api/Parameter.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// An array of parameters with the linear, exact lookup and the dump.
class AbstractControllable : public Controllable
{
public:
    const ParameterArray& getParameters() override { return parameters; }
    ParameterDefPtr findParameter (const juce::String& name) override;
    void dump (std::ostream& out) override;

protected:
    ParameterArray parameters;
};

// Whether a parameter belongs in saved state. A transient one (a computed
// view, a meter, a status, bookkeeping) is left out of saved state and of
// resets: saved state holds only what cannot be derived.
enum class ParameterPersistence
{
    saved,
    transient
};

// The plain usable controllable: owns what it adds.
class BasicControllable : public virtual AbstractControllable
{
public:
    // Sets the transient flag, appends, returns the parameter.
    ParameterDefPtr addParameter (ParameterDef* parameter,
                                  ParameterPersistence persistence = ParameterPersistence::saved);
    ParameterDefPtr addParameter (const ParameterDefPtr& parameter,
                                  ParameterPersistence persistence = ParameterPersistence::saved)
    {
        return addParameter (parameter.get(), persistence);
    }
};

// Lists parameters that belong to somebody else: adding leaves their
// transient flag alone.
class ReferencingControllable : public AbstractControllable
{
public:
    ParameterDefPtr addParameter (ParameterDef* parameter);
};

// Shows the parameters of a target, or its own while it has none.
class ForwardingControllable : public AbstractControllable
{
public:
    explicit ForwardingControllable (Controllable* targetControllable = nullptr) : target (targetControllable) {}
    const ParameterArray& getParameters() override;
    ParameterDefPtr findParameter (const juce::String& name) override;
    void setTarget (Controllable* newTarget) { target = newTarget; }

private:
    ControllablePtr target;
};
} // namespace qvrControllableLib
