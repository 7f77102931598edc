#pragma once

#include "controllable/api/ControllableForward.h"

namespace qvrControllableAPI
{
// Called by a value after it has really changed; decides how the change is told.
class ChangeListenerStrategy : public virtual juce::ReferenceCountedObject
{
public:
    virtual void valueChanged() = 0;
};
} // namespace qvrControllableAPI
