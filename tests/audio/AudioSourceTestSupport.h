#pragma once

#include <cmath>
#include <functional>
#include <thread>

#include <juce_audio_basics/juce_audio_basics.h>

#include "audio/AudioSourceProvider.h"
#include "audio/FilteringAudioSourceWrapper.h"
#include "audio/MemoryAudioSource.h"
#include "tests/support/AllocationCounter.h"

// Signals, block rendering and hand-made links for the tests of the audio
// graph's sources.
namespace tavrine::test
{
inline juce::AudioBuffer<float> makeSine (int channels, int length, double hz, float amplitude = 0.5f)
{
    juce::AudioBuffer<float> b (channels, length);
    for (int i = 0; i < length; ++i)
        for (int c = 0; c < channels; ++c)
            b.setSample (c, i, amplitude * (float) std::sin (2.0 * juce::MathConstants<double>::pi * hz * i / 44100.0));
    return b;
}

// Seeded noise in -0.5..0.5, different on every channel.
inline juce::AudioBuffer<float> makeNoise (int channels, int length, juce::int64 seed)
{
    juce::Random random (seed);
    juce::AudioBuffer<float> b (channels, length);
    for (int c = 0; c < channels; ++c)
        for (int i = 0; i < length; ++i)
            b.setSample (c, i, random.nextFloat() - 0.5f);
    return b;
}

inline juce::AudioBuffer<float> makeConstant (int channels, int length, float value)
{
    juce::AudioBuffer<float> b (channels, length);
    for (int c = 0; c < channels; ++c)
        juce::FloatVectorOperations::fill (b.getWritePointer (c), value, length);
    return b;
}

// A seekable sine of amplitude 0.5 at `hz` for 44100 Hz, the same on every
// channel; counts what it is asked for and remembers the rate it was prepared at.
class SineSource : public juce::PositionableAudioSource
{
public:
    explicit SineSource (double hz = 441.0) : frequency (hz) {}
    void prepareToPlay (int, double rate) override { preparedRate = rate; }
    void releaseResources() override {}
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override
    {
        for (int i = 0; i < info.numSamples; ++i, ++position)
        {
            const auto v = (float) (0.5
                                    * std::sin (2.0 * juce::MathConstants<double>::pi * frequency * (double) position
                                                / 44100.0));
            for (int c = 0; c < info.buffer->getNumChannels(); ++c)
                info.buffer->setSample (c, info.startSample + i, v);
        }
        pulled += info.numSamples;
    }
    void setNextReadPosition (juce::int64 p) override { position = p; }
    juce::int64 getNextReadPosition() const override { return position; }
    juce::int64 getTotalLength() const override { return 1 << 30; }
    bool isLooping() const override { return false; }

    double frequency, preparedRate = 0.0;
    juce::int64 position = 0, pulled = 0;
};

// Runs `source` in place over `io` in blocks of `block` samples (a head
// overwrites the content, a filter works on it); `beforeBlock` gets each start.
inline void renderInBlocks (juce::AudioSource& source, juce::AudioBuffer<float>& io, int block,
                            const std::function<void (int)>& beforeBlock = {})
{
    for (int start = 0; start < io.getNumSamples(); start += block)
    {
        if (beforeBlock)
            beforeBlock (start);
        source.getNextAudioBlock (
            juce::AudioSourceChannelInfo (&io, start, juce::jmin (block, io.getNumSamples() - start)));
    }
}

inline juce::AudioBuffer<float> render (juce::AudioSource& source, int channels, int length, int block)
{
    juce::AudioBuffer<float> out (channels, length);
    out.clear();
    renderInBlocks (source, out, block);
    return out;
}

inline bool sameSamples (const juce::AudioBuffer<float>& a, const juce::AudioBuffer<float>& b, float tolerance = 0.0f)
{
    if (a.getNumChannels() != b.getNumChannels() || a.getNumSamples() != b.getNumSamples())
        return false;
    for (int c = 0; c < a.getNumChannels(); ++c)
        for (int i = 0; i < a.getNumSamples(); ++i)
            if (std::abs (a.getSample (c, i) - b.getSample (c, i)) > tolerance)
                return false;
    return true;
}

// Runs `work` on a thread standing in for the host's audio thread and
// returns the allocations it made there.
inline std::size_t allocationsOnAudioThread (const std::function<void()>& work)
{
    std::size_t allocations = 0;
    std::thread audio ([&] {
        const ScopedAllocationCount count;
        work();
        allocations = count.count();
    });
    audio.join();
    return allocations;
}

// A head block for a source that produces audio.
class HeadLink : public qvrControllableAudio::AudioSourceProvider
{
public:
    explicit HeadLink (juce::AudioSource& s) : source (s) {}
    juce::AudioSource* getAudioSource() override { return &source; }

private:
    juce::AudioSource& source;
};

// A link for a source that works in place on the block.
class InPlaceLink : public qvrControllableAudio::ChainableAudioSourceProvider
{
public:
    explicit InPlaceLink (juce::AudioSource& filter) : pull (&filter, this) {}
    juce::AudioSource* getAudioSource() override { return &pull; }

private:
    qvrControllableAudio::FilteringAudioSourceWrapper pull;
};

// A memory source over `data` in front of a new `Link` (a chainable provider).
template <typename Link>
struct Fed
{
    explicit Fed (juce::AudioBuffer<float>& data, bool looping = true)
    {
        memory.setBuffer (&data, false);
        memory.sourceLooping.write (looping);
        link->setUpstream (&memory, head.get());
    }
    ~Fed() { link->detachUpstream(); }

    void prepare (int block = 512) { link->getAudioSource()->prepareToPlay (block, 44100.0); }
    juce::AudioBuffer<float> run (int channels, int length, int block = 512)
    {
        return render (*link->getAudioSource(), channels, length, block);
    }

    qvrControllableAudio::MemoryAudioSource memory;
    juce::ReferenceCountedObjectPtr<HeadLink> head { new HeadLink (memory) };
    juce::ReferenceCountedObjectPtr<Link> link { new Link() };
};
} // namespace tavrine::test
