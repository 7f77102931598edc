#include <gtest/gtest.h>

#include "tests/samples/SamplePoolTestSupport.h"
#include "tests/support/AllocationCounter.h"

using namespace tavrine::test;

namespace
{
constexpr auto normal = SamplePreparationThread::Priority::normal;
constexpr auto urgent = SamplePreparationThread::Priority::urgent;

struct Snapshot
{
    int maximum;
    int value;
    double fraction;
};

Snapshot progressOf (SamplePreparationThread& thread)
{
    return { thread.getProgressMaximum(), thread.getProgressValue(), thread.getProgressFraction() };
}

void expectProgress (SamplePreparationThread& thread, Snapshot expected, const char* when)
{
    const auto actual = progressOf (thread);
    EXPECT_EQ (actual.maximum, expected.maximum) << when;
    EXPECT_EQ (actual.value, expected.value) << when;
    EXPECT_DOUBLE_EQ (actual.fraction, expected.fraction) << when;
}
} // namespace

using PreparationThread = PoolFixture;

// One batch: a job of weight 20 alone gives (20, 0); a second one queued
// behind it raises the maximum; the first done gives half; the queue empty
// gives (1, 0, 0) so the bar disappears; a later batch starts from nothing.
TEST_F (PreparationThread, ProgressFollowsTheBatchAndResetsWhenTheQueueEmpties)
{
    RecordingSampleManager manager (cacheDirectory);
    auto& thread = manager.getPreparationThread();
    // The user interface finds it by name.
    EXPECT_EQ (thread.findParameter ("jobQueueProgress"), thread.jobQueueProgress.getParameter());
    expectProgress (thread, { 1, 0, 0.0 }, "at rest");

    GateJob::Ptr first (new GateJob (20, nullptr, "first", false));
    GateJob::Ptr second (new GateJob (20, nullptr, "second", false));
    thread.addJob (first.get(), normal);
    expectProgress (thread, { 20, 0, 0.0 }, "one job queued");
    ASSERT_TRUE (first->started.wait (5000));
    thread.addJob (second.get(), normal);
    expectProgress (thread, { 40, 0, 0.0 }, "two jobs queued");

    first->gate.signal();
    ASSERT_TRUE (second->started.wait (5000));
    expectProgress (thread, { 40, 20, 0.5 }, "first done");

    second->gate.signal();
    ASSERT_TRUE (manager.waitUntilIdle());
    expectProgress (thread, { 1, 0, 0.0 }, "queue empty");

    GateJob::Ptr third (new GateJob (20, nullptr, "third", false));
    thread.addJob (third.get(), normal);
    expectProgress (thread, { 20, 0, 0.0 }, "next batch");
    third->gate.signal();
    ASSERT_TRUE (manager.waitUntilIdle());
}

TEST_F (PreparationThread, AnUrgentJobAddedWhileOneRunsStartsNext)
{
    RecordingSampleManager manager (cacheDirectory);
    auto& thread = manager.getPreparationThread();
    std::vector<juce::String> log;
    GateJob::Ptr running (new GateJob (20, &log, "running", false));
    thread.addJob (running.get(), normal);
    ASSERT_TRUE (running->started.wait (5000));
    for (const auto* name : { "a", "b" })
        thread.addJob (new GateJob (20, &log, name), normal);
    thread.addJob (new GateJob (20, &log, "urgent"), urgent);

    running->gate.signal();
    ASSERT_TRUE (manager.waitUntilIdle());
    const std::lock_guard<std::mutex> guard (GateJob::logMutex());
    EXPECT_EQ (log, (std::vector<juce::String> { "running", "urgent", "a", "b" }));
}

// The walk passes over a job that is not due; it stays queued meanwhile.
TEST_F (PreparationThread, AJobNotYetDueAtTheHeadDoesNotBlockThoseBehindIt)
{
    RecordingSampleManager manager (cacheDirectory);
    auto& thread = manager.getPreparationThread();
    const auto key = SampleKey::make ("/loops/kept.wav", {});
    auto sample = makeSample (key, &manager);
    SamplePreparationJob::Ptr guard (new PreventSampleDeallocationJob (sample));
    thread.addJob (guard, urgent);
    sample = nullptr;

    GateJob::Ptr behind (new GateJob (20));
    thread.addJob (behind.get(), normal);
    ASSERT_TRUE (waitUntil ([&] { return behind->runs.load() == 1; }, 1500));
    EXPECT_FALSE (guard->finished.load());
    EXPECT_EQ (thread.getNumQueuedJobs(), 1);
    EXPECT_TRUE (manager.isAvailable (key, false));
}

TEST_F (PreparationThread, AJobQueuedTwiceRunsOnce)
{
    RecordingSampleManager manager (cacheDirectory);
    auto& thread = manager.getPreparationThread();
    GateJob::Ptr blocker (new GateJob (20, nullptr, "blocker", false));
    GateJob::Ptr twice (new GateJob (20));
    thread.addJob (blocker.get(), normal);
    thread.addJob (twice.get(), normal);
    thread.addJob (twice.get(), urgent);
    expectProgress (thread, { 40, 0, 0.0 }, "the second add is ignored");
    blocker->gate.signal();
    ASSERT_TRUE (manager.waitUntilIdle());
    EXPECT_EQ (twice->runs.load(), 1);
}

// Work handed to a job while it runs (a release job given a second sample)
// must not be left behind: the job runs once more.
TEST_F (PreparationThread, AJobAddedAgainWhileItRunsRunsOnceMore)
{
    RecordingSampleManager manager (cacheDirectory);
    auto& thread = manager.getPreparationThread();
    GateJob::Ptr job (new GateJob (20, nullptr, "job", false));
    thread.addJob (job.get(), normal);
    ASSERT_TRUE (job->started.wait (5000));
    thread.addJob (job.get(), urgent);
    job->gate.signal();
    ASSERT_TRUE (waitUntil ([&] { return job->runs.load() == 2; }));
    ASSERT_TRUE (manager.waitUntilIdle());
    EXPECT_EQ (job->runs.load(), 2);
}

TEST_F (PreparationThread, StoppingDropsQueuedJobsWithoutTheirCallbacks)
{
    RecordingClient::Ptr client (new RecordingClient());
    {
        RecordingSampleManager manager (cacheDirectory);
        auto& thread = manager.getPreparationThread();
        GateJob::Ptr blocker (new GateJob (20, nullptr, "blocker", false));
        thread.addJob (blocker.get(), normal);
        ASSERT_TRUE (blocker->started.wait (5000));
        SamplePreparationJob::Ptr queued (new GateJob (20));
        queued->callback = client.get();
        thread.addJob (queued, normal);

        const auto start = juce::Time::getMillisecondCounter();
        thread.stop();
        EXPECT_LT (juce::Time::getMillisecondCounter() - start, 2000u);
        EXPECT_FALSE (thread.isThreadRunning());
        EXPECT_EQ (thread.getNumQueuedJobs(), 0);
        EXPECT_EQ (queued->getReferenceCount(), 1);
    }
    EXPECT_EQ (client->calls.load(), 0);
}

// The audio thread's path: hand a sample to the release job and queue it.
// No allocation, whatever the queue holds already.
TEST_F (PreparationThread, HandOverAndAddJobAllocateNothingOnTheCallingThread)
{
    RecordingSampleManager manager (cacheDirectory);
    auto& thread = manager.getPreparationThread();
    GateJob::Ptr blocker (new GateJob (20, nullptr, "blocker", false));
    thread.addJob (blocker.get(), normal);
    for (int i = 0; i < 50; ++i)
        thread.addJob (new GateJob (20), normal);

    ReleaseSampleJobPtr release (new ReleaseSampleJob());
    auto first = makeSample (SampleKey::make ("/a.wav", {}), &manager);
    auto second = makeSample (SampleKey::make ("/b.wav", {}), &manager);
    std::size_t allocations = 99;
    std::thread audio ([&] {
        ScopedAllocationCount count;
        const bool handedFirst = release->handOver (first);
        thread.addJob (release.get(), urgent);
        const bool handedSecond = release->handOver (second);
        thread.addJob (release.get(), urgent);
        allocations = count.count();
        EXPECT_TRUE (handedFirst && handedSecond);
    });
    audio.join();
    EXPECT_EQ (allocations, 0u);
    EXPECT_EQ (first, nullptr);
    EXPECT_EQ (second, nullptr);

    blocker->gate.signal();
    ASSERT_TRUE (manager.waitUntilIdle());
    EXPECT_EQ (manager.getNumListedSamples(), 0);
}

namespace
{
struct ProgressRecorder : qvrControllableAPI::ParameterChangeListener
{
    explicit ProgressRecorder (SamplePreparationThread& preparationThread) : thread (preparationThread) {}
    void parameterChanged (qvrControllableAPI::ParameterDef*) override
    {
        const std::lock_guard<std::mutex> guard (mutex);
        seen.push_back ({ thread.getProgressMaximum(), thread.getProgressValue() });
    }
    std::vector<std::pair<int, int>> take()
    {
        const std::lock_guard<std::mutex> guard (mutex);
        return std::exchange (seen, {});
    }
    SamplePreparationThread& thread;
    std::mutex mutex;
    std::vector<std::pair<int, int>> seen;
};
} // namespace

// Listeners hear of real changes only: a weightless job, or a job queued a
// second time, says nothing; a batch says what moved.
TEST_F (PreparationThread, ProgressIsPublishedOnlyWhenItReallyChanges)
{
    RecordingSampleManager manager (cacheDirectory);
    auto& thread = manager.getPreparationThread();
    ProgressRecorder recorder (thread);
    thread.jobQueueProgress->addChangeListener (&recorder, true);

    GateJob::Ptr invisible (new GateJob (0, nullptr, "invisible", false));
    thread.addJob (invisible.get(), normal);
    thread.addJob (invisible.get(), normal);
    EXPECT_TRUE (recorder.take().empty());
    invisible->gate.signal();
    ASSERT_TRUE (manager.waitUntilIdle());
    EXPECT_TRUE (recorder.take().empty());

    GateJob::Ptr job (new GateJob (20, nullptr, "job", false));
    thread.addJob (job.get(), normal);
    thread.addJob (job.get(), normal);
    const auto afterAdd = recorder.take();
    ASSERT_FALSE (afterAdd.empty());
    EXPECT_EQ (afterAdd.back(), std::make_pair (20, 0));
    EXPECT_LE (afterAdd.size(), 1u);
    job->gate.signal();
    ASSERT_TRUE (manager.waitUntilIdle());
    const auto afterEnd = recorder.take();
    ASSERT_FALSE (afterEnd.empty());
    EXPECT_EQ (afterEnd.back(), std::make_pair (1, 0));
    thread.jobQueueProgress->removeChangeListener (&recorder, true);
}
