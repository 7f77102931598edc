#pragma once

#include <juce_core/juce_core.h>

class PreparedSample;

// The weak list of every PreparedSample alive, by key. A sample enters it in
// its constructor and leaves it in its destructor; the list holds no
// reference. The pool manager implements it and guards it with its own lock:
// both calls may come from any thread that builds or drops a sample.
class PreparedSamplePool
{
public:
    virtual ~PreparedSamplePool() = default;

    virtual void addPreparedSample (const juce::String& key, PreparedSample* sample) = 0;
    virtual void removePreparedSample (const juce::String& key, PreparedSample* sample) = 0;

    // Called when a counted reference to a pooled sample was the last one:
    // deletes it unless another thread has counted it again in the meantime.
    // The default has no list to race with and deletes at once.
    virtual void destroyUnlessRevived (PreparedSample* sample);
};
