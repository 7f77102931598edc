#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/api/ParameterChangeListener.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// One of the two listener lists of a parameter (asynchronous or synchronous).
// The lock guards the array only and is never held during a listener call, so
// a listener may add or remove listeners (itself included) while it is called.
class ParameterChangeListenerList : public ChangeListenerList
{
public:
    explicit ParameterChangeListenerList (ParameterDef* ownerParameter) : owner (ownerParameter) {}

    void add (ParameterChangeListener* listener) override;
    void remove (ParameterChangeListener* listener) override;
    bool isEmpty() override;
    int size();

    // Walks from the last listener to the first; a list that shrank under
    // the walk is continued from its new end, so nobody is skipped. Listeners
    // added during the walk are not called in this round.
    void callListeners (ParameterDef* parameter) override;
    // At most one message stands per list.
    void postToListeners (ParameterDef* parameter) override;

    void handleMessage (const juce::Message& message) override;

private:
    ParameterDef* owner;
    juce::Array<ParameterChangeListener*> listeners;
    juce::CriticalSection lock;
    bool messagePending = false;

    JUCE_DECLARE_NON_COPYABLE (ParameterChangeListenerList)
};
} // namespace qvrControllableLib
