#pragma once

#include <atomic>
#include <vector>

#include "controllable/api/ControllableAPI.h"

namespace tavrine::test
{
// Counts the calls it gets and remembers the parameters, in order.
class RecordingListener : public qvrControllableAPI::ParameterChangeListener
{
public:
    void parameterChanged (qvrControllableAPI::ParameterDef* p) override
    {
        ++calls;
        seen.push_back (p);
        if (onChange)
            onChange (p);
    }

    std::atomic<int> calls { 0 };
    std::vector<qvrControllableAPI::ParameterDef*> seen;
    std::function<void (qvrControllableAPI::ParameterDef*)> onChange;
};
} // namespace tavrine::test
