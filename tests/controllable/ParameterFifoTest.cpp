#include <gtest/gtest.h>
#include <cstdint>
#include <thread>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/ParameterTypeImpl.h"
#include "shell/TavrinePluginProcessor.h"
#include "tests/support/AllocationCounter.h"
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

TEST (ParameterFifo, AnOverrunPrintsNothingOnTheWriterAndTheDrainReportsItOnce)
{
    LockFreeParameterFifo fifo;
    IntParamDefHandle p ("p");
    for (int i = 0; i < LockFreeParameterFifo::kSize - 1; ++i)
        ASSERT_TRUE (fifo.push (p.get()));

    // The 65,536th entry is refused on the writer's thread, silently.
    testing::internal::CaptureStdout();
    bool refused = false;
    std::thread writer ([&] { refused = ! fifo.push (p.get()); });
    writer.join();
    EXPECT_EQ (testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE (refused);

    int delivered = 0;
    testing::internal::CaptureStdout();
    fifo.drain ([&] (ParameterDef*) { ++delivered; });
    EXPECT_EQ (testing::internal::GetCapturedStdout(), "overrun in LockFreeParameterFifo, freespace is 0/65536\n");
    EXPECT_EQ (delivered, LockFreeParameterFifo::kSize - 1);

    // Reported once: the next drain has nothing to say, and room is back.
    testing::internal::CaptureStdout();
    fifo.drain ([&] (ParameterDef*) { ++delivered; });
    EXPECT_EQ (testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE (fifo.push (p.get()));
    fifo.cancelAll();
}

TEST (ParameterFifo, SeveralOverrunsBetweenDrainsAreCountedOnOneLine)
{
    LockFreeParameterFifo fifo;
    IntParamDefHandle p ("p");
    for (int i = 0; i < LockFreeParameterFifo::kSize - 1; ++i)
        ASSERT_TRUE (fifo.push (p.get()));
    testing::internal::CaptureStdout();
    std::thread writer ([&] {
        for (int i = 0; i < 3; ++i)
            fifo.push (p.get());
    });
    writer.join();
    fifo.drain ([] (ParameterDef*) {});
    EXPECT_EQ (testing::internal::GetCapturedStdout(),
               "overrun in LockFreeParameterFifo, freespace is 0/65536 (3 changes lost)\n");
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

namespace
{
// Entries that encode their writer and its running counter; the FIFO never
// dereferences what it carries.
ParameterDef* encode (int writer, int counter)
{
    return reinterpret_cast<ParameterDef*> ((std::uintptr_t) (((writer + 1) << 24) | counter));
}
int writerOf (ParameterDef* p)
{
    return (int) ((reinterpret_cast<std::uintptr_t> (p) >> 24) - 1);
}
int counterOf (ParameterDef* p)
{
    return (int) (reinterpret_cast<std::uintptr_t> (p) & 0xffffff);
}
} // namespace

TEST (ParameterFifo, WritersRacingTheReaderAroundTheRingLoseAndReorderNothing)
{
    // Several laps of the ring with the reader draining while writers push:
    // every writer's counter must arrive complete and in order. A full ring
    // makes a writer retry (its refusals are counted, not printed).
    constexpr int kWriters = 3;
    constexpr int kWrites = 60000;
    LockFreeParameterFifo fifo;
    std::vector<int> next (kWriters, 1);
    bool inOrder = true;
    std::atomic<int> finished { 0 };

    std::vector<std::thread> writers;
    for (int w = 0; w < kWriters; ++w)
        writers.emplace_back ([&, w] {
            for (int i = 1; i <= kWrites; ++i)
                while (! fifo.push (encode (w, i)))
                    std::this_thread::yield();
            ++finished;
        });

    auto check = [&] (ParameterDef* p) {
        const int w = writerOf (p);
        inOrder = inOrder && w >= 0 && w < kWriters && counterOf (p) == next[(size_t) w];
        if (w >= 0 && w < kWriters)
            next[(size_t) w] = counterOf (p) + 1;
    };
    testing::internal::CaptureStdout();
    while (finished.load() < kWriters)
        fifo.drain (check);
    for (auto& t : writers)
        t.join();
    fifo.drain (check);
    testing::internal::GetCapturedStdout();

    EXPECT_TRUE (inOrder);
    for (int w = 0; w < kWriters; ++w)
        EXPECT_EQ (next[(size_t) w], kWrites + 1) << "writer " << w;
    EXPECT_EQ (fifo.getNumReady(), 0);
}

TEST (ParameterFifo, CancelBlanksOnlyThatParametersEntriesAcrossTheRingsEnd)
{
    LockFreeParameterFifo fifo;
    IntParamDefHandle a ("a"), b ("b");
    // Move the ring's start close to its end, so the entries below wrap.
    for (int i = 0; i < LockFreeParameterFifo::kSize - 10; ++i)
        ASSERT_TRUE (fifo.push (a.get()));
    fifo.drain ([] (ParameterDef*) {});

    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE (fifo.push (i % 2 == 0 ? a.get() : b.get()));
    EXPECT_TRUE (fifo.cancel (a.get()));
    EXPECT_FALSE (fifo.cancel (a.get()));

    std::vector<ParameterDef*> delivered;
    fifo.drain ([&] (ParameterDef* p) { delivered.push_back (p); });
    EXPECT_EQ (delivered, std::vector<ParameterDef*> (10, b.get()));
}

TEST (ParameterFifo, PushAllocatesNothingEvenWhenRefused)
{
    LockFreeParameterFifo fifo;
    IntParamDefHandle p ("p");
    std::size_t allocations = 1;
    std::thread writer ([&] {
        tavrine::test::ScopedAllocationCount count;
        for (int i = 0; i < LockFreeParameterFifo::kSize + 5; ++i)
            fifo.push (p.get());
        allocations = count.count();
    });
    writer.join();
    EXPECT_EQ (allocations, 0u);
    testing::internal::CaptureStdout();
    fifo.drain ([] (ParameterDef*) {});
    testing::internal::GetCapturedStdout();
}
