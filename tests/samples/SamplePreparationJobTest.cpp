#include <gtest/gtest.h>

#include "samples/SamplePreparationJob.h"

namespace
{
struct NoJob : SamplePreparationJob
{
    int run (SamplePoolManager&) override { return 0; }
    int getWeight() const override { return 0; }
};

// Its own answer, as the lookup job is.
struct SelfAnsweringJob : NoJob, SamplePreparationCallback
{
    SelfAnsweringJob() { callback = this; }
    void jobFinished (PreparedSample::Ptr, int) override {}
};

struct CountedClient : juce::ReferenceCountedObject, SamplePreparationCallback
{
    void jobFinished (PreparedSample::Ptr, int) override {}
};

struct PlainCallback : SamplePreparationCallback
{
    explicit PlainCallback (int& deletionCount) : deletions (deletionCount) {}
    ~PlainCallback() override { ++deletions; }
    void jobFinished (PreparedSample::Ptr, int) override {}
    int& deletions;
};
} // namespace

// Ownership is fixed when the callback is given: a job must never ask a
// counted callback what it is at destruction, when it may be gone already or
// be the job itself, half destroyed.
TEST (SamplePreparationJobCallback, AJobThatIsItsOwnCallbackIsDestroyedCleanly)
{
    SamplePreparationJob::Ptr job (new SelfAnsweringJob());
    job = nullptr;
    SUCCEED();
}

TEST (SamplePreparationJobCallback, ACountedCallbackMayGoBeforeTheJob)
{
    SamplePreparationJob::Ptr job (new NoJob());
    {
        juce::ReferenceCountedObjectPtr<CountedClient> client (new CountedClient());
        job->callback = client.get();
    }
    job = nullptr; // must not touch the freed client (ASan/TSan see it)
    SUCCEED();
}

TEST (SamplePreparationJobCallback, AnOwnedCallbackGoesWithTheJob)
{
    int deletions = 0;
    SamplePreparationJob::Ptr job (new NoJob());
    job->setOwnedCallback (std::make_unique<PlainCallback> (deletions));
    EXPECT_NE (job->callback, nullptr);
    job = nullptr;
    EXPECT_EQ (deletions, 1);
}
