#pragma once

#include "controllable/api/ControllableForward.h"

namespace qvrControllableAPI
{
// Ties a parameter to one slot of the host's parameter list.
class AutomationHandle : public virtual juce::ReferenceCountedObject
{
public:
    virtual void beginGesture() = 0;
    virtual void endGesture() = 0;
    virtual void sendNormalized (float normalized) = 0;
    virtual void sendInt (int value) = 0;
    virtual void sendFloat (double value) = 0;
    virtual void sendValue() = 0;
    virtual void sendDefault() = 0;
    // The host's write; any thread, never takes a lock, never allocates.
    virtual void setNormalized (float normalized) = 0;
    virtual ParameterDef* getParameter() = 0;
    virtual juce::String getName() = 0;
};
} // namespace qvrControllableAPI
