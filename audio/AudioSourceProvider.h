#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

#include "controllable/api/ControllableAPI.h"

namespace qvrControllableAudio
{
using namespace qvrControllableAPI;

// How the graph sees a block: the source to pull, and optionally its
// parameters and a seekable face.
class AudioSourceProvider : public virtual juce::ReferenceCountedObject
{
public:
    virtual juce::AudioSource* getAudioSource() = 0;
    virtual bool hasControllable() { return getControllable() != nullptr; }
    virtual Controllable* getControllable() { return nullptr; }
    virtual bool hasPositionable() { return getPositionable() != nullptr; }
    virtual juce::PositionableAudioSource* getPositionable() { return nullptr; }
    // Linking point of chainable blocks; nothing in the base.
    virtual void setUpstream (juce::AudioSource*, AudioSourceProvider*) {}
};

using AudioSourceProviderPtr = juce::ReferenceCountedObjectPtr<AudioSourceProvider>;

// A block with one upstream block, which it pulls in its getNextAudioBlock.
class ChainableAudioSourceProvider : public AudioSourceProvider
{
public:
    void setUpstream (juce::AudioSource* source, AudioSourceProvider* provider) override
    {
        AudioSourceProviderPtr oldProvider = upstreamProvider;
        upstreamSource = source;
        upstreamProvider = provider;
        upstreamChanged (source, oldProvider.get(), provider);
    }

    virtual AudioSourceProvider* getUpstream() { return upstreamProvider.get(); }

    // Walks upstream through the providers' controllables; first hit wins.
    virtual ParameterDefPtr findUpstreamParameter (const juce::String& name);

    virtual void detachUpstream()
    {
        AudioSourceProviderPtr oldProvider = upstreamProvider;
        upstreamSource = nullptr;
        upstreamProvider = nullptr;
        upstreamChanged (nullptr, oldProvider.get(), nullptr);
    }

    virtual void upstreamChanged (juce::AudioSource*, AudioSourceProvider*, AudioSourceProvider*) {}

protected:
    juce::AudioSource* getUpstreamSource() const noexcept { return upstreamSource; }

private:
    AudioSourceProviderPtr upstreamProvider;
    juce::AudioSource* upstreamSource = nullptr;
};

using ChainableAudioSourceProviderPtr = juce::ReferenceCountedObjectPtr<ChainableAudioSourceProvider>;
} // namespace qvrControllableAudio
