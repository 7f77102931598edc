#pragma once

#include <juce_core/juce_core.h>

#include <atomic>

namespace pluginCheck
{
// With JUCE_LOG_ASSERTIONS, the host side's jasserts arrive here (the plug-in's
// own copy of JUCE logs its own straight to stderr). They are counted and
// shown: a host-side assertion usually means the plug-in did something a host
// does not expect. Any thread may log; the count is read at the end.
class AssertionLogger : public juce::Logger
{
public:
    void logMessage (const juce::String& message) override;
    int getNumAssertions() const { return assertions.load(); }

private:
    std::atomic<int> assertions { 0 };
};
} // namespace pluginCheck
