#include "samples/TavrineSampleManager.h"

#include "samples/SampleJobs.h"

TavrineSampleManager::TavrineSampleManager (const juce::File& cacheDirectory, SampleLibrary* sampleLibrary)
    : SamplePoolManager (cacheDirectory), library (sampleLibrary)
{
}

TavrineSampleManager::~TavrineSampleManager()
{
    // Jobs reach this object (its library); none may run once it is gone.
    stopThreads();
}

void TavrineSampleManager::requestSample (const juce::String& url, SampleRenderJobPtr renderJob,
                                          SamplePreparationCallback* client)
{
    getPreparationThread().addJob (new CacheLookupJob (url, std::move (renderJob), *this, client),
                                   SamplePreparationThread::Priority::normal);
}
