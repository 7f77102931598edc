#include "audio/AudioSourceChain.h"

#include <algorithm>

#include "audio/AudioSourceProviderAdapters.h"
#include "controllable/api/Parameter.h"
#include "controllable/api/ParameterValue.h"

namespace qvrControllableAudio
{
//==============================================================================
int AudioSourceChain::BlockPositionCounters::indexOf (int key) const noexcept
{
    for (int i = 0; i < count; ++i)
        if (keys[(size_t) i] == key)
            return i;
    return -1;
}

int AudioSourceChain::BlockPositionCounters::addKey (int key)
{
    if (count == capacity)
    {
        const int newCapacity = (capacity + capacity / 2 + 8) & ~7;
        std::unique_ptr<int[]> newKeys (new int[(size_t) newCapacity]);
        std::unique_ptr<int[]> newValues (new int[(size_t) newCapacity]);
        std::copy (keys.get(), keys.get() + count, newKeys.get());
        std::copy (values.get(), values.get() + count, newValues.get());
        keys = std::move (newKeys);
        values = std::move (newValues);
        capacity = newCapacity;
    }
    keys[(size_t) count] = key;
    values[(size_t) count] = 0;
    return count++;
}

//==============================================================================
AudioSourceChain::AudioSourceChain()
    : controllable (
        new qvrControllableLib::DispatchingControllable (new qvrControllableLib::ForwardToFirstStrategy(), this))
{
    chainCounterIndex = counters.addKey (kChainCounterKey);
}

AudioSourceChain::~AudioSourceChain() = default;

void AudioSourceChain::addTarget (Controllable* target)
{
    if (target != nullptr && ! targets.contains (target))
        targets.add (target);
}

void AudioSourceChain::replaceTarget (Controllable* old, Controllable* replacement)
{
    if (replacement != nullptr && replacement != old)
        targets.removeObject (replacement);
    const int index = old != nullptr ? targets.indexOf (old) : -1;
    if (index < 0)
    {
        addTarget (replacement);
        return;
    }
    if (replacement != nullptr)
        targets.set (index, replacement);
    else
        targets.remove (index);
}

int AudioSourceChain::getBlockPositionCounter (int key) const noexcept
{
    const int index = counters.indexOf (key);
    return index >= 0 ? counters.valueAt (index) : 0;
}

void AudioSourceChain::setBlockPositionCounter (int key, int value)
{
    int index = counters.indexOf (key);
    if (index < 0)
        index = counters.addKey (key);
    counters.valueAt (index) = value;
}

void AudioSourceChain::addToBlockPositionCounter (int key, int delta)
{
    int index = counters.indexOf (key);
    if (index < 0)
        index = counters.addKey (key);
    counters.valueAt (index) += delta;
}

juce::PositionableAudioSource* AudioSourceChain::getPositionable()
{
    return proxy.get();
}

AudioSourceChain::PositionableProxy* AudioSourceChain::makePositionable()
{
    if (proxy != nullptr)
        return proxy.get();
    if (head == nullptr || ! head->hasPositionable())
        return nullptr;

    // The length that the proxy shows is the one nearest to the output.
    ParameterDefPtr upstreamLength;
    for (int i = links.size(); --i >= -1 && upstreamLength == nullptr;)
    {
        AudioSourceProvider* provider = i >= 0 ? links.getUnchecked (i).get() : head.get();
        if (provider->hasControllable())
            upstreamLength = provider->getControllable()->findParameter (PositionableProxy::kTotalLength);
    }
    proxy = new PositionableProxy (*this, *head->getPositionable(), upstreamLength.get());
    return proxy.get();
}

void AudioSourceChain::setHead (AudioSourceProvider* provider)
{
    head = provider;
    if (provider != nullptr && provider->hasControllable())
        addTarget (provider->getControllable());
}

void AudioSourceChain::setHeadSource (juce::AudioSource* source, bool owned)
{
    setHead (new AudioSourceProviderAdapter (source, owned));
}

void AudioSourceChain::append (ChainableAudioSourceProvider* provider)
{
    if (provider == nullptr)
        return;
    AudioSourceProvider* previous = links.isEmpty() ? head.get() : links.getLast().get();
    if (previous != nullptr)
        provider->setUpstream (previous->getAudioSource(), previous);
    links.add (provider);
    if (provider->hasControllable())
        addTarget (provider->getControllable());
}

void AudioSourceChain::appendSource (juce::AudioSource* source, bool owned)
{
    append (new ChainableAudioSourceProviderAdapter (source, owned));
}

void AudioSourceChain::setTimeline (AudioEventTimeline* newTimeline)
{
    if (auto* old = getTimeline())
        targets.removeObject (old);
    queue = new AudioEventQueue (newTimeline);
    addTarget (queue->getTimeline());
}

juce::AudioSource* AudioSourceChain::getPulledSource() const
{
    if (! links.isEmpty())
        return links.getLast()->getAudioSource();
    return head != nullptr ? head->getAudioSource() : nullptr;
}

void AudioSourceChain::prepareToPlay (int samplesPerBlockExpected, double newSampleRate)
{
    if (head != nullptr)
        if (auto* s = head->getAudioSource())
            s->prepareToPlay (samplesPerBlockExpected, newSampleRate);
    for (auto* link : links)
        if (auto* s = link->getAudioSource())
            s->prepareToPlay (samplesPerBlockExpected, newSampleRate);
    sampleRate = newSampleRate;
}

void AudioSourceChain::releaseResources()
{
    if (head != nullptr)
        if (auto* s = head->getAudioSource())
            s->releaseResources();
    for (auto* link : links)
        if (auto* s = link->getAudioSource())
            s->releaseResources();
}

void AudioSourceChain::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    counters.valueAt (chainCounterIndex) = 0;
    auto* source = getPulledSource();
    // A zero-sample block renders nothing, fires nothing and advances nothing.
    if (source == nullptr || info.numSamples <= 0)
        return;
    blockStarting (info.numSamples);

    juce::AudioSourceChannelInfo rest (info.buffer, info.startSample, info.numSamples);
    int eventsWithoutAudio = 0;
    for (;;)
    {
        int samplesUntil = -1;
        AudioEventPtr event = queue != nullptr ? queue->next (samplesUntil) : nullptr;

        // An event at or beyond the end of the block belongs to a later one.
        if (event == nullptr || samplesUntil >= rest.numSamples || eventsWithoutAudio >= kMaxEventsWithoutAudio)
        {
            renderSegment (rest, source, rest.numSamples);
            return;
        }
        if (samplesUntil > 0)
        {
            renderSegment (rest, source, samplesUntil);
            rest.startSample += samplesUntil;
            rest.numSamples -= samplesUntil;
            eventsWithoutAudio = 0;
        }
        applyEvent (event.get(), source);
        ++eventsWithoutAudio;
    }
}

void AudioSourceChain::renderSegment (const juce::AudioSourceChannelInfo& info, juce::AudioSource* source,
                                      int numSamples)
{
    if (numSamples <= 0)
        return;
    const juce::AudioSourceChannelInfo segment (info.buffer, info.startSample, numSamples);
    source->getNextAudioBlock (segment);
    counters.valueAt (chainCounterIndex) += numSamples;
    if (auto* timeline = getTimeline())
        timeline->advance (numSamples);
    segmentRendered (numSamples);
}

void AudioSourceChain::applyEvent (AudioEvent* event, juce::AudioSource* source)
{
    juce::ignoreUnused (source);
    // Held for the call: the event may leave its queue while it works, and
    // the queue then keeps the last reference (it never dies here).
    const AudioEventPtr holder (event);
    event->fire();
    eventApplied (event);
}

//==============================================================================
AudioSourceChain::PositionableProxy::PositionableProxy (AudioSourceChain& owner,
                                                        juce::PositionableAudioSource& headPositionable,
                                                        ParameterDef* upstreamTotalLength)
    : chain (owner), positionable (headPositionable), watchedTotalLength (upstreamTotalLength)
{
    addParameter (nextReadPosition.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (totalLength.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    positionValue.connect (nextReadPosition->getValue().get());
    lengthValue.connect (totalLength->getValue().get());
    if (watchedTotalLength != nullptr)
    {
        watchedTotalLength->addChangeListener (this, true);
        lengthValue.setNotifying (watchedTotalLength->getValue()->getInt());
    }
}

AudioSourceChain::PositionableProxy::~PositionableProxy()
{
    if (watchedTotalLength != nullptr)
        watchedTotalLength->removeChangeListener (this, true);
}

void AudioSourceChain::PositionableProxy::publishPosition()
{
    // The framework's positions are 32-bit: the low bits of the head's.
    positionValue.setNotifying ((int) positionable.getNextReadPosition());
}

void AudioSourceChain::PositionableProxy::prepareToPlay (int samplesPerBlockExpected, double sampleRate)
{
    chain.prepareToPlay (samplesPerBlockExpected, sampleRate);
    publishPosition();
    lengthValue.setNotifying ((int) positionable.getTotalLength());
}

void AudioSourceChain::PositionableProxy::releaseResources()
{
    chain.releaseResources();
}

void AudioSourceChain::PositionableProxy::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    const int wanted = nextReadPosition.read();
    if ((juce::int64) wanted != positionable.getNextReadPosition())
        positionable.setNextReadPosition (wanted);
    chain.getNextAudioBlock (info);
    publishPosition();
}

void AudioSourceChain::PositionableProxy::setNextReadPosition (juce::int64 newPosition)
{
    positionable.setNextReadPosition (newPosition);
    publishPosition();
}

void AudioSourceChain::PositionableProxy::parameterChanged (ParameterDef* parameter)
{
    if (parameter == watchedTotalLength.get())
        lengthValue.setNotifying (parameter->getValue()->getInt());
}

//==============================================================================
BlockSizeLimitingSource::BlockSizeLimitingSource()
{
    maxBlockSize.minimum = 1;
    maxBlockSize.maximum = 1024;
    maxBlockSize.defaultValue = 1024;
    addParameter (maxBlockSize.getParameter());
}

void BlockSizeLimitingSource::prepareToPlay (int samplesPerBlockExpected, double sampleRate)
{
    // The upstream is prepared by the chain that owns both.
    juce::ignoreUnused (samplesPerBlockExpected, sampleRate);
}

void BlockSizeLimitingSource::releaseResources() {}

void BlockSizeLimitingSource::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    auto* upstream = getUpstreamSource();
    if (upstream == nullptr)
    {
        info.clearActiveBufferRegion();
        return;
    }
    const int limit = maxBlockSize.read();
    if (limit <= 0 || info.numSamples <= limit)
    {
        upstream->getNextAudioBlock (info);
        return;
    }
    juce::AudioSourceChannelInfo piece (info.buffer, info.startSample, 0);
    int remaining = info.numSamples;
    while (remaining > 0)
    {
        piece.numSamples = juce::jmin (limit, remaining);
        upstream->getNextAudioBlock (piece);
        piece.startSample += piece.numSamples;
        remaining -= piece.numSamples;
    }
}
} // namespace qvrControllableAudio
