#include <gtest/gtest.h>

#include "samples/JuceCacheVolume.h"
#include "samples/PreparedSample.h"
#include "samples/RenderCacheEviction.h"
#include "samples/RenderCacheFile.h"
#include "samples/SampleKey.h"
#include "tests/support/TempDirectory.h"

#include <map>

namespace
{
const juce::File cacheDir ("/fake/RenderCache");

// A volume in memory: files by path with size and time, and a free figure
// that deletion does not change (the pass must bookkeep, not measure again).
struct FakeVolume : CacheVolume
{
    std::map<juce::String, FileInfo> files;
    juce::int64 freeBytes = 0;
    int freeQueries = 0;

    void add (const juce::String& name, juce::int64 size, int ageSeconds)
    {
        const auto file = cacheDir.getChildFile (name);
        files[file.getFullPathName()] = { file, size,
                                          juce::Time (1700000000000) - juce::RelativeTime::seconds (ageSeconds) };
    }

    std::vector<FileInfo> listFiles (const juce::File& directory, const juce::String& wildcard) override
    {
        std::vector<FileInfo> out;
        for (const auto& [path, info] : files)
            if (info.file.getParentDirectory() == directory
                && info.file.getFileName().matchesWildcard (wildcard, false))
                out.push_back (info);
        return out;
    }
    juce::int64 getFreeBytes (const juce::File&) override
    {
        ++freeQueries;
        return freeBytes;
    }
    bool deleteFile (const juce::File& file) override { return files.erase (file.getFullPathName()) > 0; }
    bool deleteEmptyDirectory (const juce::File&) override { return false; }
};

struct RecordingSink : CacheDeletionSink
{
    juce::StringArray names;
    void deleteCacheFile (const juce::File& file) override { names.add (file.getFileName()); }
};

juce::String cacheName (int n)
{
    return SampleKey::make ("url" + juce::String (n), "sig") + ".rawsample";
}

// Five cache files of 100 bytes, listed out of age order (file n is n*10 s
// old), and an older, larger foreign file.
struct Eviction : ::testing::Test
{
    FakeVolume volume;
    RecordingSink sink;
    RenderCacheEviction eviction { cacheDir, volume, sink };

    void addFiveFiles()
    {
        for (int n : { 3, 1, 5, 2, 4 })
            volume.add (cacheName (n), 100, n * 10);
        // Neither counted nor ever chosen: not a cache file.
        volume.add ("loop.wav", 100000, 1000);
    }
    // The oldest first: 5, 4, 3, ...
    juce::StringArray oldest (int count)
    {
        juce::StringArray names;
        for (int n = 5; n > 5 - count; --n)
            names.add (cacheName (n));
        return names;
    }
};

struct Bounds
{
    const char* name;
    juce::int64 maxCacheBytes;
    juce::int64 freeBytes;
    int expectedDeleted;
};

class EvictionBounds : public Eviction,
                       public ::testing::WithParamInterface<Bounds>
{};

constexpr juce::int64 minFree = 1000;
} // namespace

// Total is 500 bytes, the minimum free 1000.
TEST_P (EvictionBounds, DeletesOldestFirstUntilBothBoundsHold)
{
    addFiveFiles();
    volume.freeBytes = GetParam().freeBytes;
    eviction.setLimitsInBytes (GetParam().maxCacheBytes, minFree);

    EXPECT_EQ (eviction.runPass(), GetParam().expectedDeleted);
    EXPECT_EQ (sink.names.joinIntoString (" "), oldest (GetParam().expectedDeleted).joinIntoString (" "));
    EXPECT_EQ (volume.freeQueries, 1);
}

INSTANTIATE_TEST_SUITE_P (Table, EvictionBounds,
                          ::testing::Values (Bounds { "ExactlyAtBothBounds", 500, minFree, 0 },
                                             Bounds { "OneByteOverSize", 499, minFree, 1 },
                                             Bounds { "OneByteShortOfFree", 500, minFree - 1, 1 },
                                             Bounds { "FreeShortUntilThirdFile", 100000, minFree - 250, 3 },
                                             Bounds { "FreeExactlyReachedAfterTwo", 100000, minFree - 200, 2 },
                                             Bounds { "SizeOverUntilThirdFile", 280, minFree + 5000, 3 },
                                             Bounds { "BothShortTheLargerNeedWins", 400, minFree - 350, 4 },
                                             Bounds { "FilesRunOut", 100000, 0, 5 },
                                             Bounds { "FreeQueryFailedNegative", 100000, -1, 5 }),
                          [] (const auto& info) { return std::string (info.param.name); });

TEST_F (Eviction, EmptyDirectoryDoesNothing)
{
    volume.freeBytes = 0;
    eviction.setLimitsInBytes (0, minFree);
    EXPECT_EQ (eviction.runPass(), 0);
    EXPECT_TRUE (sink.names.isEmpty());
}

// Settings are in GB and may be fractional: truncating the GB first would
// make the half-GB limit zero and delete everything.
TEST_F (Eviction, LimitsInGbAreConvertedAsDoubles)
{
    volume.add (cacheName (1), 400 * 1024 * 1024, 10);
    volume.add (cacheName (2), 200 * 1024 * 1024, 20);
    volume.freeBytes = RenderCacheEviction::bytesPerGb;
    eviction.setLimits (0.5, 0.75);
    EXPECT_EQ (eviction.runPass(), 1);
    EXPECT_EQ (sink.names.joinIntoString (" "), cacheName (2));
}

TEST (RenderCacheEvictionNames, SweepTakesOnlyTheOldExtensionlessNames)
{
    const juce::String old = SampleKey::make ("a", "b");
    ASSERT_EQ (old.length(), 65);
    FakeVolume volume;
    volume.add (old, 10, 1);
    volume.add (old.replaceSection (10, 1, "g"), 10, 1);
    volume.add (old.toUpperCase(), 10, 1);
    volume.add (old.replaceSection (32, 1, "0").replaceSection (31, 1, "-"), 10, 1);
    volume.add (old.substring (0, 64) + "-", 10, 1);
    volume.add (old + ".rawsample", 10, 1);
    volume.add (old.substring (0, 64), 10, 1);
    RecordingSink sink;
    RenderCacheEviction eviction (cacheDir, volume, sink);

    eviction.sweepOldNames();
    juce::StringArray expected (old, old.substring (0, 64) + "-");
    expected.sort (false);
    sink.names.sort (false);
    EXPECT_EQ (sink.names.joinIntoString (" "), expected.joinIntoString (" "));
}

namespace
{
// The same pass on the real file system, with the real reader renewing times.
struct RealCache : ::testing::Test
{
    tavrine::test::TempDirectory temp { "tavrine-eviction-test" };
    juce::File root = temp.root;
    juce::File directory = root.getChildFile ("RenderCache");
    JuceCacheVolume volume;
    ImmediateCacheDeletion deletions { volume };
    RenderCacheEviction eviction { directory, volume, deletions };
    RenderCacheFile cache { directory };

    juce::String save (int n, int ageSeconds)
    {
        const auto key = SampleKey::make ("url" + juce::String (n), "sig");
        juce::AudioSampleBuffer forward (1, 100);
        forward.clear();
        EXPECT_EQ (cache.save (key, forward, forward), RenderCacheFile::SaveResult::written);
        cache.getCacheFile (key).setLastModificationTime (juce::Time::getCurrentTime()
                                                          - juce::RelativeTime::seconds (ageSeconds));
        return key;
    }
};
} // namespace

TEST_F (RealCache, AHitMovesTheOldestFileToTheYoungEnd)
{
    const auto oldestKey = save (1, 300);
    const auto middleKey = save (2, 200);
    const auto youngKey = save (3, 100);
    const auto fileBytes = cache.getCacheFile (oldestKey).getSize();

    ASSERT_TRUE (cache.read (oldestKey).has_value());
    eviction.setLimitsInBytes (2 * fileBytes, 0);
    EXPECT_EQ (eviction.runPass(), 1);

    EXPECT_TRUE (cache.getCacheFile (oldestKey).existsAsFile());
    EXPECT_FALSE (cache.getCacheFile (middleKey).exists());
    EXPECT_TRUE (cache.getCacheFile (youngKey).existsAsFile());
}

// The old directory loses its cache files; it goes too unless something
// foreign stands in it.
TEST_F (RealCache, MovingTheDirectoryEmptiesTheOldOneAndCountsTheNew)
{
    save (1, 10);
    save (2, 10);
    const auto newDirectory = root.getChildFile ("Elsewhere");
    eviction.setDirectory (newDirectory);
    EXPECT_FALSE (directory.exists());

    RenderCacheFile moved (newDirectory);
    juce::AudioSampleBuffer forward (1, 100);
    forward.clear();
    moved.save (SampleKey::make ("x", "y"), forward, forward);
    moved.save (SampleKey::make ("x", "z"), forward, forward);
    eviction.setLimitsInBytes (moved.getCacheFile (SampleKey::make ("x", "y")).getSize(), 0);
    EXPECT_EQ (eviction.runPass(), 1);

    ASSERT_TRUE (newDirectory.getChildFile ("mine.txt").replaceWithText ("keep"));
    eviction.setDirectory (directory);
    EXPECT_EQ (newDirectory.getNumberOfChildFiles (juce::File::findFiles), 1);
    EXPECT_TRUE (newDirectory.getChildFile ("mine.txt").existsAsFile());
}
