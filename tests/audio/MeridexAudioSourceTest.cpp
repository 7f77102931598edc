#include <cmath>
#include <gtest/gtest.h>

#include "audio/MeridexAudioSource.h"
#include "tests/support/AllocationCounter.h"

using qvrControllableAudio::MeridexAudioSource;

namespace
{
// A seekable stereo sine whose reads are counted.
class SineUpstream : public juce::PositionableAudioSource
{
public:
    explicit SineUpstream (double hz) : frequency (hz) {}
    void prepareToPlay (int, double) override {}
    void releaseResources() override {}
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override
    {
        for (int i = 0; i < info.numSamples; ++i)
        {
            const auto v = (float) (0.5 * std::sin (2.0 * juce::MathConstants<double>::pi * frequency * (double) position / 44100.0));
            for (int c = 0; c < info.buffer->getNumChannels(); ++c)
                info.buffer->setSample (c, info.startSample + i, v);
            ++position;
        }
        pulled += info.numSamples;
    }
    void setNextReadPosition (juce::int64 p) override { position = p; }
    juce::int64 getNextReadPosition() const override { return position; }
    juce::int64 getTotalLength() const override { return 1 << 30; }
    bool isLooping() const override { return false; }

    double frequency;
    juce::int64 position = 0, pulled = 0;
};

// Renders `seconds` of the source in 128-sample blocks and returns channel 0.
std::vector<float> render (MeridexAudioSource& source, double seconds)
{
    juce::AudioBuffer<float> buffer (2, 128);
    std::vector<float> out;
    const int blocks = (int) (seconds * 44100.0 / 128.0);
    for (int b = 0; b < blocks; ++b)
    {
        source.getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
        out.insert (out.end(), buffer.getReadPointer (0), buffer.getReadPointer (0) + 128);
    }
    return out;
}

// Frequency from rising zero crossings, skipping the start-up.
double measureFrequency (const std::vector<float>& x, size_t skip)
{
    int crossings = 0;
    size_t first = 0, last = 0;
    for (size_t i = skip + 1; i < x.size(); ++i)
        if (x[i - 1] < 0.0f && x[i] >= 0.0f)
        {
            if (crossings == 0)
                first = i;
            last = i;
            ++crossings;
        }
    return crossings > 1 ? 44100.0 * (crossings - 1) / (double) (last - first) : 0.0;
}

struct StretchRig
{
    explicit StretchRig (bool bypassWhenNeutral = true, double hz = 441.0)
        : sine (hz), source (new MeridexAudioSource (bypassWhenNeutral))
    {
        source->setUpstream (&sine, nullptr);
        source->meridexProcMode.write ("Efficient V3");
        source->prepareToPlay (128, 44100.0);
    }
    SineUpstream sine;
    juce::ReferenceCountedObjectPtr<MeridexAudioSource> source;
};
} // namespace

TEST (MeridexAudioSource, ViewsShowThePitchInSemitonesAndCentsAndTheStretchLinearly)
{
    juce::ReferenceCountedObjectPtr<MeridexAudioSource> source (new MeridexAudioSource (true));
    source->pitchSemitones->getValue()->setFloat (12.0);
    EXPECT_NEAR (source->pitchFactor.read(), 2.0, 1e-6);
    EXPECT_NEAR (source->pitchCents->getValue()->getFloat(), 1200.0, 1e-3);
    source->stretchFactor.write (10.0);
    EXPECT_DOUBLE_EQ (source->stretchFactor.read(), 4.0);
    EXPECT_NEAR (source->stretchLinear->getValue()->getFloat(), -std::log10 (4.0), 1e-6);
    EXPECT_EQ (source->meridexProcMode->getValue()->getString(), "Pro");
    EXPECT_EQ (source->meridexProcMode->getDefault()->getString(), "Pro V3");
}

TEST (MeridexAudioSource, NearlyNeutralFactorsPassTheUpstreamThroughUntouched)
{
    StretchRig rig;
    rig.source->stretchFactor.write (1.0005);
    const auto out = render (*rig.source, 0.2);
    SineUpstream reference (441.0);
    juce::AudioBuffer<float> expected (2, (int) out.size());
    reference.getNextAudioBlock (juce::AudioSourceChannelInfo (expected));
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ (out[i], expected.getSample (0, (int) i)) << i;
    EXPECT_EQ (rig.source->meridexReadAhead.read(), 0.0);
}

TEST (MeridexAudioSource, StretchingKeepsThePitchAndReadsHalfAsMuchInput)
{
    StretchRig rig;
    rig.source->stretchFactor.write (2.0);
    const auto out = render (*rig.source, 2.0);
    EXPECT_NEAR (measureFrequency (out, 8192), 441.0, 441.0 * 0.003);
    // Two seconds out need about one second in, plus what the engine holds.
    const double heldAhead = rig.source->meridexReadAhead.read();
    EXPECT_NEAR ((double) rig.sine.pulled - heldAhead, (double) out.size() / 2.0, 2.0);
    EXPECT_GT (heldAhead, 0.0);
}

TEST (MeridexAudioSource, PitchShiftingAnOctaveDoublesTheFrequency)
{
    StretchRig rig;
    rig.source->pitchSemitones->getValue()->setFloat (12.0);
    const auto out = render (*rig.source, 1.5);
    EXPECT_NEAR (measureFrequency (out, 8192), 882.0, 882.0 * 0.003);
}

TEST (MeridexAudioSource, WithoutBypassNeutralFactorsStillRunTheEngine)
{
    StretchRig rig (false);
    render (*rig.source, 0.1);
    EXPECT_EQ (rig.source->getEngineMode(), 11);
    EXPECT_GT (rig.source->meridexReadAhead.read(), 0.0); // the engine's latency shows
}

TEST (MeridexAudioSource, AModeChangeRebuildsTheEngineAndClearsTheReadAhead)
{
    StretchRig rig;
    rig.source->stretchFactor.write (1.5);
    render (*rig.source, 0.3);
    ASSERT_GT (rig.source->meridexReadAhead.read(), 0.0);
    rig.source->meridexProcMode.write ("Pro V3");
    juce::AudioBuffer<float> buffer (2, 128);
    rig.source->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    EXPECT_EQ (rig.source->getEngineMode(), 10);
    // One block of a fresh engine: only what that block read ahead.
    EXPECT_LT (rig.source->meridexReadAhead.read(), 8192.0);
}

TEST (MeridexAudioSource, RestoringWithMoreReadAheadThanPositionSeeksToTheStart)
{
    StretchRig rig;
    rig.source->stretchFactor.write (0.5);
    juce::AudioBuffer<float> buffer (2, 128);
    rig.source->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    rig.source->meridexReadAhead.write ((double) rig.sine.position + 1000.0);
    rig.source->saveCrossfadeState();
    render (*rig.source, 0.1);
    rig.source->restoreCrossfadeState();
    EXPECT_EQ (rig.sine.position, 0);
    EXPECT_EQ (rig.source->meridexReadAhead.read(), 0.0);
}

TEST (MeridexAudioSource, BlocksAllocateNothingOnceTheEngineIsBuilt)
{
    StretchRig rig;
    rig.source->stretchFactor.write (1.25);
    render (*rig.source, 0.05);
    juce::AudioBuffer<float> buffer (2, 512);
    const tavrine::test::ScopedAllocationCount count;
    for (int i = 0; i < 100; ++i)
    {
        rig.source->stretchFactor.write (0.8 + 0.01 * (i % 40));
        rig.source->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    }
    EXPECT_EQ (count.count(), 0u);
}
