#include <gtest/gtest.h>
#include <thread>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/ParameterTypeImpl.h"
#include "shell/TavrinePluginProcessor.h"
#include "tests/support/RecordingListener.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using namespace qvrControllableLib;

TEST (ParameterFifo, SeveralWritersEachKeepTheirOrderAndNoneIsLost)
{
    // Each writer pushes its own running counter; the drain must see every
    // entry of every writer, its values never going back.
    constexpr int kWriters = 4;
    constexpr int kWrites = 3000;
    std::vector<std::unique_ptr<IntParamDefHandle>> counters;
    std::vector<int> seen (kWriters, 0);
    std::vector<int> lastValue (kWriters, 0);
    bool inOrder = true;

    tavrine::test::RecordingListener listener;
    for (int w = 0; w < kWriters; ++w)
    {
        counters.push_back (std::make_unique<IntParamDefHandle> ("writer" + juce::String (w)));
        (*counters.back())->addChangeListener (&listener, false);
    }
    listener.onChange = [&] (ParameterDef* p) {
        for (int w = 0; w < kWriters; ++w)
            if (counters[(size_t) w]->get() == p)
            {
                const int value = p->getValue()->getInt();
                inOrder = inOrder && value >= lastValue[(size_t) w];
                lastValue[(size_t) w] = value;
                ++seen[(size_t) w];
            }
    };

    std::vector<std::thread> writers;
    for (int w = 0; w < kWriters; ++w)
        writers.emplace_back ([&, w] {
            for (int i = 1; i <= kWrites; ++i)
                (*counters[(size_t) w])->getValue()->setInt (i);
        });
    for (auto& t : writers)
        t.join();

    ParameterTypes::intType().drainChanges();
    EXPECT_TRUE (inOrder);
    for (int w = 0; w < kWriters; ++w)
    {
        EXPECT_EQ (seen[(size_t) w], kWrites) << "writer " << w;
        EXPECT_EQ (lastValue[(size_t) w], kWrites);
    }
    for (auto& c : counters)
        (*c)->removeChangeListener (&listener, false);
}

TEST (ParameterFifo, TheEntryPastCapacityIsRefusedWithTheOverrunLine)
{
    LockFreeParameterFifo fifo;
    IntParamDefHandle p ("p");
    for (int i = 0; i < LockFreeParameterFifo::kSize - 1; ++i)
        ASSERT_TRUE (fifo.push (p.get()));

    testing::internal::CaptureStdout();
    EXPECT_FALSE (fifo.push (p.get()));
    EXPECT_EQ (testing::internal::GetCapturedStdout(), "overrun in LockFreeParameterFifo, freespace is 0/65536\n");

    int delivered = 0;
    fifo.drain ([&] (ParameterDef*) { ++delivered; });
    EXPECT_EQ (delivered, LockFreeParameterFifo::kSize - 1);
    EXPECT_TRUE (fifo.push (p.get()));
    fifo.cancelAll();
}

TEST (ParameterFifo, UpdateTimersRunWhileAnyProcessorLives)
{
    auto& floats = ParameterTypes::floatType();
    const bool runningBefore = floats.isTimerRunning();
    {
        TavrinePluginProcessor first;
        EXPECT_TRUE (floats.isTimerRunning());
        {
            TavrinePluginProcessor second;
            EXPECT_TRUE (ParameterTypes::boolListType().isTimerRunning());
        }
        EXPECT_TRUE (floats.isTimerRunning());
    }
    EXPECT_EQ (floats.isTimerRunning(), runningBefore);
}
