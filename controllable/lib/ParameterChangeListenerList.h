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

    // Walks from the last listener to the first. A listener removed during
    // the walk moves every walk that stands above it down by one, so nobody
    // is skipped or called twice; listeners added during the walk are not
    // called in this round.
    void callListeners (ParameterDef* parameter) override;
    // At most one message stands per list.
    void postToListeners (ParameterDef* parameter) override;

    void handleMessage (const juce::Message& message) override;

private:
    // One per callListeners in progress (on any thread, or nested), on its
    // stack: the index of the listener it calls now.
    struct Walk
    {
        int index;
        Walk* outer;
    };

    ParameterDef* owner;
    Walk* walks = nullptr;
    juce::Array<ParameterChangeListener*> listeners;
    juce::CriticalSection lock;
    bool messagePending = false;

    JUCE_DECLARE_NON_COPYABLE (ParameterChangeListenerList)
};
} // namespace qvrControllableLib
