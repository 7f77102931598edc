#pragma once

#include <gtest/gtest.h>

#include "samples/ReleaseSampleJob.h"
#include "samples/SampleJobs.h"
#include "samples/SampleKey.h"
#include "samples/SamplePreparationThread.h"
#include "samples/TavrineSampleManager.h"
#include "tests/support/TempDirectory.h"

#include <juce_audio_formats/juce_audio_formats.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

namespace tavrine::test
{
// A 32-bit float WAV whose sample i of channel c is (c + 1) * i / 1000, so
// that a reversed or shifted read shows.
inline bool writeWav (const juce::File& file, int numChannels, int numSamples)
{
    file.deleteFile();
    auto stream = std::make_unique<juce::FileOutputStream> (file);
    if (stream->failedToOpen())
        return false;
    juce::WavAudioFormat wav;
    std::unique_ptr<juce::AudioFormatWriter> writer (
        wav.createWriterFor (stream.get(), 44100.0, (unsigned int) numChannels, 32, {}, 0));
    if (writer == nullptr)
        return false;
    stream.release(); // the writer owns it now
    juce::AudioSampleBuffer buffer (numChannels, numSamples);
    for (int c = 0; c < numChannels; ++c)
        for (int i = 0; i < numSamples; ++i)
            buffer.setSample (c, i, (float) (c + 1) * (float) i / 1000.0f);
    return numSamples == 0 || writer->writeFromAudioSampleBuffer (buffer, 0, numSamples);
}

inline bool waitUntil (const std::function<bool()>& condition, int timeoutMs = 5000)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds (timeoutMs);
    while (std::chrono::steady_clock::now() < end)
    {
        if (condition())
            return true;
        std::this_thread::sleep_for (std::chrono::milliseconds (2));
    }
    return condition();
}

inline juce::String currentThreadName()
{
    auto* thread = juce::Thread::getCurrentThread();
    return thread != nullptr ? thread->getThreadName() : juce::String ("(not a juce thread)");
}

// A counted client, as a sample source is: the job that calls it does not
// delete it. Records every answer and the thread it came on.
struct RecordingClient : juce::ReferenceCountedObject, SamplePreparationCallback
{
    using Ptr = juce::ReferenceCountedObjectPtr<RecordingClient>;

    void jobFinished (PreparedSample::Ptr delivered, int deliveredResult) override
    {
        {
            const std::lock_guard<std::mutex> guard (mutex);
            sample = delivered;
            result = deliveredResult;
            threadName = currentThreadName();
        }
        ++calls;
        done.signal();
    }

    bool waitForAnswer (int timeoutMs = 5000) { return done.wait (timeoutMs); }

    PreparedSample::Ptr takeSample()
    {
        const std::lock_guard<std::mutex> guard (mutex);
        auto taken = sample;
        sample = nullptr;
        return taken;
    }

    std::mutex mutex;
    PreparedSample::Ptr sample;
    int result = -1;
    juce::String threadName;
    std::atomic<int> calls { 0 };
    juce::WaitableEvent done { true };
};

// A loop's pre-render reduced to what the pool sees: a fixed signature, and a
// "render" that hands on the source sample (or nothing, result 1).
struct FakeRenderJob : SampleRenderJob
{
    using Ptr = juce::ReferenceCountedObjectPtr<FakeRenderJob>;

    explicit FakeRenderJob (RecordingClient* client, const juce::String& renderSignature = "stretch=2")
        : signature (renderSignature)
    {
        callback = client;
    }

    juce::String getRenderSignature() override { return signature; }

    void setSource (const juce::String& url, PreparedSample::Ptr sourceSample) override
    {
        sourceUrl = url;
        source = sourceSample;
        ++sourcesSet;
    }

    int run (SamplePoolManager&) override
    {
        sample = source;
        source = nullptr;
        return sample != nullptr ? 0 : 1;
    }

    juce::String signature;
    juce::String sourceUrl { "(never set)" };
    PreparedSample::Ptr source;
    std::atomic<int> sourcesSet { 0 };
};

// A job whose run waits until released (or the thread is told to stop), and
// that records the order in which jobs ran.
struct GateJob : SamplePreparationJob
{
    using Ptr = juce::ReferenceCountedObjectPtr<GateJob>;

    GateJob (int jobWeight, std::vector<juce::String>* runLog = nullptr, const juce::String& jobName = {},
             bool startOpen = true)
        : weight (jobWeight), log (runLog), name (jobName)
    {
        if (startOpen)
            gate.signal();
    }

    int run (SamplePoolManager&) override
    {
        started.signal();
        ++runs;
        if (log != nullptr)
        {
            const std::lock_guard<std::mutex> guard (logMutex());
            log->push_back (name);
        }
        while (! gate.wait (5))
            if (juce::Thread::currentThreadShouldExit())
                break;
        return 0;
    }
    int getWeight() const override { return weight; }

    static std::mutex& logMutex()
    {
        static std::mutex m;
        return m;
    }

    const int weight;
    std::vector<juce::String>* log;
    const juce::String name;
    juce::WaitableEvent gate { true };
    juce::WaitableEvent started { true };
    std::atomic<int> runs { 0 };
};

// A sample built directly from a buffer, as a render or a load makes one.
inline PreparedSample::Ptr makeSample (const juce::String& key, PreparedSamplePool* pool, int numSamples = 300,
                                       int seed = 1)
{
    auto forward = std::make_unique<juce::AudioSampleBuffer> (2, numSamples);
    juce::Random random (seed);
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < numSamples; ++i)
            forward->setSample (c, i, random.nextFloat() * 2.0f - 1.0f);
    auto reverse = PreparedSample::makeReverse (*forward);
    return new PreparedSample (key, std::move (forward), std::move (reverse), pool);
}

// Records the thread on which each sample leaves the pool, i.e. is freed.
struct RecordingSampleManager : TavrineSampleManager
{
    using TavrineSampleManager::TavrineSampleManager;
    // Most derived: no job may call into this object once it starts going.
    ~RecordingSampleManager() override { stopThreads(); }

    void removePreparedSample (const juce::String& key, PreparedSample* sample) override
    {
        {
            const std::lock_guard<std::mutex> guard (mutex);
            removedOnThreads.add (currentThreadName());
        }
        TavrineSampleManager::removePreparedSample (key, sample);
    }

    juce::StringArray getRemovedOnThreads()
    {
        const std::lock_guard<std::mutex> guard (mutex);
        return removedOnThreads;
    }

    bool waitUntilIdle (int timeoutMs = 5000)
    {
        return waitUntil ([this] { return getPreparationThread().isIdle(); }, timeoutMs);
    }

    std::mutex mutex;
    juce::StringArray removedOnThreads;
};

struct PoolFixture : ::testing::Test
{
    TempDirectory temp { "tavrine-pool-test" };
    juce::File cacheDirectory = temp.root.getChildFile ("RenderCache");
    juce::File wavFile = temp.root.getChildFile ("loop_120_bpm.wav");
};
} // namespace tavrine::test
