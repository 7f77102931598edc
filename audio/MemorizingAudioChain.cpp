#include "audio/MemorizingAudioChain.h"

#include <cstring>

namespace qvrControllableAudio
{
MemorizingAudioChain::MemorizingAudioChain (int capacitySamples)
    : memorySize (capacitySamples > 0 ? juce::nextPowerOfTwo (capacitySamples) : 0)
{
    for (auto& ring : memoryRings)
    {
        ring.size = memorySize;
        ring.mask = memorySize - 1;
        if (memorySize > 0)
            ring.samples.calloc ((size_t) memorySize); // silence
    }
}

MemorizingAudioChain::~MemorizingAudioChain() = default;

int MemorizingAudioChain::getPendingReplay() const noexcept
{
    if (memorySize == 0)
        return 0;
    const auto& ring = memoryRings[0];
    return (ring.writeIndex - ring.readIndex + ring.size) & ring.mask;
}

bool MemorizingAudioChain::checkInvariants() const noexcept
{
    if (memorySize == 0)
        return memoryFill == 0;
    const auto& a = memoryRings[0];
    const auto& b = memoryRings[1];
    return a.readIndex == b.readIndex && a.writeIndex == b.writeIndex && juce::isPowerOfTwo (memorySize)
           && memoryFill >= 0 && memoryFill < memorySize && getPendingReplay() <= memoryFill;
}

void MemorizingAudioChain::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    if (memorySize == 0 || info.numSamples <= 0)
    {
        EventCrossfadeAudioChain::getNextAudioBlock (info);
        return;
    }

    const int m = juce::jmin (getPendingReplay(), memoryFill, info.numSamples);
    if (m > 0)
        replay (juce::AudioSourceChannelInfo (info.buffer, info.startSample, m));

    const juce::AudioSourceChannelInfo fresh (info.buffer, info.startSample + m, info.numSamples - m);
    if (fresh.numSamples > 0)
    {
        EventCrossfadeAudioChain::getNextAudioBlock (fresh);
        memorise (fresh);
    }
    jassert (checkInvariants());
}

void MemorizingAudioChain::replay (const juce::AudioSourceChannelInfo& info) noexcept
{
    const int n = info.numSamples;
    const int channels = info.buffer->getNumChannels();
    for (int c = 0; c < channels; ++c)
    {
        if (c >= 2)
        {
            info.buffer->clear (c, info.startSample, n);
            continue;
        }
        auto& ring = memoryRings[c];
        auto* out = info.buffer->getWritePointer (c, info.startSample);
        const int first = juce::jmin (n, ring.size - ring.readIndex);
        std::memcpy (out, ring.samples + ring.readIndex, sizeof (float) * (size_t) first);
        std::memcpy (out + first, ring.samples.get(), sizeof (float) * (size_t) (n - first));
    }
    for (auto& ring : memoryRings)
        ring.readIndex = (ring.readIndex + n) & ring.mask;
}

void MemorizingAudioChain::memorise (const juce::AudioSourceChannelInfo& fresh) noexcept
{
    const int n = fresh.numSamples;
    const int channels = fresh.buffer->getNumChannels();
    // Of a block longer than the ring only its end can be kept.
    const int kept = juce::jmin (n, memorySize);
    const int skipped = n - kept;
    for (int c = 0; c < 2; ++c)
    {
        auto& ring = memoryRings[c];
        if (channels > 0)
        {
            // A mono block feeds both rings.
            const auto* in = fresh.buffer->getReadPointer (juce::jmin (c, channels - 1), fresh.startSample + skipped);
            const int w = (ring.writeIndex + skipped) & ring.mask;
            const int first = juce::jmin (kept, ring.size - w);
            std::memcpy (ring.samples + w, in, sizeof (float) * (size_t) first);
            std::memcpy (ring.samples.get(), in + first, sizeof (float) * (size_t) (kept - first));
        }
        ring.writeIndex = (ring.writeIndex + n) & ring.mask;
        ring.readIndex = ring.writeIndex;
    }
    memoryFill = juce::jmin (memoryFill + n, memorySize - 1);
}

void MemorizingAudioChain::rewindMemory (int numSamples) noexcept
{
    if (memorySize == 0 || numSamples <= 0)
        return;
    // A rewind still waiting to be replayed counts against what is held.
    if (getPendingReplay() + numSamples > memoryFill)
        return;
    for (auto& ring : memoryRings)
        ring.readIndex = (ring.size - numSamples + ring.readIndex) & ring.mask;
}

void MemorizingAudioChain::dropMemory (int numSamples)
{
    if (memorySize == 0)
        return;
    for (auto& ring : memoryRings)
        ring.readIndex = (ring.writeIndex + ring.size) & ring.mask;
    const int held = memoryFill;
    memoryFill = 0;
    rewind (juce::jmin (numSamples, held));
}
} // namespace qvrControllableAudio
