#include "controllable/lib/AbstractParameter.h"

#include "controllable/api/ParameterType.h"
#include "controllable/api/ParameterValue.h"
#include "controllable/api/ParameterValueList.h"
#include "controllable/lib/BasicAutomationHandle.h"
#include "controllable/lib/ChangeStrategies.h"
#include "controllable/lib/ForwardingParameterValue.h"

namespace qvrControllableLib
{
std::atomic<int> AbstractParameter::livingParameters { 0 };

AbstractParameter::AbstractParameter (const juce::String& parameterName)
    : name (parameterName), strategy (new InformOnChangeStrategy (this))
{
    ++livingParameters;
}

AbstractParameter::~AbstractParameter()
{
    --livingParameters;
}

void AbstractParameter::addChangeListener (ParameterChangeListener* listener, bool synchronous)
{
    (synchronous ? syncListeners : asyncListeners).add (listener);
    ++listenerCount;
}

void AbstractParameter::removeChangeListener (ParameterChangeListener* listener, bool synchronous)
{
    (synchronous ? syncListeners : asyncListeners).remove (listener);
    --listenerCount;
}

bool AbstractParameter::hasChangeListeners()
{
    return ! asyncListeners.isEmpty() || ! syncListeners.isEmpty();
}

void AbstractParameter::notifyChanged (bool /*fromAutomation*/, bool fromFifo)
{
    // Only the drain passes fromFifo: one entry of this parameter is gone.
    if (fromFifo)
        queuedChanges.fetch_sub (1, std::memory_order_relaxed);

    // A stale count can lose one notification or cause one superfluous call;
    // reading it without a lock keeps an unobserved write at one comparison.
    // With no listener at all there is nothing to call on any thread, and a
    // parameter still under construction (reference count 0) must not be
    // handed out as a counted reference.
    if (listenerCount.load (std::memory_order_relaxed) == 0)
        return;

    // existsAndIsCurrentThread never creates a MessageManager and takes no lock.
    const bool onMessageThread = juce::MessageManager::existsAndIsCurrentThread();

    if (! fromFifo)
        syncListeners.callListeners (this);

    if (! onMessageThread)
    {
        queuedChanges.fetch_add (1, std::memory_order_relaxed);
        if (! getType()->enqueueChange (this))
            queuedChanges.fetch_sub (1, std::memory_order_relaxed);
        return;
    }

    asyncListeners.callListeners (this);
}

void AbstractParameter::cancelQueuedChanges (ParameterType* type)
{
    if (type != nullptr && queuedChanges.load (std::memory_order_acquire) > 0)
        type->cancelChanges (this);
}

void AbstractParameter::setChangeStrategy (ChangeListenerStrategy* newStrategy)
{
    jassert (newStrategy != nullptr); // a parameter is never without a strategy
    if (newStrategy != nullptr)
        strategy = newStrategy;
}

AutomationHandlePtr AbstractParameter::createAutomationHandle (juce::AudioProcessor* processor, int index,
                                                               const juce::String& hostName,
                                                               AutomationNormalizer* normalizer)
{
    automationHandle = new BasicAutomationHandle (this, normalizer, processor, index, hostName);
    return automationHandle;
}

void AbstractParameter::removeAutomationHandle()
{
    automationHandle = nullptr;
}

ParameterDefPtr AbstractParameter::createForwardingParameter (const juce::String& newName, ParameterType* type)
{
    ParameterTypePtr viewType (type != nullptr ? type : getType().get());
    auto view = viewType->createParameter (newName);
    // Value first: min, max and default only shape what the value accepts.
    view->replaceValue (view->getValue().get(),
                        createForwardingValue (*viewType, view.get(), kRoleValue, getValue().get()).get());
    view->replaceValue (view->getMinimum().get(),
                        createForwardingValue (*viewType, view.get(), kRoleMinimum, getMinimum().get()).get());
    view->replaceValue (view->getMaximum().get(),
                        createForwardingValue (*viewType, view.get(), kRoleMaximum, getMaximum().get()).get());
    view->replaceValue (view->getDefault().get(),
                        createForwardingValue (*viewType, view.get(), kRoleDefault, getDefault().get()).get());
    return view;
}

ParameterDefPtr AbstractParameter::cloneParameter (const juce::String& newName)
{
    auto clone = getType()->createParameter (newName);
    clone->getChoices()->setFrom (getChoices().get());
    clone->getValueList()->setFrom (getValueList().get());
    clone->getValue()->setFrom (getValue().get());
    clone->getMinimum()->setFrom (getMinimum().get());
    clone->getMaximum()->setFrom (getMaximum().get());
    clone->getDefault()->setFrom (getDefault().get());
    clone->setConverter (getConverter().get());
    clone->setModifier (getModifier().get());
    return clone;
}
} // namespace qvrControllableLib
