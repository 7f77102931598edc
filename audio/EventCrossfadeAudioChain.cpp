#include "audio/EventCrossfadeAudioChain.h"

#include "audio/CrossfadableSourceAdapters.h"

namespace qvrControllableAudio
{
EventCrossfadeAudioChain::EventCrossfadeAudioChain()
{
    crossfadeBufferSize.minimum = 0;
    crossfadeBufferSize.maximum = kMaxCrossfadeSamples;
    crossfadeBufferSize.defaultValue = kDefaultCrossfadeSamples;
    resizeCrossfadeBuffer();
    crossfadeBufferSize->addChangeListener (&sizeListener, true);
}

EventCrossfadeAudioChain::~EventCrossfadeAudioChain()
{
    crossfadeBufferSize->removeChangeListener (&sizeListener, true);
}

void EventCrossfadeAudioChain::resizeCrossfadeBuffer()
{
    const int size = juce::jlimit (0, kMaxCrossfadeSamples, crossfadeBufferSize.read());
    crossfadeBuffer.setSize (2, size, false, true, true);
}

void EventCrossfadeAudioChain::prepareToPlay (int samplesPerBlockExpected, double newSampleRate)
{
    resizeCrossfadeBuffer();
    crossfadeRemaining = 0;
    crossfadeLength = 0;
    for (auto& ring : edgeMemory)
        ring.fill (0.0f);
    edgeWriteIndex = 0;
    AudioSourceChain::prepareToPlay (juce::jmax (samplesPerBlockExpected, crossfadeBuffer.getNumSamples()),
                                     newSampleRate);
}

void EventCrossfadeAudioChain::releaseResources()
{
    AudioSourceChain::releaseResources();
    crossfadeRemaining = 0;
    for (auto& ring : edgeMemory)
        ring.fill (0.0f);
}

void EventCrossfadeAudioChain::addCrossfadeSourceOf (AudioSourceProvider* provider)
{
    if (provider == nullptr)
        return;
    auto* member = dynamic_cast<CrossfadableSource*> (provider);
    if (member == nullptr)
        member = dynamic_cast<CrossfadableSource*> (provider->getAudioSource());
    if (member != nullptr && ! crossfadeSources.contains (member))
        crossfadeSources.add (member);
}

void EventCrossfadeAudioChain::rebuildCrossfadeSources()
{
    crossfadeSources.clearQuick();
    addCrossfadeSourceOf (getHead());
    for (int i = 0; i < getNumLinks(); ++i)
        addCrossfadeSourceOf (getLink (i));
}

void EventCrossfadeAudioChain::setHead (AudioSourceProvider* provider)
{
    AudioSourceChain::setHead (provider);
    rebuildCrossfadeSources();
}

void EventCrossfadeAudioChain::setHeadSource (juce::AudioSource* source, bool owned)
{
    setHead (new CrossfadableRootSourceAdapter (source, owned));
}

void EventCrossfadeAudioChain::append (ChainableAudioSourceProvider* provider)
{
    AudioSourceChain::append (provider);
    rebuildCrossfadeSources();
}

void EventCrossfadeAudioChain::appendSource (juce::AudioSource* source, bool owned)
{
    append (new CrossfadableFilterSourceAdapter (source, owned));
}

void EventCrossfadeAudioChain::setTimeline (AudioEventTimeline* newTimeline)
{
    AudioSourceChain::setTimeline (newTimeline);
    if (sizePublished)
        return;
    // A constant of the chain rather than user state: kept out of saved state.
    controllable->addParameter (crossfadeBufferSize.getParameter(),
                                qvrControllableLib::ParameterPersistence::transient);
    sizePublished = true;
}

void EventCrossfadeAudioChain::applyEvent (AudioEvent* event, juce::AudioSource* source)
{
    const int length = juce::jmin (crossfadeBufferSize.read(), crossfadeBuffer.getNumSamples());
    if (length > 0 && crossfadeRemaining == 0)
    {
        crossfadeBuffer.clear();
        for (auto* member : crossfadeSources)
            member->saveCrossfadeState();
        // What would have played had the event not fired.
        source->getNextAudioBlock (juce::AudioSourceChannelInfo (&crossfadeBuffer, 0, length));
        for (auto* member : crossfadeSources)
            member->restoreCrossfadeState();

        for (int c = 0; c < crossfadeBuffer.getNumChannels(); ++c)
        {
            auto* old = crossfadeBuffer.getWritePointer (c);
            for (int i = 0; i < length; ++i)
                old[i] *= (float) (length - i) / (float) length;
        }
        crossfadeLength = length;
        crossfadeRemaining = length;
    }
    AudioSourceChain::applyEvent (event, source);
}

void EventCrossfadeAudioChain::mixFade (juce::AudioBuffer<float>& buffer, int startSample, int numSamples) noexcept
{
    const int done = crossfadeLength - crossfadeRemaining;
    const int channels = juce::jmin (buffer.getNumChannels(), crossfadeBuffer.getNumChannels());
    for (int c = 0; c < channels; ++c)
    {
        auto* out = buffer.getWritePointer (c, startSample);
        const auto* old = crossfadeBuffer.getReadPointer (c, done);
        // The gain of each sample depends on its place in the fade alone
        // (note 1): no running increment that a cut could change.
        for (int i = 0; i < numSamples; ++i)
            out[i] = out[i] * ((float) (done + i) / (float) crossfadeLength) + old[i];
    }
}

void EventCrossfadeAudioChain::renderSegment (const juce::AudioSourceChannelInfo& info, juce::AudioSource* source,
                                              int numSamples)
{
    if (numSamples <= 0)
        return;
    juce::AudioSourceChannelInfo rest (info.buffer, info.startSample, numSamples);
    if (crossfadeRemaining > 0)
    {
        const int m = juce::jmin (crossfadeRemaining, numSamples);
        AudioSourceChain::renderSegment (rest, source, m);
        mixFade (*info.buffer, rest.startSample, m);
        crossfadeRemaining -= m;
        rest.startSample += m;
        rest.numSamples -= m;
    }
    if (rest.numSamples > 0)
        AudioSourceChain::renderSegment (rest, source, rest.numSamples);
    rememberEdge (*info.buffer, info.startSample, numSamples);
}

void EventCrossfadeAudioChain::rememberEdge (const juce::AudioBuffer<float>& buffer, int startSample,
                                             int numSamples) noexcept
{
    const int n = juce::jmin (numSamples, kEdgeSamples);
    const int first = startSample + numSamples - n;
    const int channels = juce::jmin (buffer.getNumChannels(), (int) edgeMemory.size());
    for (int i = 0; i < n; ++i)
    {
        for (int c = 0; c < channels; ++c)
            edgeMemory[(size_t) c][(size_t) edgeWriteIndex] = buffer.getSample (c, first + i);
        edgeWriteIndex = (edgeWriteIndex + 1) % kEdgeSamples;
    }
}

float EventCrossfadeAudioChain::getEdgeSample (int channel, int age) const noexcept
{
    if (! juce::isPositiveAndBelow (channel, (int) edgeMemory.size()) || ! juce::isPositiveAndBelow (age, kEdgeSamples))
        return 0.0f;
    const int index = (edgeWriteIndex - 1 - age + 2 * kEdgeSamples) % kEdgeSamples;
    return edgeMemory[(size_t) channel][(size_t) index];
}
} // namespace qvrControllableAudio
