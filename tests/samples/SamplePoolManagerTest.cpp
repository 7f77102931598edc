#include <gtest/gtest.h>

#include "tests/samples/SamplePoolTestSupport.h"

#include <cstring>

using namespace tavrine::test;

namespace
{
bool sameBits (const juce::AudioSampleBuffer& a, const juce::AudioSampleBuffer& b)
{
    if (a.getNumChannels() != b.getNumChannels() || a.getNumSamples() != b.getNumSamples())
        return false;
    for (int c = 0; c < a.getNumChannels(); ++c)
        if (std::memcmp (a.getReadPointer (c), b.getReadPointer (c), sizeof (float) * (size_t) a.getNumSamples()) != 0)
            return false;
    return true;
}

// A soundbank stand-in: entries are WAV files under a folder, named by the
// part of the URL after "tavrine:".
struct FolderLibrary : SampleLibrary
{
    explicit FolderLibrary (const juce::File& root) : folder (root) {}

    bool canOpen (const juce::String& url) override { return entryFile (url).existsAsFile(); }
    std::unique_ptr<juce::InputStream> openEntry (const juce::String& url) override
    {
        ++opened;
        auto stream = std::make_unique<juce::FileInputStream> (entryFile (url));
        return stream->openedOk() ? std::move (stream) : nullptr;
    }
    juce::File entryFile (const juce::String& url) const
    {
        return folder.getChildFile (url.fromFirstOccurrenceOf (urlScheme, false, false));
    }

    juce::File folder;
    std::atomic<int> opened { 0 };
};
} // namespace

using SamplePool = PoolFixture;

// The second request finds the first one's sample in memory: the file is gone
// by then, so a second decode would fail and answer with no sample.
TEST_F (SamplePool, TwoRequestsOfOneUrlShareOneSampleWithoutASecondDecode)
{
    ASSERT_TRUE (writeWav (wavFile, 2, 1000));
    RecordingSampleManager manager (cacheDirectory);
    RecordingClient::Ptr first (new RecordingClient()), second (new RecordingClient());

    manager.requestSample (wavFile.getFullPathName(), nullptr, first.get());
    ASSERT_TRUE (first->waitForAnswer());
    const auto firstSample = first->takeSample();
    ASSERT_NE (firstSample, nullptr);
    EXPECT_EQ (first->result, 0);
    EXPECT_EQ (firstSample->getForward().getNumSamples(), 1000);
    EXPECT_FLOAT_EQ (firstSample->getForward().getSample (1, 999), 2.0f * 999.0f / 1000.0f);
    EXPECT_FLOAT_EQ (firstSample->getReverse().getSample (1, 0), 2.0f * 999.0f / 1000.0f);

    ASSERT_TRUE (wavFile.deleteFile());
    manager.requestSample (wavFile.getFullPathName(), nullptr, second.get());
    ASSERT_TRUE (second->waitForAnswer());
    const auto secondSample = second->takeSample();
    EXPECT_EQ (secondSample.get(), firstSample.get());
    EXPECT_EQ (manager.getNumListedSamples(), 1);
}

// A failed load still reaches the client, through the render job, which is
// handed a null sample and an empty URL.
TEST_F (SamplePool, ADeletedFileReachesTheClientThroughTheRenderJobAsNoSample)
{
    RecordingSampleManager manager (cacheDirectory);
    RecordingClient::Ptr client (new RecordingClient());
    FakeRenderJob::Ptr render (new FakeRenderJob (client.get()));

    manager.requestSample (temp.root.getChildFile ("deleted.wav").getFullPathName(), render.get(), client.get());
    ASSERT_TRUE (client->waitForAnswer());
    EXPECT_EQ (render->sourcesSet.load(), 1);
    EXPECT_EQ (render->sourceUrl, juce::String());
    EXPECT_EQ (client->takeSample(), nullptr);
    EXPECT_EQ (client->result, 1);
    EXPECT_EQ (manager.getNumListedSamples(), 0);
}

TEST_F (SamplePool, ALoadedSampleIsHandedToTheRenderJobWithItsUrl)
{
    ASSERT_TRUE (writeWav (wavFile, 1, 500));
    RecordingSampleManager manager (cacheDirectory);
    RecordingClient::Ptr client (new RecordingClient());
    FakeRenderJob::Ptr render (new FakeRenderJob (client.get()));

    manager.requestSample (wavFile.getFullPathName(), render.get(), client.get());
    ASSERT_TRUE (client->waitForAnswer());
    EXPECT_EQ (render->sourceUrl, wavFile.getFullPathName());
    const auto sample = client->takeSample();
    ASSERT_NE (sample, nullptr);
    EXPECT_EQ (sample->getKey(), SampleKey::make (wavFile.getFullPathName(), {}));
    EXPECT_EQ (client->threadName, juce::String (SamplePreparationThread::threadName));
}

struct LoadCase
{
    const char* name;
    int channels;
    int samples;       // -1: no file at all
    const char* scheme; // prefix of the URL
    int expectedResult;
};

class LoadFromFile : public PoolFixture, public ::testing::WithParamInterface<LoadCase>
{
};

// Result codes of the load, and that a failed load lists nothing.
TEST_P (LoadFromFile, GivesItsResultAndListsOnlyWhatItLoaded)
{
    const auto& c = GetParam();
    if (c.samples >= 0)
    {
        ASSERT_TRUE (writeWav (wavFile, c.channels, c.samples));
    }
    RecordingSampleManager manager (cacheDirectory);
    RecordingClient::Ptr client (new RecordingClient());
    SamplePreparationJob::Ptr job (new LoadFromFileJob (juce::String (c.scheme) + wavFile.getFullPathName(), nullptr));
    job->callback = client.get();

    manager.getPreparationThread().addJob (job, SamplePreparationThread::Priority::normal);
    ASSERT_TRUE (client->waitForAnswer());
    EXPECT_EQ (client->result, c.expectedResult);
    const auto sample = client->takeSample();
    EXPECT_EQ (sample != nullptr, c.expectedResult == 0);
    if (sample != nullptr)
    {
        EXPECT_EQ (sample->getForward().getNumChannels(), c.channels);
        EXPECT_EQ (sample->getForward().getNumSamples(), c.samples);
    }
    ASSERT_TRUE (manager.waitUntilIdle());
    job = nullptr;
    EXPECT_EQ (manager.getNumListedSamples(), c.expectedResult == 0 ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P (Results, LoadFromFile,
                          ::testing::Values (LoadCase { "stereo", 2, 64, "", 0 }, LoadCase { "mono", 1, 3, "", 0 },
                                             LoadCase { "noFile", 2, -1, "", 1 },
                                             LoadCase { "libraryUrlWithoutLibrary", 2, 64, "tavrine:", 1 },
                                             LoadCase { "noSamples", 2, 0, "", 3 }),
                          [] (const auto& info) { return std::string (info.param.name); });

// A variant that goes out of use is written by its release; the pool then
// finds it on disk, bit for bit, and renews the file for eviction.
TEST_F (SamplePool, AReleasedVariantIsWrittenAndReadBackBitIdentical)
{
    RecordingSampleManager manager (cacheDirectory);
    const auto key = SampleKey::make ("tavrine:bank/loop.wav", "stretch=2");
    auto sample = makeSample (key, &manager);
    const juce::AudioSampleBuffer forward (sample->getForward()), reverse (sample->getReverse());

    ReleaseSampleJobPtr release (new ReleaseSampleJob());
    ASSERT_TRUE (release->handOver (sample));
    EXPECT_EQ (sample, nullptr);
    manager.getPreparationThread().addJob (release.get(), SamplePreparationThread::Priority::urgent);
    ASSERT_TRUE (manager.waitUntilIdle());

    const auto file = manager.getCacheFile (key);
    ASSERT_TRUE (file.existsAsFile());
    EXPECT_EQ (manager.getNumListedSamples(), 0);
    const auto longAgo = juce::Time::getCurrentTime() - juce::RelativeTime::hours (5);
    ASSERT_TRUE (file.setLastModificationTime (longAgo));

    bool found = true, loadedFromDisk = false;
    const auto back = manager.getSample (key, found, loadedFromDisk);
    ASSERT_NE (back, nullptr);
    EXPECT_FALSE (found);
    EXPECT_TRUE (loadedFromDisk);
    EXPECT_TRUE (sameBits (back->getForward(), forward));
    EXPECT_TRUE (sameBits (back->getReverse(), reverse));
    EXPECT_GT (file.getLastModificationTime(), longAgo + juce::RelativeTime::hours (4));

    // Listed now: the next lookup is a memory hit.
    const auto again = manager.getSample (key, found, loadedFromDisk);
    EXPECT_EQ (again.get(), back.get());
    EXPECT_TRUE (found);
    EXPECT_FALSE (loadedFromDisk);
}

// A sample still used elsewhere is only let go by the release, not written.
TEST_F (SamplePool, AReleasedVariantStillInUseIsNotWritten)
{
    RecordingSampleManager manager (cacheDirectory);
    const auto key = SampleKey::make ("tavrine:bank/loop.wav", "stretch=2");
    auto sample = makeSample (key, &manager);
    const auto otherUser = sample;

    ReleaseSampleJobPtr release (new ReleaseSampleJob());
    ASSERT_TRUE (release->handOver (sample));
    manager.getPreparationThread().addJob (release.get(), SamplePreparationThread::Priority::urgent);
    ASSERT_TRUE (manager.waitUntilIdle());
    EXPECT_FALSE (manager.getCacheFile (key).exists());
    EXPECT_EQ (otherUser->getReferenceCount(), 1);
}

TEST_F (SamplePool, SaveAllSamplesWritesVariantsAndSkipsPlainSamples)
{
    RecordingSampleManager manager (cacheDirectory);
    const auto variantKey = SampleKey::make ("tavrine:bank/a.wav", "pitch=1");
    const auto plainKey = SampleKey::make ("tavrine:bank/a.wav", {});
    const auto variant = makeSample (variantKey, &manager);
    const auto plain = makeSample (plainKey, &manager);

    manager.saveAllSamples();
    ASSERT_TRUE (manager.waitUntilIdle());
    EXPECT_TRUE (manager.getCacheFile (variantKey).existsAsFile());
    EXPECT_FALSE (manager.getCacheFile (plainKey).exists());
    EXPECT_EQ (cacheDirectory.getNumberOfChildFiles (juce::File::findFilesAndDirectories), 1);
}

// With a library, a variant in the cache answers the request without a load
// or a render; a plain file never consults the cache.
TEST_F (SamplePool, TheCacheAnswersOnlyForUrlsTheLibraryCanOpen)
{
    const auto bankFolder = temp.root.getChildFile ("bank");
    ASSERT_TRUE (bankFolder.createDirectory());
    ASSERT_TRUE (writeWav (bankFolder.getChildFile ("loop.wav"), 2, 200));
    FolderLibrary library (temp.root);
    RecordingSampleManager manager (cacheDirectory, &library);
    RecordingClient::Ptr client (new RecordingClient());
    FakeRenderJob::Ptr render (new FakeRenderJob (client.get(), "stretch=2"));

    const juce::String libraryUrl = "tavrine:bank/loop.wav";
    const auto plainFileUrl = bankFolder.getChildFile ("loop.wav").getFullPathName();
    for (const auto& url : { libraryUrl, plainFileUrl })
    {
        auto variant = makeSample (SampleKey::make (url, "stretch=2"), &manager);
        manager.saveSample (variant, SamplePoolManager::SaveMode::deferred);
        ASSERT_TRUE (manager.waitUntilIdle());
    }
    ASSERT_EQ (manager.getNumListedSamples(), 0);

    manager.requestSample (libraryUrl, render.get(), client.get());
    ASSERT_TRUE (client->waitForAnswer());
    EXPECT_EQ (render->sourcesSet.load(), 0);
    EXPECT_EQ (library.opened.load(), 0);
    const auto hit = client->takeSample();
    ASSERT_NE (hit, nullptr);
    EXPECT_EQ (hit->getKey(), SampleKey::make (libraryUrl, "stretch=2"));

    client->done.reset();
    manager.requestSample (plainFileUrl, render.get(), client.get());
    ASSERT_TRUE (client->waitForAnswer());
    EXPECT_EQ (render->sourcesSet.load(), 1);
    const auto loaded = client->takeSample();
    ASSERT_NE (loaded, nullptr);
    EXPECT_EQ (loaded->getKey(), SampleKey::make (plainFileUrl, {}));
}

TEST_F (SamplePool, ALibraryEntryIsDecodedFromTheLibrarysStream)
{
    const auto bankFolder = temp.root.getChildFile ("bank");
    ASSERT_TRUE (bankFolder.createDirectory());
    ASSERT_TRUE (writeWav (bankFolder.getChildFile ("loop.wav"), 2, 200));
    FolderLibrary library (temp.root);
    RecordingSampleManager manager (cacheDirectory, &library);
    RecordingClient::Ptr client (new RecordingClient());

    manager.requestSample ("tavrine:bank/loop.wav", nullptr, client.get());
    ASSERT_TRUE (client->waitForAnswer());
    const auto sample = client->takeSample();
    ASSERT_NE (sample, nullptr);
    EXPECT_EQ (library.opened.load(), 1);
    EXPECT_EQ (sample->getForward().getNumSamples(), 200);
}

// A moved loop's sample, kept by the deallocation guard alone, is the same
// object when asked for within the three seconds.
TEST_F (SamplePool, ASampleMovedWithinThreeSecondsIsTheSameObject)
{
    RecordingSampleManager manager (cacheDirectory);
    const auto key = SampleKey::make ("/loops/moved.wav", {});
    auto sample = makeSample (key, &manager);
    const auto* original = sample.get();
    manager.getPreparationThread().addJob (new PreventSampleDeallocationJob (sample),
                                           SamplePreparationThread::Priority::normal);
    sample = nullptr;

    const auto back = manager.getSample (key);
    EXPECT_EQ (back.get(), original);
    EXPECT_TRUE (manager.getRemovedOnThreads().isEmpty());
}

namespace
{
// A variant saved the deferred way and dropped: its cache file is on disk and
// the pool lists nothing.
void writeToCache (RecordingSampleManager& manager, const juce::String& key)
{
    {
        auto variant = makeSample (key, &manager);
        manager.saveSample (variant, SamplePoolManager::SaveMode::deferred);
        ASSERT_TRUE (manager.waitUntilIdle());
    }
    ASSERT_TRUE (manager.getCacheFile (key).existsAsFile());
}
} // namespace

TEST_F (SamplePool, ANewCacheDirectoryIsAdoptedAndTheEmptiedOldOneDeleted)
{
    RecordingSampleManager manager (cacheDirectory);
    const auto key = SampleKey::make ("tavrine:bank/a.wav", "pitch=1");
    ASSERT_NO_FATAL_FAILURE (writeToCache (manager, key));

    const auto newDirectory = temp.root.getChildFile ("Elsewhere");
    manager.applyCacheSettings (newDirectory, 4.0, 1.0);
    EXPECT_EQ (manager.getCacheDirectory(), newDirectory);
    EXPECT_EQ (manager.getCacheFile (key).getParentDirectory(), newDirectory);
    EXPECT_FALSE (cacheDirectory.exists());
    EXPECT_FALSE (manager.isAvailable (key, true));

    // A directory with something foreign in it stays, with that thing.
    const auto foreign = newDirectory.getChildFile ("notes.txt");
    ASSERT_TRUE (newDirectory.createDirectory());
    ASSERT_TRUE (foreign.replaceWithText ("mine"));
    manager.applyCacheSettings (cacheDirectory, 4.0, 1.0);
    EXPECT_TRUE (foreign.existsAsFile());
    EXPECT_EQ (manager.getCacheDirectory(), cacheDirectory);
}

// Two threads keep finding, dropping and remaking one key, so that a last
// release often meets a lookup of the same sample. A lookup that counts a
// sample whose last release is under way must keep it alive (and the release
// must then not free it); anything else frees a sample that is still held.
TEST_F (SamplePool, ALookupRacingTheLastReleaseNeverGetsAFreedSample)
{
    RecordingSampleManager manager (cacheDirectory);
    const auto key = SampleKey::make ("/loops/contended.wav", {});
    std::atomic<int> made { 0 };
    auto worker = [&] {
        for (int i = 0; i < 3000; ++i)
        {
            auto sample = manager.getSample (key);
            if (sample == nullptr)
            {
                sample = makeSample (key, &manager, 4);
                ++made;
            }
            // Touch what we hold: a freed sample shows here (or to ASan/TSan).
            ASSERT_EQ (sample->getKey(), key);
            ASSERT_EQ (sample->getForward().getNumSamples(), 4);
        }
    };
    std::thread other (worker);
    worker();
    other.join();
    EXPECT_EQ (manager.getNumListedSamples(), 0);
    EXPECT_EQ (manager.getRemovedOnThreads().size(), made.load());
}

// Eviction chooses on the housekeeping thread; the deletion is a job on the
// preparation thread.
TEST_F (SamplePool, EvictionDeletesCacheFilesThroughThePreparationThread)
{
    RecordingSampleManager manager (cacheDirectory);
    const auto key = SampleKey::make ("tavrine:bank/a.wav", "pitch=1");
    ASSERT_NO_FATAL_FAILURE (writeToCache (manager, key));
    manager.applyCacheSettings (cacheDirectory, 0.0, 0.0);
    EXPECT_TRUE (waitUntil ([&] { return ! manager.getCacheFile (key).exists(); }, 4000));
}
