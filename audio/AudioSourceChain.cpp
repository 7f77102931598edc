#include "audio/AudioSourceChain.h"

namespace qvrControllableAudio
{
AudioSourceChain::AudioSourceChain()
    : controllable (new qvrControllableLib::DispatchingControllable (new qvrControllableLib::ForwardToFirstStrategy(),
                                                                     this))
{
}

AudioSourceChain::~AudioSourceChain() = default;

void AudioSourceChain::addTarget (Controllable* target)
{
    if (target != nullptr && ! targets.contains (target))
        targets.add (target);
}

void AudioSourceChain::setHead (AudioSourceProvider* provider)
{
    head = provider;
    if (provider != nullptr && provider->hasControllable())
        addTarget (provider->getControllable());
}

void AudioSourceChain::append (ChainableAudioSourceProvider* provider)
{
    AudioSourceProvider* previous = links.isEmpty() ? head.get() : links.getLast().get();
    if (previous != nullptr)
        provider->setUpstream (previous->getAudioSource(), previous);
    links.add (provider);
    if (provider->hasControllable())
        addTarget (provider->getControllable());
}

void AudioSourceChain::setTimeline (AudioEventTimeline* newTimeline)
{
    if (timeline != nullptr)
        targets.removeObject (timeline.get());
    timeline = newTimeline;
    addTarget (newTimeline);
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
    auto* source = getPulledSource();
    if (source == nullptr || info.numSamples <= 0)
        return;
    renderSegment (info, source, info.numSamples);
}

void AudioSourceChain::renderSegment (const juce::AudioSourceChannelInfo& info, juce::AudioSource* source,
                                      int numSamples)
{
    juce::AudioSourceChannelInfo segment (info.buffer, info.startSample, numSamples);
    source->getNextAudioBlock (segment);
    if (timeline != nullptr)
        timeline->advance (numSamples);
    segmentRendered (numSamples);
}

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
