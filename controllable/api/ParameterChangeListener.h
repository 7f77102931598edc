#pragma once

#include "controllable/api/ControllableForward.h"

namespace qvrControllableAPI
{
// Told of a change of a parameter: synchronously on the writing thread, or
// asynchronously on the message thread, as registered.
class ParameterChangeListener
{
public:
    virtual ~ParameterChangeListener() = default;
    virtual void parameterChanged (ParameterDef* parameter) = 0;
    // Never called by the framework's own notification path.
    virtual void parameterRenamed (ParameterDef*) {}
};
} // namespace qvrControllableAPI
