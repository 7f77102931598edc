#pragma once

#include <memory>

#include "audio/AudioSourceProvider.h"
#include "audio/FilteringAudioSourceWrapper.h"
#include "controllable/lib/Controllables.h"

namespace qvrControllableAudio
{
// What both adapters keep of the source they wrap: the source, its life, and
// the optional faces found by checked downcast (parameters, seeking).
//
// Life of the source: a source that is reference counted (every controllable
// is) is held by counted reference, owned or not, so a counted source handed
// in must already have a holder unless `owned` is set. A plain source is
// deleted with the adapter if `owned` is set and never touched otherwise.
class WrappedAudioSource
{
public:
    WrappedAudioSource (juce::AudioSource* source, bool owned);
    ~WrappedAudioSource();

    juce::AudioSource* get() const noexcept { return source; }
    // Forwards the source's parameters; null if it has none.
    Controllable* getControllable() const noexcept { return forwarding.get(); }
    juce::PositionableAudioSource* getPositionable() const noexcept { return positionable; }

private:
    juce::AudioSource* source;
    std::unique_ptr<juce::AudioSource> ownedPlainSource;
    juce::ReferenceCountedObjectPtr<juce::ReferenceCountedObject> countedSource;
    juce::ReferenceCountedObjectPtr<qvrControllableLib::ForwardingControllable> forwarding;
    juce::PositionableAudioSource* positionable = nullptr;

    JUCE_DECLARE_NON_COPYABLE (WrappedAudioSource)
};

// Lets any juce::AudioSource stand at the head of a chain. Its source is
// pulled directly.
//
// Threads: made on the message thread; the source is rendered on the audio
// thread by the chain.
class AudioSourceProviderAdapter : public AudioSourceProvider
{
public:
    AudioSourceProviderAdapter (juce::AudioSource* source, bool owned);

    juce::AudioSource* getAudioSource() override { return wrapped.get(); }
    bool hasControllable() override { return wrapped.getControllable() != nullptr; }
    Controllable* getControllable() override { return wrapped.getControllable(); }
    bool hasPositionable() override { return wrapped.getPositionable() != nullptr; }
    juce::PositionableAudioSource* getPositionable() override { return wrapped.getPositionable(); }

    juce::AudioSource* getWrappedSource() const noexcept { return wrapped.get(); }

private:
    WrappedAudioSource wrapped;

    JUCE_DECLARE_NON_COPYABLE (AudioSourceProviderAdapter)
};

// Lets a plain filter source stand as a link of a chain: the source the
// chain sees first pulls the upstream block into the buffer and then calls
// the filter on the same buffer, so the filter works in place on audio that
// is already there. prepareToPlay and releaseResources go to the filter alone
// (the chain prepares every block itself).
//
// Threads: as AudioSourceProviderAdapter.
class ChainableAudioSourceProviderAdapter : public ChainableAudioSourceProvider
{
public:
    ChainableAudioSourceProviderAdapter (juce::AudioSource* source, bool owned);

    juce::AudioSource* getAudioSource() override { return &pull; }
    bool hasControllable() override { return wrapped.getControllable() != nullptr; }
    Controllable* getControllable() override { return wrapped.getControllable(); }
    bool hasPositionable() override { return wrapped.getPositionable() != nullptr; }
    juce::PositionableAudioSource* getPositionable() override { return wrapped.getPositionable(); }

    juce::AudioSource* getWrappedSource() const noexcept { return wrapped.get(); }

private:
    WrappedAudioSource wrapped;
    FilteringAudioSourceWrapper pull;

    JUCE_DECLARE_NON_COPYABLE (ChainableAudioSourceProviderAdapter)
};
} // namespace qvrControllableAudio
