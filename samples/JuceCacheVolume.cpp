#include "samples/JuceCacheVolume.h"

std::vector<CacheVolume::FileInfo> JuceCacheVolume::listFiles (const juce::File& directory,
                                                               const juce::String& wildcard)
{
    std::vector<FileInfo> files;
    if (! directory.isDirectory())
        return files;
    for (const auto& file : directory.findChildFiles (juce::File::findFiles, false, wildcard))
        files.push_back ({ file, file.getSize(), file.getLastModificationTime() });
    return files;
}

juce::int64 JuceCacheVolume::getFreeBytes (const juce::File& directory)
{
    return directory.getBytesFreeOnVolume();
}

bool JuceCacheVolume::deleteFile (const juce::File& file)
{
    return file.deleteFile();
}

bool JuceCacheVolume::deleteEmptyDirectory (const juce::File& directory)
{
    // juce::File::deleteFile removes a directory only when it is empty.
    return directory.isDirectory() && directory.deleteFile();
}
