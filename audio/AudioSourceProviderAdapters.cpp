#include "audio/AudioSourceProviderAdapters.h"

namespace qvrControllableAudio
{
WrappedAudioSource::WrappedAudioSource (juce::AudioSource* sourceToWrap, bool owned) : source (sourceToWrap)
{
    if (source == nullptr)
        return;
    if (auto* counted = dynamic_cast<juce::ReferenceCountedObject*> (source))
    {
        // Counting a source that nobody holds would delete it when the
        // adapter dies; only an owned one may arrive that way.
        jassert (owned || counted->getReferenceCount() > 0);
        if (owned)
            countedSource = counted;
    }
    else if (owned)
    {
        ownedPlainSource.reset (source);
    }
    if (auto* parameters = dynamic_cast<Controllable*> (source))
        forwarding = new qvrControllableLib::ForwardingControllable (parameters);
    positionable = dynamic_cast<juce::PositionableAudioSource*> (source);
}

WrappedAudioSource::~WrappedAudioSource()
{
    // The forwarding view goes before the source it looks at.
    forwarding = nullptr;
    countedSource = nullptr;
    ownedPlainSource.reset();
}

AudioSourceProviderAdapter::AudioSourceProviderAdapter (juce::AudioSource* source, bool owned) : wrapped (source, owned)
{
}

ChainableAudioSourceProviderAdapter::ChainableAudioSourceProviderAdapter (juce::AudioSource* source, bool owned)
    : wrapped (source, owned), pull (wrapped.get(), this)
{
}
} // namespace qvrControllableAudio
