#include "samples/SamplePreparationThread.h"

#include "samples/SamplePoolManager.h"

#include <algorithm>

SamplePreparationThread::SamplePreparationThread (SamplePoolManager& owner)
    : juce::Thread (threadName), pool (owner)
{
    jobQueueProgress.minimum = 0;
    jobQueueProgress.maximum = 1;
    jobQueueProgress.defaultValue = 0;
    addParameter (jobQueueProgress.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    queue.reserve (reservedQueueSlots);
}

SamplePreparationThread::~SamplePreparationThread()
{
    stop();
}

void SamplePreparationThread::start()
{
    startThread (juce::Thread::Priority::low);
}

void SamplePreparationThread::stop()
{
    signalThreadShouldExit();
    stopThread (stopTimeoutMs);
    dropQueuedJobs();
}

void SamplePreparationThread::dropQueuedJobs()
{
    // Released outside the lock: a job's destructor may drop the last
    // reference to a sample, which takes the pool's lock.
    std::vector<SamplePreparationJob::Ptr> dropped;
    dropped.reserve (reservedQueueSlots);
    {
        const juce::ScopedLock sl (queueLock);
        dropped.swap (queue);
        batchWeight = pendingWeight = 0;
        runningJob = nullptr;
        runningJobRequeued = false;
    }
    dropped.clear();
    publishProgress();
}

void SamplePreparationThread::run()
{
    while (! threadShouldExit())
    {
        ensureQueueHeadroom();
        if (progressDirty.load (std::memory_order_relaxed))
            publishProgress();

        auto job = getNextJob();
        if (job == nullptr)
        {
            wait (idleSleepMs);
            continue;
        }

        {
            const juce::ScopedLock sl (queueLock);
            runningJob = job.get();
            runningJobRequeued = false;
        }
        job->execute (pool);
        if (job->callback != nullptr)
            job->callback->jobFinished (job->sample, job->result);
        jobFinished (*job);

        // Idle only once this thread has let go of the job too: whatever the
        // job still holds (a sample, a callback's reference) is gone by then.
        job = nullptr;
        const juce::ScopedLock sl (queueLock);
        runningJob = nullptr;
        runningJobRequeued = false;
    }
}

SamplePreparationJob::Ptr SamplePreparationThread::getNextJob()
{
    const juce::ScopedLock sl (queueLock);
    if (queue.empty())
        return nullptr;
    // Due at notBefore itself: the clock counts milliseconds, and with a
    // strict test a job queued in the millisecond of the walk (an urgent one
    // at the front) was passed over once, so that a job behind it ran first.
    const auto now = juce::Time::getCurrentTime();
    for (auto& job : queue)
        if (job->notBefore <= now)
            return job;
    return nullptr;
}

void SamplePreparationThread::addJob (const SamplePreparationJob::Ptr& job, Priority priority)
{
    if (job == nullptr)
        return;
    {
        const juce::ScopedLock sl (queueLock);
        if (isQueuedLocked (job.get()))
        {
            if (job.get() == runningJob)
            {
                runningJobRequeued = true;
                requeuePriority = priority;
            }
            return;
        }
        // Within the reserved storage this neither allocates nor frees.
        if (priority == Priority::urgent)
            queue.insert (queue.begin(), job);
        else
            queue.push_back (job);
        batchWeight += job->getWeight();
        pendingWeight += job->getWeight();
        jassert (checkInvariants());
    }
    publishProgress();
}

void SamplePreparationThread::jobFinished (SamplePreparationJob& job)
{
    // Held until after the lock: if the queue had the last reference, the
    // job's destructor must not run under queueLock.
    SamplePreparationJob::Ptr keepAlive (&job);
    {
        const juce::ScopedLock sl (queueLock);
        const auto found = std::find (queue.begin(), queue.end(), &job);
        if (found != queue.end())
        {
            queue.erase (found);
            pendingWeight -= job.getWeight();
        }
        if (runningJob == &job)
        {
            if (runningJobRequeued)
            {
                runningJobRequeued = false;
                job.finished.store (false);
                if (requeuePriority == Priority::urgent)
                    queue.insert (queue.begin(), keepAlive);
                else
                    queue.push_back (keepAlive);
                batchWeight += job.getWeight();
                pendingWeight += job.getWeight();
            }
        }
        if (queue.empty())
            batchWeight = pendingWeight = 0;
        jassert (checkInvariants());
    }
    publishProgress();
}

bool SamplePreparationThread::isIdle() const
{
    const juce::ScopedLock sl (queueLock);
    return queue.empty() && runningJob == nullptr;
}

int SamplePreparationThread::getNumQueuedJobs() const
{
    const juce::ScopedLock sl (queueLock);
    return (int) queue.size();
}

int SamplePreparationThread::getProgressMaximum() const
{
    return jobQueueProgress.maximum.get();
}

int SamplePreparationThread::getProgressValue() const
{
    return jobQueueProgress.read();
}

SamplePreparationThread::Progress SamplePreparationThread::computeProgressLocked() const noexcept
{
    if (queue.empty())
        return {};
    return { juce::jmax (1, batchWeight), batchWeight - pendingWeight };
}

void SamplePreparationThread::publishProgress()
{
    progressDirty.store (true, std::memory_order_release);
    for (;;)
    {
        const juce::ScopedTryLock tl (publishLock);
        if (! tl.isLocked())
            return; // the publisher in there, or this thread's loop, picks it up
        if (! progressDirty.exchange (false, std::memory_order_acq_rel))
            return;

        Progress progress;
        {
            const juce::ScopedLock sl (queueLock);
            progress = computeProgressLocked();
        }
        progressFraction.store ((double) progress.value / (double) progress.maximum, std::memory_order_relaxed);

        // Each write notifies only on a real change. The order keeps the
        // value within the range at every step.
        auto maximum = jobQueueProgress.maximum;
        if (progress.maximum >= maximum.get())
        {
            maximum = progress.maximum;
            (void) jobQueueProgress.write (progress.value);
        }
        else
        {
            (void) jobQueueProgress.write (progress.value);
            maximum = progress.maximum;
        }
    }
}

void SamplePreparationThread::ensureQueueHeadroom()
{
    // Growing here, between jobs, keeps the audio thread's insertion within
    // storage that is already there.
    const juce::ScopedLock sl (queueLock);
    if (queue.capacity() - queue.size() < (size_t) reservedQueueSlots / 2)
        queue.reserve (queue.size() + (size_t) reservedQueueSlots);
}

bool SamplePreparationThread::checkInvariants() const
{
    int weight = 0;
    for (auto& job : queue)
        weight += job->getWeight();
    if (weight != pendingWeight || batchWeight < pendingWeight)
        return false;
    if (queue.empty() && batchWeight != 0)
        return false;
    return true;
}

bool SamplePreparationThread::isQueuedLocked (const SamplePreparationJob* job) const noexcept
{
    for (auto& queued : queue)
        if (queued.get() == job)
            return true;
    return false;
}
