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
    const int index = listeners.indexOf (listener);
    if (index < 0)
        return;
    listeners.remove (index);
    // A walk standing above the removed one now finds its listener one lower.
    for (auto* walk = walks; walk != nullptr; walk = walk->outer)
        if (index < walk->index)
            --walk->index;
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

    Walk walk { listeners.size(), walks };
    walks = &walk;
    while (--walk.index >= 0)
    {
        if (walk.index >= listeners.size())
        {
            walk.index = listeners.size();
            continue;
        }

        auto* listener = listeners.getUnchecked (walk.index);
        {
            const juce::ScopedUnlock unlock (lock);
            listener->parameterChanged (parameter);
        }
    }

    // Walks on other threads may have started after this one: unlink it
    // wherever it stands.
    for (auto** link = &walks; *link != nullptr; link = &(*link)->outer)
    {
        if (*link == &walk)
        {
            *link = walk.outer;
            break;
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
