#pragma once

#include "controllable/api/ControllableAPI.h"

namespace qvrControllableToolbox
{
using namespace qvrControllableAPI;

// Whether a write through an automation handle opens and closes its own
// gesture, or belongs to one the component already opened (a slider drag).
enum class GestureFraming
{
    ownGesture,
    insideOpenGesture
};

// What a binding reads and writes: the current value of a parameter, or
// entry `listIndex` of its value list. The entry is looked up at each use, so
// a binding stays on its index when the list is reloaded (setFrom replaces
// the entries).
//
// Writes go the way of a host's write when the parameter has an automation
// handle (the host records them), otherwise through the value's checked
// setters. List entries and string values have no host slot: they are always
// written directly.
//
// Message thread only.
class BoundParameterValue
{
public:
    BoundParameterValue (ParameterDef& parameter, int listIndex);

    ParameterDef& getParameter() const noexcept { return *parameter; }
    int getListIndex() const noexcept { return listIndex; }
    bool isListEntry() const noexcept { return listIndex >= 0; }

    // Null for a list entry that doesn't exist (yet).
    ParameterValuePtr getValue() const;
    // Non-null and non-empty, or null.
    ParameterValueListPtr getChoices() const;
    // The parameter's handle when a write should go through it, else null.
    AutomationHandlePtr getAutomationHandle() const;

    // Each stores what it is given in the parameter's own kind; they return
    // the setter's code, or kOk after a send through the handle.
    ErrorCode writeFloat (double outerValue, GestureFraming framing) const;
    ErrorCode writeBool (bool state, GestureFraming framing) const;
    // Copies `source` (a choice, the default) in: through the handle in the
    // parameter's kind, else with setFrom, which also takes its choice index.
    ErrorCode writeFrom (ParameterValue& source, GestureFraming framing) const;
    // Parses through the parameter's converter before a send; setString otherwise.
    ErrorCode writeText (const juce::String& text, GestureFraming framing) const;

private:
    // The range in outer units; a host slot maps outside it to nonsense.
    double clampToRange (double outerValue) const;
    template <typename Send>
    ErrorCode send (AutomationHandle& handle, GestureFraming framing, Send&& sendOnce) const;

    ParameterDefPtr parameter;
    int listIndex;
};
} // namespace qvrControllableToolbox
