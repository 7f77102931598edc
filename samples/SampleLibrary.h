#pragma once

#include <juce_core/juce_core.h>

#include <memory>

// What the sample jobs need of the library: whether a "tavrine:" URL names an
// entry of a soundbank, and a stream over that entry's bytes. The library
// layer implements it; the pool only holds a pointer, never owns it, and
// works without one (plain file paths only).
//
// Threads: called on the preparation thread while the pool is alive.
class SampleLibrary
{
public:
    static constexpr const char* urlScheme = "tavrine:";

    virtual ~SampleLibrary() = default;

    // Whether the URL names an entry that can be opened now. May open the
    // entry and close it again; reads no audio.
    virtual bool canOpen (const juce::String& url) = 0;
    // A stream over the entry's bytes, or null.
    virtual std::unique_ptr<juce::InputStream> openEntry (const juce::String& url) = 0;

    static bool isLibraryUrl (const juce::String& url) { return url.startsWith (urlScheme); }
};
