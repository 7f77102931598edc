#pragma once

#include "samples/PreparedSample.h"

#include <atomic>
#include <memory>

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
// Callbacks. `callback` is only a pointer: a counted callback (a sample
// source) owns itself and the job never touches it after it has run. A plain
// callback that the job is to own is given with setOwnedCallback, which the
// job deletes with itself. Ownership is fixed when the callback is given,
// never found out at destruction: by then a counted callback may be gone, or
// be the object being destroyed.
class SamplePreparationJob : public juce::ReferenceCountedObject
{
public:
    using Ptr = juce::ReferenceCountedObjectPtr<SamplePreparationJob>;

    SamplePreparationJob();
    // Deletes an owned callback (setOwnedCallback), nothing else.
    ~SamplePreparationJob() override;

    // Sets `callback` to one that the job owns from now on.
    void setOwnedCallback (std::unique_ptr<SamplePreparationCallback> ownedCallback);

    // Preparation thread: run, keep its value, mark the job done.
    void execute (SamplePoolManager& pool);

    virtual int run (SamplePoolManager& pool) = 0;
    virtual int getWeight() const = 0;

    juce::Time notBefore;
    std::atomic<bool> finished { false };
    int result = 0;
    SamplePreparationCallback* callback = nullptr;
    PreparedSample::Ptr sample;

private:
    std::unique_ptr<SamplePreparationCallback> owned;

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
