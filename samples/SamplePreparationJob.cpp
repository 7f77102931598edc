#include "samples/SamplePreparationJob.h"

SamplePreparationJob::SamplePreparationJob() : notBefore (juce::Time::getCurrentTime()) {}

SamplePreparationJob::~SamplePreparationJob()
{
    // A counted callback owns itself; anything else was handed to the job.
    if (callback != nullptr && dynamic_cast<juce::ReferenceCountedObject*> (callback) == nullptr)
        delete callback;
}

void SamplePreparationJob::execute (SamplePoolManager& pool)
{
    result = run (pool);
    finished.store (true);
}
