#include <benchmark/benchmark.h>

#include <juce_events/juce_events.h>

#include "engine/TavrineLoopPreRenderJob.h"
#include "samples/SampleKey.h"
#include "samples/TavrineSampleManager.h"

// What a loop waits for after a tempo change: the pre-render of an 8-second
// stereo loop from 120 to 97 bpm in "Efficient V3" (target: at most 150 ms),
// and the same request when the variant is already in the render cache on
// disk (target: at most 10 ms), measured in one run. Each iteration asks
// afresh: the previous result is dropped first, so neither case finds the
// variant in memory.
namespace
{
constexpr int kLoopSamples = 8 * 44100;
constexpr double kSourceBpm = 120.0;
constexpr double kMasterBpm = 97.0;

struct PreRenderSetup
{
    PreRenderSetup()
    {
        cacheDirectory.createDirectory();
        sourceBpm.defaultValue = kSourceBpm;
        relativeBpm.defaultValue = 1.0;
        masterBpm.defaultValue = kMasterBpm;
        TavrineLoopPreRenderChain::SignatureSources sources;
        sources.sourceBpm = sourceBpm.getParameter();
        sources.relativeBpm = relativeBpm.getParameter();
        sources.masterBpm = masterBpm.getParameter();
        chain->setSignatureSources (sources);
        chain->getStretchSource().stretchFactor.write (kSourceBpm / kMasterBpm);

        auto forward = std::make_unique<juce::AudioSampleBuffer> (2, kLoopSamples);
        juce::Random random (97);
        for (int c = 0; c < 2; ++c)
            for (int i = 0; i < kLoopSamples; ++i)
                forward->setSample (c, i, 0.5f * (random.nextFloat() - 0.5f));
        auto reverse = PreparedSample::makeReverse (*forward);
        source = new PreparedSample (SampleKey::make (url, {}), std::move (forward), std::move (reverse), &manager);
    }

    ~PreRenderSetup() { cacheDirectory.deleteRecursively(); }

    // One request as the preparation thread runs it; returns the variant.
    PreparedSample::Ptr request()
    {
        job->setSource (url, source);
        job->run (manager);
        return std::exchange (job->sample, nullptr);
    }

    const juce::String url { "/bench/Loop_120_bench.wav" };
    juce::File cacheDirectory { juce::File::getSpecialLocation (juce::File::tempDirectory)
                                    .getChildFile ("tavrine-prerender-bench-" + juce::Uuid().toString()) };
    TavrineSampleManager manager { cacheDirectory };
    TavrineLoopPreRenderChainPtr chain { new TavrineLoopPreRenderChain() };
    TavrineLoopPreRenderJobPtr job { new TavrineLoopPreRenderJob (*chain) };
    qvrControllableHandle::FloatParamDefHandle sourceBpm { "sourceBpm" }, relativeBpm { "relativeBpm" },
        masterBpm { "masterBpm" };
    PreparedSample::Ptr source;
};

// Times one request per iteration; dropping the variant (the pool's
// bookkeeping) is left out of the figure.
void timeRequests (benchmark::State& state, PreRenderSetup& setup)
{
    for (auto _ : state)
    {
        auto variant = setup.request();
        benchmark::DoNotOptimize (variant.get());
        state.PauseTiming();
        variant = nullptr;
        state.ResumeTiming();
    }
}

void BM_PreRenderEightSecondsTo97Bpm (benchmark::State& state)
{
    juce::ScopedJuceInitialiser_GUI juce;
    PreRenderSetup setup;
    timeRequests (state, setup);
    state.counters["renders"] = setup.job->getNumRenders();
}
BENCHMARK (BM_PreRenderEightSecondsTo97Bpm)->Unit (benchmark::kMillisecond)->UseRealTime()->MinTime (2.0);

void BM_PreRenderFoundInDiskCache (benchmark::State& state)
{
    juce::ScopedJuceInitialiser_GUI juce;
    PreRenderSetup setup;
    setup.manager.saveSample (setup.request(), SamplePoolManager::SaveMode::now);
    timeRequests (state, setup);
    // 1: only the render that filled the cache.
    state.counters["renders"] = setup.job->getNumRenders();
}
BENCHMARK (BM_PreRenderFoundInDiskCache)->Unit (benchmark::kMillisecond)->UseRealTime()->MinTime (1.0);
} // namespace
