#pragma once

#include "samples/SampleLibrary.h"
#include "samples/SamplePoolManager.h"

// The sample pool of one player instance, with the entry by which a sample
// source asks for a sample. Owned by the engine.
//
// requestSample returns at once from any thread but the audio thread; the
// answer comes on the preparation thread: to the client on a cache hit, else
// through the render job (its own callback) after the load, with a null
// sample if the load failed.
class TavrineSampleManager : public SamplePoolManager
{
public:
    // The library (not owned; may be null: plain file paths only) opens
    // "tavrine:" URLs and tells the lookup which samples are worth caching.
    explicit TavrineSampleManager (const juce::File& cacheDirectory, SampleLibrary* library = nullptr);
    ~TavrineSampleManager() override;

    // Queues a CacheLookupJob at normal priority. renderJob may be null: the
    // client then gets the plain sample from the load.
    void requestSample (const juce::String& url, SampleRenderJobPtr renderJob, SamplePreparationCallback* client);

    SampleLibrary* getLibrary() const noexcept { return library; }

    // The owner stops the threads before it takes down what the jobs refer
    // to (the engine: its loops and their sources).
    using SamplePoolManager::stopThreads;

private:
    SampleLibrary* const library;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (TavrineSampleManager)
};
