#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

#include <memory>
#include <optional>

// Reads and writes the render cache's files: one ".rawsample" per rendered
// variant, named after its sample key, holding the forward block and then the
// reverse block. A block is two little-endian int32 (channels, samples) and
// then each channel as one run of float32. The overviews are not stored.
//
// Owned by the pool; called only on the preparation thread, which is the one
// thread that reads, writes and deletes cache files, so no file is deleted
// under a reader. The directory is a copy taken at construction.
//
// The format has no checksum, so the reader checks what it can: both headers
// sane (1 to 64 channels, a positive length, the reverse block the shape of
// the forward one) and the file exactly as long as they say. Anything else is
// a miss and the file is deleted, so a damaged file costs one render, never a
// buffer with an undefined tail.
class RenderCacheFile
{
public:
    static constexpr int maxChannels = 64;

    enum class SaveResult
    {
        notCacheable, // a plain sample: its key has no "-"
        written,
        renewed, // the file was there: only its time is new
        failed   // could not be written; nothing is left behind
    };

    struct Buffers
    {
        std::unique_ptr<juce::AudioSampleBuffer> forward;
        std::unique_ptr<juce::AudioSampleBuffer> reverse;
    };

    explicit RenderCacheFile (const juce::File& cacheDirectory);

    juce::File getCacheFile (const juce::String& key) const;
    const juce::File& getDirectory() const noexcept { return directory; }

    // Creates the directory if needed. An existing file is not rewritten,
    // only renewed, since the same key means the same audio.
    SaveResult save (const juce::String& key, const juce::AudioSampleBuffer& forward,
                     const juce::AudioSampleBuffer& reverse) const;

    // A hit renews the file's time before reading, so that eviction sees it as
    // just used. No file: nothing. A damaged file: nothing, and it is deleted.
    std::optional<Buffers> read (const juce::String& key) const;

private:
    const juce::File directory;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (RenderCacheFile)
};
