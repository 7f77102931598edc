#pragma once

#include "samples/RenderCacheEviction.h"

#include <atomic>

// When the housekeeping thread runs an eviction pass, counted in its
// one-second wakes: on the first wake, then every 300th, and on the first wake
// after any setting changed (that pass does not move the count). Plain state,
// owned and called by the housekeeping thread alone.
class HousekeepingSchedule
{
public:
    static constexpr int wakesPerPass = 300;

    // Called once per wake; says whether a pass is due.
    bool isPassDue (bool settingsChanged) noexcept
    {
        if (settingsChanged)
            return true;
        return tick++ % wakesPerPass == 0;
    }

private:
    int tick = 0;
};

// The low-priority thread that keeps the render cache within its bounds. It
// sweeps files of the earlier naming once at start, then wakes every second
// and runs an eviction pass when its schedule says so: so the disk is touched
// once in 300 seconds, and about a second after a setting changed.
//
// Owned by the sample pool, which starts it and stops it (waiting up to
// 10 s). applySettings is called on whichever thread changes one of the three
// cache settings; everything else runs on this thread. An interrupted pass is
// simply dropped: what it handed to the sink still happens.
class HousekeepingThread : public juce::Thread
{
public:
    static constexpr int wakeIntervalMs = 1000;
    static constexpr int stopTimeoutMs = 10000;

    HousekeepingThread (const juce::File& cacheDirectory, CacheVolume& volume, CacheDeletionSink& deletions);
    ~HousekeepingThread() override;

    void start();

    // The three cache settings, as values. A new directory empties the old
    // one at once, on the caller's thread; the next pass comes within about
    // a second.
    void applySettings (const juce::File& cacheDirectory, double maxCacheGb, double minAvailableGb);

    void run() override;

    RenderCacheEviction& getEviction() noexcept { return eviction; }

private:
    RenderCacheEviction eviction;
    // A hint read once a second: relaxed order is enough, since the values
    // themselves sit behind the eviction's lock.
    std::atomic<bool> settingsChanged { false };
    HousekeepingSchedule schedule;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (HousekeepingThread)
};
