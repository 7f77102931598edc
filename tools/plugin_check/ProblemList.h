#pragma once

#include "CheckReport.h"

namespace pluginCheck
{
enum class Severity
{
    failure,
    // Shown in full but not counted: for a check whose feature is still being
    // built.
    uncounted
};

// Collects the problems of one check over many items and reports the first
// few, then how many there were.
class ProblemList
{
public:
    static constexpr int kMaxListedProblems = 8;

    void add (const juce::String& problem);
    bool isEmpty() const { return count == 0; }
    void report (CheckReport& report, const juce::String& what, Severity severity = Severity::failure) const;

private:
    int count = 0;
    juce::StringArray listed;
};
} // namespace pluginCheck
