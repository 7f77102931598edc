#include "samples/SampleJobs.h"

#include "samples/SampleKey.h"
#include "samples/TavrineSampleManager.h"

#include <juce_audio_formats/juce_audio_formats.h>

namespace
{
constexpr auto normalPriority = SamplePreparationThread::Priority::normal;
}

CacheLookupJob::CacheLookupJob (const juce::String& sampleUrl, SampleRenderJobPtr jobToRender,
                                TavrineSampleManager& owner, SamplePreparationCallback* requestingClient)
    : url (sampleUrl), renderJob (std::move (jobToRender)), manager (owner), client (requestingClient)
{
    // Its own answer; not owned, it is the job itself.
    callback = this;
}

int CacheLookupJob::run (SamplePoolManager& pool)
{
    auto* library = manager.getLibrary();
    if (library == nullptr || ! library->canOpen (url))
        return miss;

    const auto signature = renderJob != nullptr ? renderJob->getRenderSignature() : juce::String();
    const auto key = SampleKey::make (url, signature);
    if (! pool.isAvailable (key, true))
        return miss;
    sample = pool.getSample (key);
    return sample != nullptr ? hit : miss;
}

void CacheLookupJob::jobFinished (PreparedSample::Ptr found, int lookupResult)
{
    if (lookupResult == hit && found != nullptr)
    {
        sample = nullptr;
        if (client != nullptr)
            client->jobFinished (found, hit);
        return;
    }
    sample = nullptr;
    auto* load = new LoadFromFileJob (url, manager.getLibrary());
    load->setOwnedCallback (std::make_unique<RenderAfterLoadCallback> (url, renderJob, client, manager));
    manager.getPreparationThread().addJob (load, normalPriority);
}

RenderAfterLoadCallback::RenderAfterLoadCallback (const juce::String& sampleUrl, SampleRenderJobPtr jobToRender,
                                                  SamplePreparationCallback* requestingClient,
                                                  TavrineSampleManager& owner)
    : url (sampleUrl), renderJob (std::move (jobToRender)), client (requestingClient), manager (owner)
{
}

void RenderAfterLoadCallback::jobFinished (PreparedSample::Ptr sample, int result)
{
    const bool loaded = result == LoadFromFileJob::loaded && sample != nullptr;
    if (renderJob == nullptr)
    {
        if (client != nullptr)
            client->jobFinished (loaded ? sample : nullptr, result);
        return;
    }
    renderJob->setSource (loaded ? url : juce::String(), loaded ? sample : nullptr);
    manager.getPreparationThread().addJob (renderJob.get(), normalPriority);
}

LoadFromFileJob::LoadFromFileJob (const juce::String& sampleUrl, SampleLibrary* sampleLibrary)
    : url (sampleUrl), library (sampleLibrary)
{
}

std::unique_ptr<juce::AudioFormatReader> LoadFromFileJob::createReader (juce::AudioFormatManager& formats) const
{
    if (SampleLibrary::isLibraryUrl (url))
    {
        if (library == nullptr)
            return nullptr;
        auto stream = library->openEntry (url);
        if (stream == nullptr)
            return nullptr;
        return std::unique_ptr<juce::AudioFormatReader> (formats.createReaderFor (std::move (stream)));
    }
    // A relative path is taken from the working directory (the command line
    // passes paths as typed); juce::File wants an absolute one.
    const auto file = juce::File::isAbsolutePath (url) ? juce::File (url)
                                                       : juce::File::getCurrentWorkingDirectory().getChildFile (url);
    if (! file.existsAsFile())
        return nullptr;
    return std::unique_ptr<juce::AudioFormatReader> (formats.createReaderFor (file));
}

int LoadFromFileJob::run (SamplePoolManager& pool)
{
    const auto key = SampleKey::make (url, {});
    sample = pool.getSample (key);
    if (sample != nullptr)
        return loaded;

    juce::AudioFormatManager formats;
    formats.registerBasicFormats();
    const auto reader = createReader (formats);
    if (reader == nullptr)
        return noReader;
    if (reader->numChannels == 0)
        return noChannels;
    if (reader->lengthInSamples <= 0)
        return noSamples;

    // Lengths are 32-bit in the pool, as in the sources that play them.
    const int numChannels = (int) reader->numChannels;
    const int numSamples = (int) reader->lengthInSamples;
    auto forward = std::make_unique<juce::AudioSampleBuffer> (numChannels, numSamples);
    forward->clear();
    reader->read (forward.get(), 0, numSamples, 0, true, true);
    auto reverse = PreparedSample::makeReverse (*forward);
    sample = new PreparedSample (key, std::move (forward), std::move (reverse), &pool);
    return loaded;
}

SaveSampleToCacheJob::SaveSampleToCacheJob (PreparedSample::Ptr sampleToSave)
{
    sample = std::move (sampleToSave);
}

int SaveSampleToCacheJob::run (SamplePoolManager& pool)
{
    pool.saveSample (sample, SamplePoolManager::SaveMode::now);
    sample = nullptr;
    return 0;
}

RemoveSampleFromDiskCacheJob::RemoveSampleFromDiskCacheJob (const juce::File& fileToRemove) : file (fileToRemove) {}

int RemoveSampleFromDiskCacheJob::run (SamplePoolManager&)
{
    file.deleteFile();
    return 0;
}

PreventSampleDeallocationJob::PreventSampleDeallocationJob (PreparedSample::Ptr sampleToKeep)
{
    sample = std::move (sampleToKeep);
    notBefore = juce::Time::getCurrentTime() + juce::RelativeTime::milliseconds (keepAliveMs);
}

int PreventSampleDeallocationJob::run (SamplePoolManager&)
{
    sample = nullptr;
    return resultReleased;
}
