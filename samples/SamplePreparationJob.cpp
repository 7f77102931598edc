#include "samples/SamplePreparationJob.h"

SamplePreparationJob::SamplePreparationJob() : notBefore (juce::Time::getCurrentTime()) {}

SamplePreparationJob::~SamplePreparationJob() = default;

void SamplePreparationJob::setOwnedCallback (std::unique_ptr<SamplePreparationCallback> ownedCallback)
{
    owned = std::move (ownedCallback);
    callback = owned.get();
}

void SamplePreparationJob::execute (SamplePoolManager& pool)
{
    result = run (pool);
    finished.store (true);
}
