#pragma once

#include "samples/CacheDeletionSink.h"
#include "samples/JuceCacheVolume.h"
#include "samples/PreparedSamplePool.h"
#include "samples/RenderCacheFile.h"
#include "samples/SamplePreparationJob.h"
#include "samples/SamplePreparationThread.h"

#include <memory>

class HousekeepingThread;

// Every PreparedSample alive, listed once under its key so that loops on one
// sample (or one rendered variant) share a buffer; the render cache on disk
// behind it; and the preparation thread that runs every job of the instance.
// The list is weak: a sample lives while somebody holds a reference, and its
// own destructor takes it out.
//
// Threads: getSample, isAvailable, saveSample and saveAllSamples from any
// thread but the audio thread; they take the pool's lock (getSample reads a
// cache file under it, in practice on the preparation thread). A direct save
// belongs to the preparation thread, the one thread that reads, writes and
// deletes cache files; the housekeeping thread's deletions are queued there
// as urgent jobs. applyCacheSettings comes from whichever thread changes a
// cache setting.
//
// Lock order: a caller may hold a source's lock, then queueLock. The pool's
// lock and queueLock are not nested, except that saveAllSamples queues under
// the pool's lock.
class SamplePoolManager : public PreparedSamplePool
{
public:
    enum class SaveMode
    {
        now,     // on the preparation thread: write or renew the file here
        deferred // queue a SaveSampleToCacheJob
    };

    ~SamplePoolManager() override;

    // The listed sample under `key` with a new reference (found set); else
    // the cache file's, read and listed (loadedFromDisk set, its time
    // renewed); else null.
    PreparedSample::Ptr getSample (const juce::String& key, bool& found, bool& loadedFromDisk);
    PreparedSample::Ptr getSample (const juce::String& key);
    // Listed, or (with checkDisk) has a cache file. Reads no audio.
    bool isAvailable (const juce::String& key, bool checkDisk);

    // Deferred: queues a save job. Now (preparation thread): writes the
    // variant's cache file, or renews it; plain samples are never written.
    void saveSample (PreparedSample::Ptr sample, SaveMode mode);
    // Queues a save of every listed sample: the moment rendered work must
    // become durable (state saved, userbank saved).
    void saveAllSamples();

    // The three cache settings, as values. A new directory is adopted at
    // once; the housekeeping thread empties the old one of cache files, and
    // the old directory goes if nothing else stands in it.
    void applyCacheSettings (const juce::File& cacheDirectory, double maxCacheGb, double minAvailableGb);

    juce::File getCacheDirectory() const;
    juce::File getCacheFile (const juce::String& key) const;

    SamplePreparationThread& getPreparationThread() noexcept { return *preparationThread; }
    HousekeepingThread& getHousekeepingThread() noexcept { return *housekeepingThread; }

    int getNumListedSamples() const;

protected:
    // Starts both threads.
    explicit SamplePoolManager (const juce::File& cacheDirectory);

    // Stops both threads (idempotent): the preparation thread's queued jobs
    // are dropped without their callbacks. The most derived class calls this
    // first in its destructor: jobs and samples call into the pool's virtual
    // functions from the preparation thread, which must have ended before the
    // first destructor changes what they resolve to.
    void stopThreads();

    void addPreparedSample (const juce::String& key, PreparedSample* sample) override;
    void removePreparedSample (const juce::String& key, PreparedSample* sample) override;

private:
    // Queues each file that eviction chooses as an urgent removal job.
    class QueuedCacheDeletion final : public CacheDeletionSink
    {
    public:
        explicit QueuedCacheDeletion (SamplePoolManager& owner) : pool (owner) {}
        void deleteCacheFile (const juce::File& file) override;

    private:
        SamplePoolManager& pool;
    };

    mutable juce::CriticalSection lock;
    juce::StringArray keys;
    juce::Array<PreparedSample*> samples; // parallel to keys, not counted
    std::unique_ptr<RenderCacheFile> cacheFile;

    JuceCacheVolume volume;
    QueuedCacheDeletion deletions { *this };

protected:
    // Counted because the thread is also a controllable that the user
    // interface may hold; the pool stops it before letting go.
    SamplePreparationThreadPtr preparationThread;
    std::unique_ptr<HousekeepingThread> housekeepingThread;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (SamplePoolManager)
};
