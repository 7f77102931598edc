#pragma once

#include <juce_events/juce_events.h>

#include "controllable/api/ControllableForward.h"

namespace qvrControllableAPI
{
// A list of change listeners that can be called directly or through a posted
// message on the message thread.
class ChangeListenerList : public juce::MessageListener
{
public:
    virtual void add (ParameterChangeListener* listener) = 0;
    virtual void remove (ParameterChangeListener* listener) = 0;
    virtual bool isEmpty() = 0;
    virtual void callListeners (ParameterDef* parameter) = 0;
    virtual void postToListeners (ParameterDef* parameter) = 0;
};

// Carries one counted parameter to a ChangeListenerList on the message thread.
class ParameterChangeMessage : public juce::Message
{
public:
    explicit ParameterChangeMessage (ParameterDef* p);
    ~ParameterChangeMessage() override;
    ParameterDefPtr parameter;
};
} // namespace qvrControllableAPI
