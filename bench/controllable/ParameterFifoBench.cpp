#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <thread>
#include <vector>

#include "controllable/lib/LockFreeParameterFifo.h"

// The cost of one push as a writer sees it, while other writers push and the
// reader drains: median and 99th percentile in nanoseconds, measured per push
// with the clock's own cost taken off. Compared against the locked ring the
// FIFO used to be (kept here only, as a reference).
namespace
{
using qvrControllableAPI::ParameterDef;
using qvrControllableLib::LockFreeParameterFifo;

// Writers serialised by a critical section around an AbstractFifo; prints on
// overrun from the writing thread.
class LockedReferenceFifo
{
public:
    LockedReferenceFifo() : buffer ((size_t) kSize) {}

    bool push (ParameterDef* parameter)
    {
        const juce::ScopedLock sl (writerLock);
        int start1, size1, start2, size2;
        fifo.prepareToWrite (1, start1, size1, start2, size2);
        if (size1 > 0)
        {
            buffer[(size_t) start1].store (parameter, std::memory_order_relaxed);
            fifo.finishedWrite (1);
            return true;
        }
        std::printf ("overrun in LockFreeParameterFifo, freespace is %d/%d\n", fifo.getFreeSpace(), kSize);
        return false;
    }

    template <typename Deliver>
    void drain (Deliver&& deliver)
    {
        for (;;)
        {
            int start1, size1, start2, size2;
            fifo.prepareToRead (1, start1, size1, start2, size2);
            if (size1 == 0)
                return;
            ParameterDef* parameter = buffer[(size_t) start1].exchange (nullptr);
            fifo.finishedRead (1);
            if (parameter != nullptr)
                deliver (parameter);
        }
    }

private:
    static constexpr int kSize = 65536;
    juce::CriticalSection writerLock;
    juce::AbstractFifo fifo { kSize };
    std::vector<std::atomic<ParameterDef*>> buffer;
};

using Clock = std::chrono::steady_clock;

double clockCostNs()
{
    std::vector<double> costs (10000);
    for (auto& c : costs)
    {
        const auto a = Clock::now();
        const auto b = Clock::now();
        c = std::chrono::duration<double, std::nano> (b - a).count();
    }
    std::nth_element (costs.begin(), costs.begin() + (long) costs.size() / 2, costs.end());
    return costs[costs.size() / 2];
}

template <typename Fifo>
void pushLatency (benchmark::State& state)
{
    constexpr int kPushes = 20000; // per writer and iteration: the reader keeps up
    const int writers = (int) state.range (0);
    const double clockCost = clockCostNs();
    std::vector<double> all;
    all.reserve ((size_t) (kPushes * writers) * 8);
    auto fifo = std::make_unique<Fifo>();
    auto* marker = reinterpret_cast<ParameterDef*> (std::uintptr_t { 64 });

    for (auto _ : state)
    {
        std::atomic<int> running { writers };
        std::vector<std::vector<double>> samples ((size_t) writers, std::vector<double> ((size_t) kPushes));
        std::thread reader ([&] {
            std::int64_t n = 0;
            while (running.load() > 0)
                fifo->drain ([&] (ParameterDef*) { ++n; });
            fifo->drain ([&] (ParameterDef*) { ++n; });
            benchmark::DoNotOptimize (n);
        });
        const auto start = Clock::now();
        std::vector<std::thread> threads;
        for (int w = 0; w < writers; ++w)
            threads.emplace_back ([&, w] {
                auto& mine = samples[(size_t) w];
                for (int i = 0; i < kPushes; ++i)
                {
                    const auto a = Clock::now();
                    fifo->push (marker);
                    const auto b = Clock::now();
                    mine[(size_t) i] = std::chrono::duration<double, std::nano> (b - a).count() - clockCost;
                }
                --running;
            });
        for (auto& t : threads)
            t.join();
        state.SetIterationTime (std::chrono::duration<double> (Clock::now() - start).count());
        reader.join();
        for (auto& s : samples)
            all.insert (all.end(), s.begin(), s.end());
    }

    std::sort (all.begin(), all.end());
    state.counters["median_ns"] = all[all.size() / 2];
    state.counters["p99_ns"] = all[all.size() * 99 / 100];
    state.counters["max_ns"] = all.back();
}

void lockFreePush (benchmark::State& state)
{
    pushLatency<LockFreeParameterFifo> (state);
}
void lockedReferencePush (benchmark::State& state)
{
    pushLatency<LockedReferenceFifo> (state);
}

BENCHMARK (lockFreePush)->Arg (1)->Arg (3)->Iterations (10)->UseManualTime();
BENCHMARK (lockedReferencePush)->Arg (1)->Arg (3)->Iterations (10)->UseManualTime();
} // namespace
