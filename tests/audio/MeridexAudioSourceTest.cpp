#include <cmath>
#include <gtest/gtest.h>

#include "audio/MeridexAudioSource.h"
#include "tests/audio/AudioSourceTestSupport.h"

using qvrControllableAudio::MeridexAudioSource;
using namespace tavrine::test;

namespace
{
// Renders `seconds` of the source in 128-sample blocks.
juce::AudioBuffer<float> renderSeconds (MeridexAudioSource& source, double seconds)
{
    return render (source, 2, (int) (seconds * 44100.0 / 128.0) * 128, 128);
}

// Frequency of channel 0 from rising zero crossings, skipping the start-up.
double measureFrequency (const juce::AudioBuffer<float>& audio, int skip)
{
    const auto* x = audio.getReadPointer (0);
    int crossings = 0, first = 0, last = 0;
    for (int i = skip + 1; i < audio.getNumSamples(); ++i)
        if (x[i - 1] < 0.0f && x[i] >= 0.0f)
        {
            first = crossings++ == 0 ? i : first;
            last = i;
        }
    return crossings > 1 ? 44100.0 * (crossings - 1) / (double) (last - first) : 0.0;
}

struct StretchRig
{
    explicit StretchRig (bool bypassWhenNeutral = true) : source (new MeridexAudioSource (bypassWhenNeutral))
    {
        source->setUpstream (&sine, nullptr);
        source->meridexProcMode.write ("Efficient V3");
        source->prepareToPlay (128, 44100.0);
    }
    SineSource sine;
    juce::ReferenceCountedObjectPtr<MeridexAudioSource> source;
};
} // namespace

TEST (MeridexAudioSource, NearlyNeutralFactorsPassTheUpstreamThroughUntouched)
{
    StretchRig rig;
    rig.source->stretchFactor.write (1.0005);
    const auto out = renderSeconds (*rig.source, 0.2);
    SineSource reference;
    EXPECT_TRUE (sameSamples (out, render (reference, 2, out.getNumSamples(), 4096)));
    EXPECT_EQ (rig.source->meridexReadAhead.read(), 0.0);
}

TEST (MeridexAudioSource, StretchAndPitchReachTheEngineAndTwiceAsLongReadsHalfTheInput)
{
    StretchRig rig;
    rig.source->stretchFactor.write (2.0);
    rig.source->pitchSemitones->getValue()->setFloat (7.0);
    const auto out = renderSeconds (*rig.source, 2.0);
    const double expectedHz = 441.0 * std::pow (2.0, 7.0 / 12.0);
    EXPECT_NEAR (measureFrequency (out, 8192), expectedHz, expectedHz * 0.003);
    // Two seconds out need about one second in, plus what the engine holds.
    const double heldAhead = rig.source->meridexReadAhead.read();
    EXPECT_NEAR ((double) rig.sine.pulled - heldAhead, out.getNumSamples() / 2.0, 2.0);
    EXPECT_GT (heldAhead, 0.0);
}

TEST (MeridexAudioSource, AModeChangeRebuildsTheEngineAndClearsTheReadAhead)
{
    StretchRig rig;
    rig.source->stretchFactor.write (1.5);
    renderSeconds (*rig.source, 0.3);
    ASSERT_GT (rig.source->meridexReadAhead.read(), 0.0);
    rig.source->meridexProcMode.write ("Pro V3");
    juce::AudioBuffer<float> buffer (2, 128);
    rig.source->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    // "Pro V3" is not built: the engine that runs is the "Efficient V3" fallback.
    EXPECT_EQ (rig.source->getEngineMode(), 11);
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
    renderSeconds (*rig.source, 0.1);
    rig.source->restoreCrossfadeState();
    EXPECT_EQ (rig.sine.position, 0);
    EXPECT_EQ (rig.source->meridexReadAhead.read(), 0.0);
}

// Requested mode, and the engine that runs for it in this build.
struct ModeCase
{
    const char* requested;
    int engineMode;
};

class MeridexAudioSourceModes : public ::testing::TestWithParam<ModeCase>
{};

// A fallback engine must not be taken for a change of mode on every block.
TEST_P (MeridexAudioSourceModes, ReportsTheEngineInUseAndAllocatesNothingOnceItIsBuilt)
{
    StretchRig rig;
    rig.source->meridexProcMode.write (GetParam().requested);
    rig.source->stretchFactor.write (1.25);
    renderSeconds (*rig.source, 0.05);
    EXPECT_EQ (rig.source->getEngineMode(), GetParam().engineMode);

    juce::AudioBuffer<float> buffer (2, 512);
    const ScopedAllocationCount count;
    for (int i = 0; i < 100; ++i)
    {
        rig.source->stretchFactor.write (0.8 + 0.01 * (i % 40));
        rig.source->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    }
    EXPECT_EQ (count.count(), 0u);
    EXPECT_EQ (rig.source->getEngineMode(), GetParam().engineMode);
}

INSTANTIATE_TEST_SUITE_P (BuiltAndFallback, MeridexAudioSourceModes,
                          ::testing::Values (ModeCase { "Efficient V3", 11 }, ModeCase { "Pro V3", 11 },
                                             ModeCase { "Pro", 11 }));

TEST (MeridexAudioSource, FramesNeededForOneBlockFollowTheFactors)
{
    const std::pair<double, double> factors[] = {
        { 1.0, 1.0 }, { 0.5, 1.0 }, { 0.5, 2.0 }, { 3.0, 0.5 }, { 1.0, 1.0 }
    };
    MeridexAudioSource source (true);
    for (const auto& [stretch, pitch] : factors)
    {
        source.stretchFactor.write (stretch);
        source.pitchFactor.write (pitch);
        MeridexAudioSource fresh (true);
        fresh.stretchFactor.write (stretch);
        fresh.pitchFactor.write (pitch);
        SCOPED_TRACE (juce::String (stretch) + " x " + juce::String (pitch));
        EXPECT_EQ (source.getFramesNeededForOneBlock(), fresh.getFramesNeededForOneBlock());
    }
    // Half as long needs more input.
    const int neutral = source.getFramesNeededForOneBlock();
    source.stretchFactor.write (0.5);
    EXPECT_GT (source.getFramesNeededForOneBlock(), neutral);
}
