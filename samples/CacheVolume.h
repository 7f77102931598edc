#pragma once

#include <juce_core/juce_core.h>

#include <vector>

// What the cache eviction needs of the file system: the files of a directory
// with size and time, the free bytes of its volume, and deletion. An interface
// so that the eviction rules can be checked against a small fake volume; the
// real one is JuceCacheVolume. Called on the housekeeping thread, and on the
// thread that changes the cache directory setting.
class CacheVolume
{
public:
    struct FileInfo
    {
        juce::File file;
        juce::int64 sizeBytes = 0;
        juce::Time modified;
    };

    virtual ~CacheVolume() = default;

    // Files only, no recursion; a directory that does not exist lists empty.
    virtual std::vector<FileInfo> listFiles (const juce::File& directory, const juce::String& wildcard) = 0;
    virtual juce::int64 getFreeBytes (const juce::File& directory) = 0;
    virtual bool deleteFile (const juce::File& file) = 0;
    // Fails, and is meant to, when anything is still in the directory.
    virtual bool deleteEmptyDirectory (const juce::File& directory) = 0;
};
