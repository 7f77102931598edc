#pragma once

#include "samples/SampleLibrary.h"
#include "samples/SamplePreparationJob.h"

#include <juce_audio_formats/juce_audio_formats.h>

// The jobs by which a URL becomes a PreparedSample, and those that move a
// sample to or from the render cache. All run on the preparation thread; each
// is built and queued by whoever wants the work done and is dropped once its
// callback has run.
//
// Results, by job (0 is success everywhere):
//   CacheLookupJob       0 hit, 1 miss
//   LoadFromFileJob      0 done, 1 no reader, 2 no channels, 3 no samples
//   SaveSampleToCacheJob, RemoveSampleFromDiskCacheJob, ReleaseSampleJob  0
//   PreventSampleDeallocationJob  1

class TavrineSampleManager;

// A request's first step: is the variant (URL plus the render job's present
// signature) already in memory or in the render cache? Its own callback then
// answers the client on a hit, or queues the load. The cache is consulted
// only for URLs that the library can open (samples in soundbanks); a plain
// file is always loaded and rendered afresh, though what is in memory is
// still shared by the load.
class CacheLookupJob : public SamplePreparationJob, public SamplePreparationCallback
{
public:
    static constexpr int weight = 20;
    enum Result
    {
        hit = 0,
        miss = 1
    };

    // renderJob may be null: the client then gets the plain sample.
    CacheLookupJob (const juce::String& url, SampleRenderJobPtr renderJob, TavrineSampleManager& manager,
                    SamplePreparationCallback* client);

    int run (SamplePoolManager& pool) override;
    int getWeight() const override { return weight; }
    void jobFinished (PreparedSample::Ptr sample, int result) override;

private:
    const juce::String url;
    const SampleRenderJobPtr renderJob;
    TavrineSampleManager& manager;
    SamplePreparationCallback* const client;
};

// Between the load and the render: gives the render job the loaded sample and
// its URL, or a null sample and an empty URL after a failed load, and queues
// it, so that a failure too reaches the client through the render job. With
// no render job the client is answered directly. Owned by its LoadFromFileJob.
class RenderAfterLoadCallback : public SamplePreparationCallback
{
public:
    RenderAfterLoadCallback (const juce::String& url, SampleRenderJobPtr renderJob,
                             SamplePreparationCallback* client, TavrineSampleManager& manager);

    void jobFinished (PreparedSample::Ptr sample, int result) override;

private:
    const juce::String url;
    const SampleRenderJobPtr renderJob;
    SamplePreparationCallback* const client;
    TavrineSampleManager& manager;
};

// Decodes a file, or a library entry for a "tavrine:" URL, into a plain
// sample, unless the pool already holds it. No rate conversion: the pool
// keeps samples at their file's rate and length.
class LoadFromFileJob : public SamplePreparationJob
{
public:
    static constexpr int weight = 20;
    enum Result
    {
        loaded = 0,
        noReader = 1,
        noChannels = 2,
        noSamples = 3
    };

    // The library may be null: "tavrine:" URLs then have no reader.
    LoadFromFileJob (const juce::String& url, SampleLibrary* library);

    int run (SamplePoolManager& pool) override;
    int getWeight() const override { return weight; }

private:
    std::unique_ptr<juce::AudioFormatReader> createReader (juce::AudioFormatManager& formats) const;

    const juce::String url;
    SampleLibrary* const library;
};

// Writes the job's sample to the render cache (a plain sample is skipped,
// an existing file only renewed), then drops it.
class SaveSampleToCacheJob : public SamplePreparationJob
{
public:
    static constexpr int weight = 20;

    explicit SaveSampleToCacheJob (PreparedSample::Ptr sampleToSave);

    int run (SamplePoolManager& pool) override;
    int getWeight() const override { return weight; }
};

// Deletes one cache file chosen by eviction; on this thread, so that no file
// is deleted under a reader.
class RemoveSampleFromDiskCacheJob : public SamplePreparationJob
{
public:
    static constexpr int weight = 20;

    explicit RemoveSampleFromDiskCacheJob (const juce::File& fileToRemove);

    int run (SamplePoolManager& pool) override;
    int getWeight() const override { return weight; }

    const juce::File file;
};

// Keeps a sample alive across a moment in which nobody holds it (a loop
// moved, or the move undone): due three seconds after it is made, and its run
// only drops the reference. Whatever asks for the sample before then finds it
// in the pool. Weighs nothing, so the progress bar ignores it.
class PreventSampleDeallocationJob : public SamplePreparationJob
{
public:
    static constexpr int weight = 0;
    static constexpr int keepAliveMs = 3000;
    static constexpr int resultReleased = 1;

    explicit PreventSampleDeallocationJob (PreparedSample::Ptr sampleToKeep);

    int run (SamplePoolManager& pool) override;
    int getWeight() const override { return weight; }
};
