#include "audio/MemoryAudioSource.h"

#include "controllable/api/Parameter.h"

namespace qvrControllableAudio
{
namespace
{
// The low 32 bits, as the int parameter keeps them.
int low32 (juce::int64 position) noexcept
{
    return (int) (juce::uint32) (juce::uint64) position;
}
} // namespace

MemoryAudioSource::MemoryAudioSource()
{
    nextReadPosition.defaultValue = 0;
    totalLength.defaultValue = 0;
    sourceLooping.defaultValue = false;
    // Position and length are playback state, not settings.
    addParameter (nextReadPosition.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (totalLength.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (sourceLooping.getParameter());
}

MemoryAudioSource::~MemoryAudioSource() = default;

void MemoryAudioSource::prepareToPlay (int, double) {}

void MemoryAudioSource::releaseResources() {}

void MemoryAudioSource::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    bool moved = false;
    {
        const juce::ScopedLock sl (lock);
        moved = renderLocked (info);
    }
    if (moved)
        signalPositionChanged();
}

bool MemoryAudioSource::renderLocked (const juce::AudioSourceChannelInfo& info)
{
    // Written and read only under the source's lock here; the atomic is for
    // the readers outside it.
    auto* position = nextReadPosition.getRaw();
    const int startPosition = *position;
    const int length = buffer != nullptr ? buffer->getNumSamples() : 0;
    const int sourceChannels = buffer != nullptr ? buffer->getNumChannels() : 0;

    if (length <= 0 || sourceChannels <= 0)
    {
        info.clearActiveBufferRegion();
        return false;
    }

    const bool looping = sourceLooping.read();
    auto& destination = *info.buffer;
    const int destinationChannels = destination.getNumChannels();
    int start = info.startSample;
    int remaining = info.numSamples;

    while (remaining > 0)
    {
        // 64-bit arithmetic, so a position near the int limit wraps like the
        // parameter does instead of overflowing.
        juce::int64 readPosition = *position;
        if (looping)
            readPosition = ((readPosition % length) + length) % length;

        if (readPosition < 0)
        {
            // Before the start: silence up to sample 0.
            const int silent = (int) juce::jmin ((juce::int64) remaining, -readPosition);
            for (int channel = 0; channel < destinationChannels; ++channel)
                destination.clear (channel, start, silent);
            *position = low32 (readPosition + silent);
            start += silent;
            remaining -= silent;
            continue;
        }

        const int n = (int) juce::jmin ((juce::int64) remaining, juce::jmax ((juce::int64) 0, length - readPosition));
        for (int channel = 0; channel < destinationChannels && n > 0; ++channel)
            destination.copyFrom (channel, start, *buffer, channel % sourceChannels, (int) readPosition, n);
        *position = low32 (readPosition + n);
        start += n;
        remaining -= n;

        if (! looping)
        {
            // Past the end the position runs on by what is left of the block.
            if (remaining > 0)
            {
                for (int channel = 0; channel < destinationChannels; ++channel)
                    destination.clear (channel, start, remaining);
                *position = low32 ((juce::int64) *position + remaining);
            }
            break;
        }
    }
    return *position != startPosition;
}

void MemoryAudioSource::signalPositionChanged()
{
    nextReadPosition->notifyChanged (false, false);
}

void MemoryAudioSource::setNextReadPosition (juce::int64 newPosition)
{
    bool moved = false;
    {
        const juce::ScopedLock sl (lock);
        moved = nextReadPosition.read() != low32 (newPosition);
        nextReadPosition.store (low32 (newPosition));
    }
    if (moved)
        signalPositionChanged();
}

juce::int64 MemoryAudioSource::getNextReadPosition() const
{
    return nextReadPosition.read();
}

juce::int64 MemoryAudioSource::getTotalLength() const
{
    return totalLength.read();
}

bool MemoryAudioSource::isLooping() const
{
    return sourceLooping.read();
}

void MemoryAudioSource::setBuffer (juce::AudioSampleBuffer* newBuffer, bool deleteOld)
{
    juce::AudioSampleBuffer* oldBuffer = nullptr;
    int oldLength = 0, oldPosition = 0;
    const int newLength = newBuffer != nullptr ? newBuffer->getNumSamples() : 0;
    {
        const juce::ScopedLock sl (lock);
        oldBuffer = buffer;
        buffer = newBuffer;
        oldLength = totalLength.read();
        oldPosition = nextReadPosition.read();
        totalLength.store (newLength);
        nextReadPosition.store (0);
    }
    if (deleteOld && oldBuffer != newBuffer)
        delete oldBuffer;
    if (oldLength != newLength)
        totalLength->notifyChanged (false, false);
    if (oldPosition != 0)
        signalPositionChanged();
}

void MemoryAudioSource::saveCrossfadeState()
{
    const juce::ScopedLock sl (lock);
    inCrossfade = true;
    savedPosition = nextReadPosition.read();
}

void MemoryAudioSource::restoreCrossfadeState()
{
    {
        const juce::ScopedLock sl (lock);
        inCrossfade = false;
        nextReadPosition.store (savedPosition);
    }
    signalPositionChanged();
}
} // namespace qvrControllableAudio
