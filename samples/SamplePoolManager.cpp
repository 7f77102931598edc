#include "samples/SamplePoolManager.h"

#include "samples/HousekeepingThread.h"
#include "samples/SampleJobs.h"
#include "samples/SampleKey.h"

SamplePoolManager::SamplePoolManager (const juce::File& cacheDirectory)
    : cacheFile (std::make_unique<RenderCacheFile> (cacheDirectory)),
      preparationThread (new SamplePreparationThread (*this)),
      housekeepingThread (std::make_unique<HousekeepingThread> (cacheDirectory, volume, deletions))
{
    preparationThread->start();
    housekeepingThread->start();
}

SamplePoolManager::~SamplePoolManager()
{
    stopThreads();
    // Samples still held elsewhere would come back to a pool that is gone.
    jassert (getNumListedSamples() == 0);
}

void SamplePoolManager::stopThreads()
{
    // Preparation first: whatever the housekeeping thread queues meanwhile is
    // dropped with the queue when it stops.
    preparationThread->stop();
    housekeepingThread->stopThread (HousekeepingThread::stopTimeoutMs);
    preparationThread->stop();
}

PreparedSample::Ptr SamplePoolManager::getSample (const juce::String& key, bool& found, bool& loadedFromDisk)
{
    found = loadedFromDisk = false;
    const juce::ScopedLock sl (lock);
    for (int i = 0; i < keys.size(); ++i)
    {
        // A listed sample whose count is 0 is dying (its destructor waits for
        // this lock to unlist it) and must not be counted again; a new one of
        // the same key may already stand beside it.
        auto* listed = samples.getUnchecked (i);
        if (keys[i] == key && listed->tryIncReferenceCount())
        {
            found = true;
            PreparedSample::Ptr sample (listed);
            listed->decReferenceCountWithoutDeleting(); // the try above counted it already
            return sample;
        }
    }

    auto buffers = cacheFile->read (key);
    if (! buffers)
        return nullptr;
    loadedFromDisk = true;
    return new PreparedSample (key, std::move (buffers->forward), std::move (buffers->reverse), this);
}

PreparedSample::Ptr SamplePoolManager::getSample (const juce::String& key)
{
    bool found = false, loadedFromDisk = false;
    return getSample (key, found, loadedFromDisk);
}

bool SamplePoolManager::isAvailable (const juce::String& key, bool checkDisk)
{
    const juce::ScopedLock sl (lock);
    for (int i = 0; i < keys.size(); ++i)
        if (keys[i] == key && samples.getUnchecked (i)->getReferenceCount() > 0)
            return true;
    return checkDisk && cacheFile->getCacheFile (key).existsAsFile();
}

void SamplePoolManager::saveSample (PreparedSample::Ptr sample, SaveMode mode)
{
    if (sample == nullptr)
        return;
    if (mode == SaveMode::deferred)
    {
        preparationThread->addJob (new SaveSampleToCacheJob (sample), SamplePreparationThread::Priority::normal);
        return;
    }
    jassert (juce::Thread::getCurrentThread() == nullptr
             || juce::Thread::getCurrentThread() == preparationThread.get()
             || ! preparationThread->isThreadRunning());
    const juce::ScopedLock sl (lock);
    (void) cacheFile->save (sample->getKey(), sample->getForward(), sample->getReverse());
}

void SamplePoolManager::saveAllSamples()
{
    const juce::ScopedLock sl (lock);
    for (auto* sample : samples)
    {
        // A dying sample (count 0) is not counted again: its last holder has
        // let it go, and its release saved it if it was worth saving.
        if (sample->tryIncReferenceCount())
        {
            PreparedSample::Ptr held (sample);
            sample->decReferenceCountWithoutDeleting();
            saveSample (held, SaveMode::deferred);
        }
    }
}

void SamplePoolManager::applyCacheSettings (const juce::File& cacheDirectory, double maxCacheGb,
                                            double minAvailableGb)
{
    juce::File oldDirectory;
    {
        const juce::ScopedLock sl (lock);
        oldDirectory = cacheFile->getDirectory();
        if (oldDirectory != cacheDirectory)
            cacheFile = std::make_unique<RenderCacheFile> (cacheDirectory);
    }
    housekeepingThread->applySettings (cacheDirectory, maxCacheGb, minAvailableGb);
    if (oldDirectory != cacheDirectory && oldDirectory.isDirectory()
        && oldDirectory.getNumberOfChildFiles (juce::File::findFilesAndDirectories, "*") == 0)
        oldDirectory.deleteFile();
}

juce::File SamplePoolManager::getCacheDirectory() const
{
    const juce::ScopedLock sl (lock);
    return cacheFile->getDirectory();
}

juce::File SamplePoolManager::getCacheFile (const juce::String& key) const
{
    const juce::ScopedLock sl (lock);
    return cacheFile->getCacheFile (key);
}

int SamplePoolManager::getNumListedSamples() const
{
    const juce::ScopedLock sl (lock);
    return samples.size();
}

void SamplePoolManager::addPreparedSample (const juce::String& key, PreparedSample* sample)
{
    const juce::ScopedLock sl (lock);
    keys.add (key);
    samples.add (sample);
}

void SamplePoolManager::removePreparedSample (const juce::String&, PreparedSample* sample)
{
    const juce::ScopedLock sl (lock);
    const int index = samples.indexOf (sample);
    jassert (index >= 0);
    if (index >= 0)
    {
        keys.remove (index);
        samples.remove (index);
    }
}

void SamplePoolManager::QueuedCacheDeletion::deleteCacheFile (const juce::File& file)
{
    pool.getPreparationThread().addJob (new RemoveSampleFromDiskCacheJob (file),
                                        SamplePreparationThread::Priority::urgent);
}
