#pragma once

#include "samples/CacheVolume.h"

// Takes the cache files that eviction has chosen. The preparation thread's
// queue will take them as urgent removal jobs, so that every read, write and
// delete of a cache file happens on that one thread; the eviction pass itself
// only chooses, in the order given (oldest first). Called on the housekeeping
// thread.
class CacheDeletionSink
{
public:
    virtual ~CacheDeletionSink() = default;

    virtual void deleteCacheFile (const juce::File& file) = 0;
};

// Deletes at once, on the caller's thread: for use where no preparation
// thread runs.
class ImmediateCacheDeletion final : public CacheDeletionSink
{
public:
    explicit ImmediateCacheDeletion (CacheVolume& volumeToUse) : volume (volumeToUse) {}

    void deleteCacheFile (const juce::File& file) override { volume.deleteFile (file); }

private:
    CacheVolume& volume;
};
