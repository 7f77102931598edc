#pragma once

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"
#include "samples/SamplePreparationJob.h"

#include <atomic>
#include <vector>

// The one background thread of an instance that loads, renders, caches and
// releases samples: every SamplePreparationJob runs here, one at a time, so
// all rendering is serial and every cache file is touched on this thread.
//
// Owned by the sample pool, which starts it and stops it. addJob may be called
// from any thread, the audio thread included (a ReleaseSampleJob handed an
// old sample): that path allocates nothing, takes queueLock only for the
// insertion into storage reserved up front, and publishes progress without
// the lock. Everything else runs on this thread.
//
// Design notes. The queue holds each job at most once, in order; urgent jobs
// go to the front. A job is queued, then running (still in the queue, so that
// adding it again is ignored), then done: removed after its callback.
// Invariants, under queueLock:
// 1. pendingWeight is the sum of the weights of the jobs in the queue.
// 2. batchWeight >= pendingWeight; both are 0 when the queue is empty.
// 3. runningJob is the job this thread holds, from getNextJob until it has
//    let go of it (after jobFinished); adding it again meanwhile, while it
//    is still queued, queues it once more after it has finished.
// The published progress: maximum = max (1, batchWeight), value = batchWeight
// - pendingWeight, fraction = value / maximum; (1, 0, 0) while the queue is
// empty, so that the bar disappears and the next batch starts from nothing.
// Each is written only when it really changes. A write may come from the
// audio thread (addJob of a release job), so listeners of "jobQueueProgress"
// register asynchronously; the bar of the user interface polls the fraction.
class SamplePreparationThread : public juce::Thread, public qvrControllableLib::BasicControllable
{
public:
    static constexpr const char* threadName = "TavrineSamplePreparer";
    static constexpr const char* kJobQueueProgress = "jobQueueProgress";
    static constexpr int idleSleepMs = 100;
    static constexpr int stopTimeoutMs = 10000;
    // Room in the queue reserved up front, so that an insertion from the
    // audio thread never grows it; this thread tops it up between jobs.
    static constexpr int reservedQueueSlots = 4096;

    enum class Priority
    {
        normal, // to the back of the queue
        urgent  // to the front; the job still waits for its notBefore
    };

    explicit SamplePreparationThread (SamplePoolManager& pool);
    ~SamplePreparationThread() override;

    // Starts the thread at JUCE's low priority (2 of the old 0..10).
    void start();
    // Signals, waits up to 10 s, and drops the jobs still queued without
    // calling their callbacks.
    void stop();

    void run() override;

    // The first job whose notBefore is not after now, with a new
    // reference; it stays queued. Null if none is due.
    virtual SamplePreparationJob::Ptr getNextJob();
    // Any thread, the audio thread included. A job that is already queued is
    // not queued twice; one that is running at that moment is queued again
    // once it has finished, so that work handed to it meanwhile is not left
    // behind.
    virtual void addJob (const SamplePreparationJob::Ptr& job, Priority priority);
    // Removes a finished job from the queue.
    virtual void jobFinished (SamplePreparationJob& job);

    // No job queued and none running: what the command line waits for.
    bool isIdle() const;
    int getNumQueuedJobs() const;

    // For a progress bar that polls.
    double getProgressFraction() const noexcept { return progressFraction.load (std::memory_order_relaxed); }
    int getProgressMaximum() const;
    int getProgressValue() const;

    qvrControllableHandle::IntParamDefHandle jobQueueProgress { kJobQueueProgress };

private:
    struct Progress
    {
        int maximum = 1;
        int value = 0;
    };
    Progress computeProgressLocked() const noexcept;
    void publishProgress();
    void ensureQueueHeadroom();
    void dropQueuedJobs();
    bool checkInvariants() const;
    bool isQueuedLocked (const SamplePreparationJob* job) const noexcept;

    SamplePoolManager& pool;
    juce::CriticalSection queueLock;
    // A std::vector, not a juce array: it never gives storage back on removal.
    std::vector<SamplePreparationJob::Ptr> queue;
    int batchWeight = 0;
    int pendingWeight = 0;
    SamplePreparationJob* runningJob = nullptr;
    bool runningJobRequeued = false;
    Priority requeuePriority = Priority::normal;

    std::atomic<double> progressFraction { 0.0 };
    // Publication happens outside queueLock; a thread that finds another one
    // publishing leaves the dirty flag for it, and this thread's loop
    // publishes whatever is left over.
    juce::CriticalSection publishLock;
    std::atomic<bool> progressDirty { false };

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (SamplePreparationThread)
};

using SamplePreparationThreadPtr = juce::ReferenceCountedObjectPtr<SamplePreparationThread>;
