#pragma once

#include "samples/PreparedSample.h"

#include <atomic>

class SamplePoolManager;

// Told when a job has run: on the preparation thread, right after the job's
// run. `sample` may be null (a failed load, a render without a source).
class SamplePreparationCallback
{
public:
    virtual ~SamplePreparationCallback() = default;

    virtual void jobFinished (PreparedSample::Ptr sample, int result) = 0;
};

// One piece of work for the preparation thread. Jobs run one at a time, in
// queue order, never before `notBefore`. The weight is the job's share of the
// progress value; a job of weight 0 is invisible to the progress bar.
//
// Threads: fields are set by whoever builds and queues the job; after addJob
// only the preparation thread touches them, until the job is finished.
//
// The job does not count a counted callback, yet its destructor asks the
// callback what it is: such a callback must outlive the job, or clear
// `callback` before it goes (a job that is its own callback clears it in its
// destructor).
class SamplePreparationJob : public juce::ReferenceCountedObject
{
public:
    using Ptr = juce::ReferenceCountedObjectPtr<SamplePreparationJob>;

    SamplePreparationJob();
    // Deletes the callback, unless it is reference counted itself (a sample
    // source that outlives the job is).
    ~SamplePreparationJob() override;

    // Preparation thread: run, keep its value, mark the job done.
    void execute (SamplePoolManager& pool);

    virtual int run (SamplePoolManager& pool) = 0;
    virtual int getWeight() const = 0;

    juce::Time notBefore;
    std::atomic<bool> finished { false };
    int result = 0;
    SamplePreparationCallback* callback = nullptr;
    PreparedSample::Ptr sample;

    JUCE_DECLARE_NON_COPYABLE (SamplePreparationJob)
};

// A loop's pre-render, as the pool's own jobs see it: they ask it for the
// signature of its present settings (a part of the variant's key) and hand it
// the loaded source sample, or null and an empty URL after a failed load. It
// reaches its client through its own callback.
class SampleRenderJob : public SamplePreparationJob
{
public:
    static constexpr int weight = 300;

    virtual juce::String getRenderSignature() = 0;
    virtual void setSource (const juce::String& url, PreparedSample::Ptr sourceSample) = 0;

    int getWeight() const override { return weight; }
};

using SampleRenderJobPtr = juce::ReferenceCountedObjectPtr<SampleRenderJob>;
