#pragma once

#include <cstring>
#include <vector>

#include "audio/AbstractAudioEvent.h"
#include "audio/CrossfadableSource.h"
#include "tests/audio/AudioSourceTestSupport.h"

// Small sources and events for the chain tests. Each renders as a pure
// function of its state, so the same state gives the same bits whatever the
// block size.
namespace tavrine::test
{
using namespace qvrControllableAudio;

class TestSource : public juce::AudioSource
{
public:
    void prepareToPlay (int, double) override {}
    void releaseResources() override {}
};

// A seekable signal without repeats to speak of (a hash of the position,
// different per channel). Crossfadable: saves and restores its position.
class HashSource : public juce::PositionableAudioSource,
                   public CrossfadableSource
{
public:
    static float valueAt (juce::int64 position, int channel) noexcept
    {
        auto h = (juce::uint32) (position * 2654435761u + (juce::uint32) channel * 40503u);
        return (float) ((h ^ (h >> 15)) & 0xffff) / 32768.0f - 1.0f;
    }

    void prepareToPlay (int, double) override {}
    void releaseResources() override {}
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override
    {
        for (int c = 0; c < info.buffer->getNumChannels(); ++c)
            for (int i = 0; i < info.numSamples; ++i)
                info.buffer->setSample (c, info.startSample + i, valueAt (position + i, c));
        position += info.numSamples;
        samplesRenderedInCrossfade += inCrossfade ? info.numSamples : 0;
    }
    void setNextReadPosition (juce::int64 p) override { position = p; }
    juce::int64 getNextReadPosition() const override { return position; }
    juce::int64 getTotalLength() const override { return 1 << 30; }
    bool isLooping() const override { return false; }
    void saveCrossfadeState() override { saved = position, ++saves; }
    void restoreCrossfadeState() override { position = saved; }

    juce::int64 position = 0, saved = 0;
    int saves = 0, samplesRenderedInCrossfade = 0;
};

// A gain set by events, with no ramp. As a head it plays `gain` itself.
class ScaleSource : public TestSource
{
public:
    explicit ScaleSource (bool* deletedFlag = nullptr, bool isHead = false) : deleted (deletedFlag), head (isHead) {}
    ~ScaleSource() override
    {
        if (deleted != nullptr)
            *deleted = true;
    }
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override
    {
        for (int c = 0; c < info.buffer->getNumChannels(); ++c)
        {
            auto* x = info.buffer->getWritePointer (c, info.startSample);
            head ? juce::FloatVectorOperations::fill (x, gain, info.numSamples)
                 : juce::FloatVectorOperations::multiply (x, gain, info.numSamples);
        }
    }
    float gain = 1.0f;

private:
    bool* deleted;
    bool head;
};

// A filter with a memory (one-pole low-pass), crossfadable; records what it
// produces outside crossfades while `recording`.
class OnePoleSource : public TestSource,
                      public CrossfadableSource
{
public:
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override
    {
        for (int c = 0; c < 2; ++c)
            for (int i = 0; i < info.numSamples; ++i)
            {
                auto& x = info.buffer->getWritePointer (c, info.startSample)[i];
                x = state[c] = state[c] + 0.125f * (x - state[c]);
                if (recording && ! inCrossfade && c == 0)
                    heard.push_back (x);
            }
    }
    void saveCrossfadeState() override { std::copy (state, state + 2, saved); }
    void restoreCrossfadeState() override { std::copy (saved, saved + 2, state); }

    float state[2] {}, saved[2] {};
    bool recording = false;
    std::vector<float> heard;
};

// Records the length of every piece it is asked for.
class ProbeSource : public TestSource
{
public:
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override
    {
        segments.push_back (info.numSamples);
        received += info.numSamples;
    }
    std::vector<int> segments;
    int received = 0;
};

class TestEvent : public AbstractAudioEvent
{
public:
    TestEvent (int priority, double time, std::function<void (TestEvent&)> work = {})
        : AbstractAudioEvent (priority, "TestEvent", time), body (std::move (work))
    {
    }
    void process() override
    {
        ++fires;
        if (body)
            body (*this);
    }
    int fires = 0;

private:
    std::function<void (TestEvent&)> body;
};

using TestEventPtr = juce::ReferenceCountedObjectPtr<TestEvent>;

inline bool bitIdentical (const juce::AudioBuffer<float>& a, const juce::AudioBuffer<float>& b, int startA = 0,
                          int startB = 0, int length = -1)
{
    length = length < 0 ? a.getNumSamples() : length;
    for (int c = 0; c < 2; ++c)
        if (std::memcmp (a.getReadPointer (c, startA), b.getReadPointer (c, startB), sizeof (float) * (size_t) length)
            != 0)
            return false;
    return true;
}
} // namespace tavrine::test
