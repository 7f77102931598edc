#include "engine/TavrineEngineDispatcher.h"

#include "controllable/lib/DelegatingParameter.h"
#include "controllable/lib/ParameterTypeImpl.h"
#include "controllable/lib/ValueHoldingParameter.h"
#include "engine/TavrineEngine.h"

using namespace qvrControllableAPI;

namespace
{
// The value of loop<i>.edit: reads as editLoopIndex == i; writing true makes
// loop i the edited loop, writing false is refused (some other loop has to
// become the edited one instead).
class EditLoopFlagValue : public qvrControllableLib::BoolParameterValue
{
public:
    EditLoopFlagValue (ParameterDef* owner, ParameterDef* editLoopIndexParameter, int loopIndex)
        : BoolParameterValue (owner, kRoleValue), editLoopIndex (editLoopIndexParameter), index (loopIndex)
    {
        null = false;
    }

    bool getRaw() override { return editLoopIndex->getValue()->getInt() == index; }

    ErrorCode store (const bool& value) override
    {
        if (! value)
            return kUnsupported;
        return editLoopIndex->getValue()->setInt (index);
    }

    void setRaw (const bool& value) override { store (value); }

private:
    ParameterDef* editLoopIndex;
    int index;
};

// A bool parameter whose value is an EditLoopFlagValue. It is a view:
// transient, and notified whenever editLoopIndex changes.
class EditLoopFlagParameter : public qvrControllableLib::ValueHoldingParameter
{
public:
    EditLoopFlagParameter (const juce::String& name, ParameterDef* editLoopIndex, int loopIndex)
        : ValueHoldingParameter (name, &qvrControllableLib::ParameterTypes::boolType())
    {
        getChoices()->addBool (false);
        getChoices()->addBool (true);
        replaceValue (getValue().get(), new EditLoopFlagValue (this, editLoopIndex, loopIndex));
        setTransient (true);
    }
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
    // Message thread: tell every edit flag; only two of them really changed,
    // but a flag has no memory of what it showed.
    for (auto* flag : editFlags)
        flag->notifyChanged (false, false);
}
