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
};
