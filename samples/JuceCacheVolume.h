#pragma once

#include "samples/CacheVolume.h"

// The cache volume on the real file system, through juce::File. Stateless;
// any thread.
class JuceCacheVolume final : public CacheVolume
{
public:
    std::vector<FileInfo> listFiles (const juce::File& directory, const juce::String& wildcard) override;
    juce::int64 getFreeBytes (const juce::File& directory) override;
    bool deleteFile (const juce::File& file) override;
    bool deleteEmptyDirectory (const juce::File& directory) override;
};
