#include "audio/FilteringAudioSourceWrapper.h"

namespace qvrControllableAudio
{
FilteringAudioSourceWrapper::FilteringAudioSourceWrapper (juce::AudioSource* filter,
                                                          ChainableAudioSourceProvider* owner)
    : filterSource (filter), provider (owner)
{
}

FilteringAudioSourceWrapper::~FilteringAudioSourceWrapper() = default;

void FilteringAudioSourceWrapper::prepareToPlay (int samplesPerBlockExpected, double sampleRate)
{
    if (filterSource != nullptr)
        filterSource->prepareToPlay (samplesPerBlockExpected, sampleRate);
}

void FilteringAudioSourceWrapper::releaseResources()
{
    if (filterSource != nullptr)
        filterSource->releaseResources();
}

juce::AudioSource* FilteringAudioSourceWrapper::getProviderUpstream() const
{
    if (provider == nullptr)
        return nullptr;
    auto* upstream = provider->getUpstream();
    return upstream != nullptr ? upstream->getAudioSource() : nullptr;
}

void FilteringAudioSourceWrapper::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    if (auto* upstream = getProviderUpstream())
        upstream->getNextAudioBlock (info);
    if (filterSource != nullptr)
        filterSource->getNextAudioBlock (info);
}
} // namespace qvrControllableAudio
