#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/DelegatingParameter.h"
#include "controllable/lib/DispatchingControllable.h"

class TavrineEngine;

// The flat namespace of the whole player:
//   master.<name>   a parameter of the master chain
//   loop<i>.<name>  a parameter of loop i (i from 0)
//   loop<i>.edit    true while loop i is the edited loop; writing true makes it so
//   editLoop.<name> the parameter <name> of the loop that editLoopIndex names
//   anything else   the dispatcher's own: triggerSwitch, editLoopIndex
// The merge runs once, on the first lookup, before audio starts.
class TavrineEngineForwardingStrategy : public qvrControllableLib::AbstractForwardingStrategy
{
public:
    explicit TavrineEngineForwardingStrategy (TavrineEngine& owner) : engine (owner) {}

    void forwardParameters (const qvrControllableAPI::ControllableArray& targets,
                            qvrControllableAPI::ParameterArray& out) override;
    int getForwardMode (const juce::String&) override { return kForwardToFirst; }

    static constexpr const char* kMasterPrefix = "master.";
    static constexpr const char* kLoopPrefix = "loop";
    static constexpr const char* kEditSuffix = "edit";
    static constexpr const char* kEditLoopPrefix = "editLoop.";

private:
    void forwardAll (qvrControllableAPI::Controllable& source, const juce::String& prefix,
                     qvrControllableAPI::ParameterArray& out);

    TavrineEngine& engine;
};

class TavrineEngineDispatcher : public qvrControllableLib::DispatchingControllable,
                                public qvrControllableLib::TargetProvider,
                                private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr const char* kTriggerSwitch = "triggerSwitch";
    static constexpr const char* kEditLoopIndex = "editLoopIndex";

    explicit TavrineEngineDispatcher (TavrineEngine& engine);
    ~TavrineEngineDispatcher() override;

    qvrControllableAPI::ControllableArray getTargets() override;

    // Raises the upper limit of editLoopIndex to the number of loops - 1.
    void loopAdded (int numLoops);
    // Called by the strategy for each loop<i>.edit view it makes.
    void editFlagCreated (qvrControllableAPI::ParameterDef* flag) { editFlags.add (flag); }
    void editLoopParameterCreated (qvrControllableLib::DynamicDelegatingParameter* p) { editLoopParameters.add (p); }

    qvrControllableHandle::BoolParamDefHandle triggerSwitch { kTriggerSwitch };
    qvrControllableHandle::IntParamDefHandle editLoopIndex { kEditLoopIndex };

private:
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    TavrineEngine& engine;
    juce::Array<qvrControllableAPI::ParameterDef*> editFlags;
    juce::Array<qvrControllableLib::DynamicDelegatingParameter*> editLoopParameters;

    JUCE_DECLARE_NON_COPYABLE (TavrineEngineDispatcher)
};
