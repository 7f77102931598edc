#include "controllable/lib/ParameterChangeListenerList.h"

#include "controllable/api/Parameter.h"

namespace qvrControllableAPI
{
ParameterChangeMessage::ParameterChangeMessage (ParameterDef* p) : parameter (p) {}
ParameterChangeMessage::~ParameterChangeMessage() = default;
} // namespace qvrControllableAPI

namespace qvrControllableLib
{
void ParameterChangeListenerList::add (ParameterChangeListener* listener)
{
    if (listener == nullptr)
        return;
    const juce::ScopedLock sl (lock);
    listeners.add (listener);
}

void ParameterChangeListenerList::remove (ParameterChangeListener* listener)
{
    const juce::ScopedLock sl (lock);
    listeners.removeFirstMatchingValue (listener);
}

bool ParameterChangeListenerList::isEmpty()
{
    return listeners.isEmpty();
}

int ParameterChangeListenerList::size()
{
    const juce::ScopedLock sl (lock);
    return listeners.size();
}

void ParameterChangeListenerList::callListeners (ParameterDef* parameter)
{
    const ParameterDefPtr keepAlive (parameter);
    juce::ScopedLock sl (lock);
    messagePending = false;

    for (int i = listeners.size(); --i >= 0;)
    {
        if (i >= listeners.size())
        {
            i = listeners.size();
            continue;
        }

        auto* listener = listeners.getUnchecked (i);
        {
            const juce::ScopedUnlock unlock (lock);
            listener->parameterChanged (parameter);
        }
    }
}

void ParameterChangeListenerList::postToListeners (ParameterDef* parameter)
{
    const juce::ScopedLock sl (lock);
    if (messagePending || listeners.isEmpty())
        return;
    messagePending = true;
    postMessage (new ParameterChangeMessage (parameter));
}

void ParameterChangeListenerList::handleMessage (const juce::Message& message)
{
    if (auto* m = dynamic_cast<const ParameterChangeMessage*> (&message))
        callListeners (m->parameter.get());
}
} // namespace qvrControllableLib
