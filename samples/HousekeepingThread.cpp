#include "samples/HousekeepingThread.h"

HousekeepingThread::HousekeepingThread (const juce::File& cacheDirectory, CacheVolume& volume,
                                        CacheDeletionSink& deletions)
    : juce::Thread ("HousekeepingThread"), eviction (cacheDirectory, volume, deletions)
{
}

HousekeepingThread::~HousekeepingThread()
{
    stopThread (stopTimeoutMs);
}

void HousekeepingThread::start()
{
    // The lowest priority: eviction is never urgent.
    startThread (juce::Thread::Priority::background);
}

void HousekeepingThread::applySettings (const juce::File& cacheDirectory, double maxCacheGb, double minAvailableGb)
{
    eviction.setLimits (maxCacheGb, minAvailableGb);
    eviction.setDirectory (cacheDirectory);
    settingsChanged.store (true, std::memory_order_relaxed);
}

void HousekeepingThread::run()
{
    eviction.sweepOldNames();
    while (! threadShouldExit())
    {
        wait (wakeIntervalMs);
        if (threadShouldExit())
            break;
        if (! schedule.isPassDue (settingsChanged.exchange (false, std::memory_order_relaxed)))
            continue;
        eviction.runPass();
    }
}
