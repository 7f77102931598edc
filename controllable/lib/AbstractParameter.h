#pragma once

#include <atomic>

#include "controllable/api/ControllableAPI.h"
#include "controllable/lib/ParameterChangeListenerList.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// Name, texts, listener lists, change strategy and automation handle of a
// parameter; what it holds as values is left to subclasses.
//
// Threads: values may be written from any thread. notifyChanged runs the
// synchronous listeners on the writing thread; asynchronous listeners always
// run on the message thread (directly if the write came from there, else via
// the FIFO of the parameter's type).
class AbstractParameter : public ParameterDef
{
public:
    explicit AbstractParameter (const juce::String& name);
    ~AbstractParameter() override;

    juce::String getName() override { return name; }
    juce::String getDisplayName() override { return displayName; }
    juce::String getDescription() override { return description; }
    bool isTransient() override { return transient; }

    void addChangeListener (ParameterChangeListener* listener, bool synchronous) override;
    void removeChangeListener (ParameterChangeListener* listener, bool synchronous) override;
    void notifyChanged (bool fromAutomation, bool fromFifo) override;
    bool hasChangeListeners() override;
    ChangeListenerStrategyPtr getChangeStrategy() override { return strategy; }
    void setChangeStrategy (ChangeListenerStrategy* newStrategy) override;

    AutomationHandlePtr createAutomationHandle (juce::AudioProcessor* processor, int index,
                                                const juce::String& hostName,
                                                AutomationNormalizer* normalizer) override;
    void removeAutomationHandle() override;
    AutomationHandlePtr getAutomationHandle() override { return automationHandle; }

    ParameterDefPtr createForwardingParameter (const juce::String& newName, ParameterType* type) override;
    ParameterDefPtr cloneParameter (const juce::String& newName) override;

    void setDisplayName (const juce::String& text) override { displayName = text; }
    void setDescription (const juce::String& text) override { description = text; }
    void setTransient (bool shouldBeTransient) override { transient = shouldBeTransient; }

    // Number of parameters alive in the process (diagnostics and leak tests).
    static int getNumLivingParameters() noexcept { return livingParameters.load(); }

protected:
    // For destructors: blanks this parameter's entries in `type`'s change
    // queue, if it may have any. The queue holds plain pointers, so none may
    // outlive the parameter; walking it is skipped when nothing was queued,
    // since a full queue times thousands of dying parameters made teardown
    // take seconds.
    void cancelQueuedChanges (ParameterType* type);

private:
    // An upper bound of this parameter's entries in its type's change queue:
    // raised before an entry is pushed, lowered when one is refused or
    // delivered. Zero means that nothing stands there.
    std::atomic<int> queuedChanges { 0 };

    juce::String name, displayName, description;
    bool transient = false;
    ParameterChangeListenerList asyncListeners { this };
    ParameterChangeListenerList syncListeners { this };
    std::atomic<int> listenerCount { 0 };
    ChangeListenerStrategyPtr strategy;
    AutomationHandlePtr automationHandle;

    static std::atomic<int> livingParameters;

    JUCE_DECLARE_NON_COPYABLE (AbstractParameter)
};
} // namespace qvrControllableLib
