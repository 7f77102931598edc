#include <gtest/gtest.h>

#include "tests/samples/SamplePoolTestSupport.h"

using namespace tavrine::test;

namespace
{
constexpr auto urgent = SamplePreparationThread::Priority::urgent;
}

using ReleaseSample = PoolFixture;

// A sample dropped while it plays: the audio thread hands it over, and the
// last reference, with the buffers, falls on the preparation thread.
TEST_F (ReleaseSample, TheLastReferenceOfAPlayingSampleFallsOnThePreparationThread)
{
    RecordingSampleManager manager (cacheDirectory);
    ReleaseSampleJobPtr release (new ReleaseSampleJob());
    auto playing = makeSample (SampleKey::make ("/loops/a.wav", {}), &manager);

    std::thread audio ([&] {
        ASSERT_TRUE (release->handOver (playing));
        manager.getPreparationThread().addJob (release.get(), urgent);
    });
    audio.join();
    ASSERT_TRUE (waitUntil ([&] { return manager.getRemovedOnThreads().size() == 1; }));
    EXPECT_EQ (manager.getRemovedOnThreads()[0], juce::String ("TavrineSamplePreparer"));
    EXPECT_EQ (release->getNumHeld(), 0);
}

// Two swaps within one sleep of the preparation thread: both samples wait in
// the job, neither is lost or freed early, and a full job refuses the next.
TEST_F (ReleaseSample, HoldsSeveralSamplesAndRefusesWhenFull)
{
    std::vector<PreparedSample::Ptr> samples;
    ReleaseSampleJobPtr release (new ReleaseSampleJob());
    for (int i = 0; i <= ReleaseSampleJob::numSlots; ++i)
        samples.push_back (makeSample ("key" + juce::String (i), nullptr));
    std::vector<PreparedSample*> raw;
    for (auto& s : samples)
        raw.push_back (s.get());

    for (int i = 0; i < ReleaseSampleJob::numSlots; ++i)
    {
        EXPECT_TRUE (release->handOver (samples[(size_t) i]));
        EXPECT_EQ (samples[(size_t) i], nullptr);
        EXPECT_EQ (raw[(size_t) i]->getReferenceCount(), 1);
    }
    auto& last = samples.back();
    EXPECT_FALSE (release->handOver (last));
    EXPECT_EQ (last.get(), raw.back());
    EXPECT_EQ (last->getReferenceCount(), 1);
    EXPECT_EQ (release->getNumHeld(), ReleaseSampleJob::numSlots);

    PreparedSample::Ptr none;
    EXPECT_TRUE (release->handOver (none));
}

// Hand-overs from an "audio" thread race the preparation thread emptying the
// job; every sample must be freed exactly once, on the preparation thread.
TEST_F (ReleaseSample, HandOversRacingTheReleaseFreeEverySampleOnThePreparationThread)
{
    RecordingSampleManager manager (cacheDirectory);
    ReleaseSampleJobPtr release (new ReleaseSampleJob());
    constexpr int swaps = 64;
    std::vector<PreparedSample::Ptr> samples;
    for (int i = 0; i < swaps; ++i)
        samples.push_back (makeSample (SampleKey::make ("/loops/" + juce::String (i) + ".wav", {}), &manager, 16));

    std::thread audio ([&] {
        for (auto& sample : samples)
        {
            while (! release->handOver (sample))
                std::this_thread::yield(); // full: keep it and try at the next block
            manager.getPreparationThread().addJob (release.get(), urgent);
            // Now and then let the thread catch up and fall asleep, so that
            // hand-overs meet an idle, a running and a requeued job; each
            // sleep costs up to one idle wait of the thread.
            if ((&sample - samples.data()) % 16 == 0)
                std::this_thread::sleep_for (std::chrono::microseconds (200));
        }
    });
    audio.join();
    ASSERT_TRUE (waitUntil ([&] { return manager.getRemovedOnThreads().size() == swaps; }));
    const auto threads = manager.getRemovedOnThreads();
    for (const auto& name : threads)
        ASSERT_EQ (name, juce::String ("TavrineSamplePreparer"));
    EXPECT_EQ (manager.getNumListedSamples(), 0);
}

// Requests from several threads while the thread runs: every client is
// answered, and clients of one URL share one sample.
TEST_F (ReleaseSample, RequestsFromSeveralThreadsAreAllAnsweredAndShared)
{
    constexpr int numFiles = 3;
    constexpr int threadsCount = 4;
    std::vector<juce::String> urls;
    for (int f = 0; f < numFiles; ++f)
    {
        const auto file = temp.root.getChildFile ("file" + juce::String (f) + ".wav");
        ASSERT_TRUE (writeWav (file, 2, 100 + f));
        urls.push_back (file.getFullPathName());
    }
    RecordingSampleManager manager (cacheDirectory);
    std::vector<RecordingClient::Ptr> clients;
    for (int i = 0; i < threadsCount * numFiles; ++i)
        clients.push_back (new RecordingClient());

    std::vector<std::thread> requesters;
    for (int t = 0; t < threadsCount; ++t)
        requesters.emplace_back ([&, t] {
            for (int f = 0; f < numFiles; ++f)
                manager.requestSample (urls[(size_t) f], nullptr, clients[(size_t) (t * numFiles + f)].get());
        });
    for (auto& r : requesters)
        r.join();

    std::vector<PreparedSample::Ptr> answers;
    for (auto& client : clients)
    {
        ASSERT_TRUE (client->waitForAnswer());
        answers.push_back (client->takeSample());
    }
    for (int t = 0; t < threadsCount; ++t)
        for (int f = 0; f < numFiles; ++f)
        {
            const auto& answer = answers[(size_t) (t * numFiles + f)];
            ASSERT_NE (answer, nullptr);
            EXPECT_EQ (answer->getForward().getNumSamples(), 100 + f);
            EXPECT_EQ (answer.get(), answers[(size_t) f].get());
        }
    ASSERT_TRUE (manager.waitUntilIdle());
    EXPECT_EQ (manager.getNumListedSamples(), numFiles);
    answers.clear();
}
