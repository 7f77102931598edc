#include "samples/RenderCacheEviction.h"

#include <algorithm>

namespace
{
const char* const cacheFileWildcard = "*.rawsample";
constexpr int oldNameLength = 65;
constexpr int oldNameDashIndex = 32;
} // namespace

RenderCacheEviction::RenderCacheEviction (const juce::File& cacheDirectory, CacheVolume& volumeToUse,
                                          CacheDeletionSink& deletions)
    : volume (volumeToUse), sink (deletions), directory (cacheDirectory)
{
}

void RenderCacheEviction::setLimits (double maxCacheGb, double minAvailableGb)
{
    setLimitsInBytes ((juce::int64) (maxCacheGb * (double) bytesPerGb),
                      (juce::int64) (minAvailableGb * (double) bytesPerGb));
}

void RenderCacheEviction::setLimitsInBytes (juce::int64 newMaxCacheBytes, juce::int64 newMinFreeBytes)
{
    const juce::ScopedLock sl (lock);
    maxCacheBytes = newMaxCacheBytes;
    minFreeBytes = newMinFreeBytes;
}

void RenderCacheEviction::setDirectory (const juce::File& newDirectory)
{
    juce::File oldDirectory;
    {
        const juce::ScopedLock sl (lock);
        // juce::File compares with the case rule of the platform's file names.
        if (newDirectory == directory)
            return;
        oldDirectory = directory;
        directory = newDirectory;
    }
    for (const auto& info : volume.listFiles (oldDirectory, cacheFileWildcard))
        volume.deleteFile (info.file);
    volume.deleteEmptyDirectory (oldDirectory);
}

juce::File RenderCacheEviction::getDirectory() const
{
    const juce::ScopedLock sl (lock);
    return directory;
}

RenderCacheEviction::Limits RenderCacheEviction::getLimits() const
{
    const juce::ScopedLock sl (lock);
    return { directory, maxCacheBytes, minFreeBytes };
}

bool RenderCacheEviction::isOldCacheName (const juce::String& fileName)
{
    return fileName.length() == oldNameLength && fileName[oldNameDashIndex] == '-'
           && fileName.containsOnly ("1234567890abcdef-");
}

void RenderCacheEviction::sweepOldNames()
{
    for (const auto& info : volume.listFiles (getDirectory(), "*"))
        if (isOldCacheName (info.file.getFileName()))
            sink.deleteCacheFile (info.file);
}

int RenderCacheEviction::runPass()
{
    const auto limits = getLimits();
    auto files = volume.listFiles (limits.directory, cacheFileWildcard);
    juce::int64 total = 0;
    for (const auto& info : files)
        total += info.sizeBytes;

    std::sort (files.begin(), files.end(),
               [] (const CacheVolume::FileInfo& a, const CacheVolume::FileInfo& b) { return a.modified < b.modified; });

    juce::int64 free = volume.getFreeBytes (limits.directory);
    int chosen = 0;
    for (const auto& info : files)
    {
        if (total <= limits.maxCacheBytes && free >= limits.minFreeBytes)
            break;
        sink.deleteCacheFile (info.file);
        total -= info.sizeBytes;
        free += info.sizeBytes;
        ++chosen;
    }
    // Invariant 2: a pass ends with both bounds met, or with every file chosen.
    jassert ((size_t) chosen == files.size() || (total <= limits.maxCacheBytes && free >= limits.minFreeBytes));
    return chosen;
}
