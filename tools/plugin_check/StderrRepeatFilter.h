#pragma once

#include <juce_core/juce_core.h>

#include <map>
#include <string>
#include <thread>

namespace pluginCheck
{
// Both copies of JUCE (ours and the plug-in's) log each assertion as it fires,
// and a wrapper assertion on the audio path fires every block: thousands of
// identical lines would bury the report. While active, this passes the first
// of each distinct stderr line through and counts the repeats.
//
// Construction redirects stderr into a pipe read by its own thread; finish()
// (or the destructor) restores stderr, joins that thread and prints the
// repeated lines with their counts.
class StderrRepeatFilter
{
public:
    StderrRepeatFilter();
    ~StderrRepeatFilter();

    // Restores stderr and prints the repeated lines with their counts.
    void finish();

private:
    void readUntilClosed (int in);
    void passOn (const std::string& line);

    int realStderr = -1;
    // Touched by the reader only, until finish() has joined it.
    std::map<std::string, int> counts;
    std::thread reader;

    JUCE_DECLARE_NON_COPYABLE (StderrRepeatFilter)
};
} // namespace pluginCheck
