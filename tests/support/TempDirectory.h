#pragma once

#include <juce_core/juce_core.h>

namespace tavrine::test
{
// A directory of its own under the system's temp folder, named with a UUID so
// that tests running in parallel processes never share one (a "nonexistent"
// name picked before creation can be picked by two processes at once),
// created at once and deleted with everything in it when the fixture goes.
struct TempDirectory
{
    juce::File root;

    explicit TempDirectory (const juce::String& prefix)
        : root (juce::File::getSpecialLocation (juce::File::tempDirectory)
                    .getChildFile (prefix + "-" + juce::Uuid().toString()))
    {
        root.createDirectory();
    }
    ~TempDirectory() { root.deleteRecursively(); }

    TempDirectory (const TempDirectory&) = delete;
    TempDirectory& operator= (const TempDirectory&) = delete;
};
} // namespace tavrine::test
