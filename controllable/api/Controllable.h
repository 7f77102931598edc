#pragma once

#include <iosfwd>

#include "controllable/api/ControllableForward.h"

namespace qvrControllableAPI
{
// A named collection of parameters. Its structure does not change once it is
// shared (dispatching controllables merge once, lazily, before audio starts).
class Controllable : public virtual juce::ReferenceCountedObject
{
public:
    // The parameters in the order in which they were added; may be computed
    // on first demand.
    virtual const ParameterArray& getParameters() = 0;
    // Linear, exact and case-sensitive search; the first match wins.
    virtual ParameterDefPtr findParameter (const juce::String& name) = 0;
    // Diagnostic listing: "controllable defines N parameters:" and name=value lines.
    virtual void dump (std::ostream& out) = 0;
};
} // namespace qvrControllableAPI
