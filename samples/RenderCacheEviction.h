#pragma once

#include "samples/CacheDeletionSink.h"
#include "samples/CacheVolume.h"

// Keeps the render cache within its two bounds: at most maxCacheBytes of
// ".rawsample" files, and at least minFreeBytes free on their volume. Files
// touched longest ago go first: a read or a repeated save renews a file's
// time, so the order is least recently used.
//
// Owned by the housekeeping thread, which calls sweepOldNames once at its
// start and runPass on its schedule. setLimits and setDirectory come from the
// thread that changes a setting; the directory and limits are guarded by a
// short lock, never held across the volume's calls.
//
// Invariants of a pass:
// 1. total and free are measured once, then bookkept: each chosen file's size
//    is taken from total and added to free, as if it were already deleted,
//    because deletion happens later, on another thread.
// 2. The pass stops as soon as total <= maxCacheBytes and free >= minFreeBytes,
//    or when no file is left; so a cache exactly at its bounds loses nothing.
// 3. Files are chosen oldest first; among equal times the order is unspecified.
class RenderCacheEviction
{
public:
    static constexpr juce::int64 bytesPerGb = 1073741824;
    static constexpr juce::int64 defaultMaxCacheBytes = 4 * bytesPerGb;
    static constexpr juce::int64 defaultMinFreeBytes = bytesPerGb;

    RenderCacheEviction (const juce::File& cacheDirectory, CacheVolume& volume, CacheDeletionSink& deletions);

    // From the settings in GB: computed as doubles and truncated to bytes.
    void setLimits (double maxCacheGb, double minAvailableGb);
    void setLimitsInBytes (juce::int64 maxCacheBytes, juce::int64 minFreeBytes);

    // A new cache directory: the old one's cache files are deleted at once,
    // and the old directory too if nothing else stood in it. Moving the cache
    // empties the old one rather than moving it.
    void setDirectory (const juce::File& newDirectory);
    juce::File getDirectory() const;

    // Deletes files of an earlier naming without extension: exactly 65
    // characters, "-" at index 32, only lower-case hex digits and "-".
    void sweepOldNames();

    // One eviction pass. Returns how many files were handed to the sink.
    int runPass();

    static bool isOldCacheName (const juce::String& fileName);

private:
    struct Limits
    {
        juce::File directory;
        juce::int64 maxCacheBytes;
        juce::int64 minFreeBytes;
    };
    Limits getLimits() const;

    CacheVolume& volume;
    CacheDeletionSink& sink;
    mutable juce::CriticalSection lock;
    juce::File directory;
    juce::int64 maxCacheBytes = defaultMaxCacheBytes;
    juce::int64 minFreeBytes = defaultMinFreeBytes;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (RenderCacheEviction)
};
