#include "engine/TavrineEngineDispatcher.h"

#include "controllable/lib/DelegatingParameter.h"
#include "controllable/lib/ParameterTypeImpl.h"
#include "controllable/lib/ValueHoldingParameter.h"
#include "engine/TavrineEngine.h"

using namespace qvrControllableAPI;

namespace
{
// loop<i>.edit reads as editLoopIndex == i; writing true makes loop i the
// edited loop, writing false is refused (some other loop has to become the
// edited one instead).
class EditLoopFlagProvider : public qvrControllableLib::DynamicValueProvider<bool>
{
public:
    EditLoopFlagProvider (ParameterDef* editLoopIndexParameter, int loopIndex)
        : editLoopIndex (editLoopIndexParameter), index (loopIndex)
    {
    }

    void getValue (ParameterValue*, bool& out) override { out = editLoopIndex->getValue()->getInt() == index; }

    ErrorCode setValue (ParameterValue*, const bool& value) override
    {
        if (! value)
            return kUnsupported;
        return editLoopIndex->getValue()->setInt (index);
    }

private:
    ParameterDef* editLoopIndex;
    int index;
};

// A bool parameter whose value comes from an EditLoopFlagProvider. It is a
// view: transient, and notified whenever editLoopIndex changes.
class EditLoopFlagParameter : public qvrControllableLib::ValueHoldingParameter
{
public:
    EditLoopFlagParameter (const juce::String& parameterName, ParameterDef* editLoopIndex, int loopIndex)
        : ValueHoldingParameter (parameterName, &qvrControllableLib::ParameterTypes::boolType())
    {
        getChoices()->addBool (false);
        getChoices()->addBool (true);
        replaceValue (getValue().get(),
                      new qvrControllableLib::DynamicBoolParameterValue (
                          this, kRoleValue, new EditLoopFlagProvider (editLoopIndex, loopIndex), true));
        setTransient (true);
    }
};

// The controllable of the loop that editLoopIndex names, or null.
class EditedLoopProvider : public qvrControllableLib::DynamicValueProvider<ControllablePtr>
{
public:
    explicit EditedLoopProvider (TavrineEngine& e) : engine (e) {}

    void getValue (ParameterValue*, ControllablePtr& out) override
    {
        auto* loop = engine.getLoop (engine.getDispatcher().editLoopIndex.read());
        out = loop != nullptr ? loop->getControllable() : nullptr;
    }

private:
    TavrineEngine& engine;
};
} // namespace

void TavrineEngineForwardingStrategy::forwardAll (Controllable& source, const juce::String& prefix, ParameterArray& out)
{
    for (auto* parameter : source.getParameters())
        out.add (new qvrControllableLib::DelegatingParameter (prefix + parameter->getName(), parameter));
}

void TavrineEngineForwardingStrategy::forwardParameters (const ControllableArray&, ParameterArray& out)
{
    forwardAll (*engine.getMasterChain().getControllable(), kMasterPrefix, out);

    auto* dispatcher = dynamic_cast<TavrineEngineDispatcher*> (engine.getControllable());

    // editLoop.<name> for every parameter a loop has: all loops publish the
    // same names, so loop 0 gives the list.
    if (auto* firstLoop = engine.getLoop (0); firstLoop != nullptr && dispatcher != nullptr)
        for (auto* parameter : firstLoop->getControllable()->getParameters())
        {
            auto* editLoopParameter = new qvrControllableLib::DynamicDelegatingParameter (
                parameter->getName(), new EditedLoopProvider (engine), kEditLoopPrefix + parameter->getName());
            out.add (editLoopParameter);
            dispatcher->editLoopParameterCreated (editLoopParameter);
        }

    for (int i = 0; i < engine.getNumLoops(); ++i)
    {
        const juce::String prefix = kLoopPrefix + juce::String (i) + ".";
        forwardAll (*engine.getLoop (i)->getControllable(), prefix, out);
        if (dispatcher != nullptr)
        {
            auto* flag = new EditLoopFlagParameter (prefix + kEditSuffix, dispatcher->editLoopIndex.get(), i);
            out.add (flag);
            dispatcher->editFlagCreated (flag);
        }
    }
}

TavrineEngineDispatcher::TavrineEngineDispatcher (TavrineEngine& owner)
    : DispatchingControllable (new TavrineEngineForwardingStrategy (owner), nullptr), engine (owner)
{
    targetProvider = this;

    triggerSwitch.defaultValue = true;
    addParameter (triggerSwitch.getParameter());

    editLoopIndex.defaultValue = 0;
    editLoopIndex.minimum = 0;
    editLoopIndex.maximum = 0;
    addParameter (editLoopIndex.getParameter());

    // The loop<i>.edit views follow editLoopIndex.
    editLoopIndex->addChangeListener (this, false);
}

TavrineEngineDispatcher::~TavrineEngineDispatcher()
{
    editLoopIndex->removeChangeListener (this, false);
}

ControllableArray TavrineEngineDispatcher::getTargets()
{
    ControllableArray targets;
    targets.add (engine.getMasterChain().getControllable());
    for (auto* loop : engine.getLoops())
        targets.add (loop->getControllable());
    return targets;
}

void TavrineEngineDispatcher::loopAdded (int numLoops)
{
    editLoopIndex.maximum = juce::jmax (0, numLoops - 1);
}

void TavrineEngineDispatcher::parameterChanged (ParameterDef*)
{
    // Message thread: editLoop.* now lean on another loop. Resolve them here,
    // so that their listeners are fed by the new loop only, and tell them.
    for (auto* p : editLoopParameters)
    {
        p->getTarget();
        p->notifyChanged (false, false);
    }

    // Message thread: tell every edit flag; only two of them really changed,
    // but a flag has no memory of what it showed.
    for (auto* flag : editFlags)
        flag->notifyChanged (false, false);
}
