#include <gtest/gtest.h>

#include "samples/HousekeepingThread.h"
#include "samples/JuceCacheVolume.h"
#include "samples/SampleKey.h"
#include "tests/support/TempDirectory.h"

#include <thread>

// Wake numbers (from 0) at which a pass runs, without any setting change: the
// first, then every 300th.
TEST (HousekeepingSchedule, RunsOnTheFirstWakeThenEveryThreeHundredth)
{
    HousekeepingSchedule schedule;
    std::vector<int> due;
    for (int wake = 0; wake < 901; ++wake)
        if (schedule.isPassDue (false))
            due.push_back (wake);
    EXPECT_EQ (due, (std::vector<int> { 0, 300, 600, 900 }));
}

// A change runs a pass at once and leaves the 300-wake rhythm where it was.
TEST (HousekeepingSchedule, ASettingChangeRunsAPassWithoutMovingTheCount)
{
    HousekeepingSchedule schedule;
    std::vector<int> due;
    for (int wake = 0; wake < 303; ++wake)
        if (schedule.isPassDue (wake == 5 || wake == 6))
            due.push_back (wake);
    EXPECT_EQ (due, (std::vector<int> { 0, 5, 6, 302 }));
}

namespace
{
// A real directory, so that the thread's volume calls need no locking here.
struct ThreadCache : ::testing::Test
{
    tavrine::test::TempDirectory temp { "tavrine-housekeeping-test" };
    juce::File directory = temp.root.getChildFile ("RenderCache");
    JuceCacheVolume volume;
    ImmediateCacheDeletion deletions { volume };

    ThreadCache() { directory.createDirectory(); }

    static bool waitFor (const std::function<bool()>& condition)
    {
        for (int i = 0; i < 300; ++i)
        {
            if (condition())
                return true;
            std::this_thread::sleep_for (std::chrono::milliseconds (10));
        }
        return condition();
    }
};
} // namespace

TEST_F (ThreadCache, SweepsAtStartThenPassesAboutASecondLater)
{
    const auto oldName = directory.getChildFile (SampleKey::make ("a", "b"));
    const auto cacheFile = directory.getChildFile (SampleKey::make ("c", "d") + ".rawsample");
    ASSERT_TRUE (oldName.replaceWithText ("x"));
    ASSERT_TRUE (cacheFile.replaceWithText ("x"));

    HousekeepingThread thread (directory, volume, deletions);
    thread.getEviction().setLimitsInBytes (0, 0);
    thread.start();
    EXPECT_TRUE (waitFor ([&] { return ! oldName.exists(); }));
    EXPECT_TRUE (waitFor ([&] { return ! cacheFile.exists(); }));

    const auto startedStop = juce::Time::getMillisecondCounter();
    thread.stopThread (HousekeepingThread::stopTimeoutMs);
    EXPECT_FALSE (thread.isThreadRunning());
    EXPECT_LT (juce::Time::getMillisecondCounter() - startedStop, 1500u);
}

TEST_F (ThreadCache, ASettingChangeBringsTheNextPassForward)
{
    HousekeepingThread thread (directory, volume, deletions);
    thread.start();
    // Let the first scheduled pass go by with the default bounds.
    std::this_thread::sleep_for (std::chrono::milliseconds (1300));

    const auto cacheFile = directory.getChildFile (SampleKey::make ("c", "d") + ".rawsample");
    ASSERT_TRUE (cacheFile.replaceWithText ("x"));
    // A minimum free far beyond any disk makes every file go.
    thread.applySettings (directory, 4.0, 1.0e9);
    EXPECT_TRUE (waitFor ([&] { return ! cacheFile.exists(); }));
}
