#include <benchmark/benchmark.h>
#include <chrono>
#include <thread>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/BasicAutomationHandle.h"
#include "controllable/lib/ParameterTypeImpl.h"
#include "controllable/lib/ShortcutValue.h"

// The parameter framework's audio-thread costs, in nanoseconds per operation.
namespace
{
using namespace qvrControllableAPI;
using namespace qvrControllableLib;

class NullListener : public ParameterChangeListener
{
public:
    void parameterChanged (ParameterDef*) override {}
};

void shortcutRead (benchmark::State& state)
{
    qvrControllableHandle::FloatParamDefHandle p ("p");
    p.defaultValue = 0.5;
    FloatShortcutValue shortcut (p->getValue().get());
    for (auto _ : state)
        benchmark::DoNotOptimize (shortcut.get());
}
BENCHMARK (shortcutRead);

// A handle's read on the audio thread: one relaxed load.
void handleRead (benchmark::State& state)
{
    qvrControllableHandle::FloatParamDefHandle p ("p");
    p.defaultValue = 0.5;
    for (auto _ : state)
        benchmark::DoNotOptimize (p.read());
}
BENCHMARK (handleRead);

void setNormalized (benchmark::State& state)
{
    qvrControllableHandle::FloatParamDefHandle p ("p");
    p.minimum = 0.0;
    p.maximum = 2.0;
    auto handle = p->createAutomationHandle (nullptr, 0, {}, nullptr);
    float n = 0.0f;
    for (auto _ : state)
    {
        n = n > 0.9f ? 0.0f : n + 0.001f;
        handle->setNormalized (n);
    }
}
BENCHMARK (setNormalized);

// A write from a thread other than the message thread (as the host's audio
// thread writes), with 0 or 3 asynchronous listeners: the store, and with
// listeners one FIFO entry. Timed on that thread; the FIFO is emptied between
// batches, outside the timing.
void audioThreadWrite (benchmark::State& state)
{
    constexpr int kBatch = 20000;
    qvrControllableHandle::FloatParamDefHandle p ("p");
    NullListener listeners[3];
    for (int i = 0; i < state.range (0); ++i)
        p->addChangeListener (&listeners[i], false);
    auto value = p->getValue();
    double x = 0.0;
    for (auto _ : state)
    {
        double seconds = 0.0;
        std::thread writer ([&] {
            const auto start = std::chrono::steady_clock::now();
            for (int i = 0; i < kBatch; ++i)
                value->setFloat (x += 1.0);
            seconds = std::chrono::duration<double> (std::chrono::steady_clock::now() - start).count();
        });
        writer.join();
        state.SetIterationTime (seconds);
        ParameterTypes::floatType().cancelAllChanges();
        ParameterTypes::floatType().drainChanges();
    }
    state.counters["ns_per_write"] = benchmark::Counter (
        (double) kBatch * 1.0e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    for (int i = 0; i < state.range (0); ++i)
        p->removeChangeListener (&listeners[i], false);
}
BENCHMARK (audioThreadWrite)->Arg (0)->Arg (3)->UseManualTime();

// Draining 65,535 waiting entries on the message side: ns per entry.
void drainFullFifo (benchmark::State& state)
{
    LockFreeParameterFifo fifo;
    qvrControllableHandle::FloatParamDefHandle p ("p");
    for (auto _ : state)
    {
        state.PauseTiming();
        for (int i = 0; i < LockFreeParameterFifo::kSize - 1; ++i)
            fifo.push (p.get());
        state.ResumeTiming();
        int n = 0;
        fifo.drain ([&] (ParameterDef*) { ++n; });
        benchmark::DoNotOptimize (n);
    }
    state.SetItemsProcessed (state.iterations() * (LockFreeParameterFifo::kSize - 1));
}
BENCHMARK (drainFullFifo)->Unit (benchmark::kMillisecond);
} // namespace
