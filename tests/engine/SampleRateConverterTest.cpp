#include <cmath>
#include <gtest/gtest.h>

#include "engine/TavrineEngine.h"
#include "tests/audio/AudioSourceTestSupport.h"

namespace
{
bool isCleanSample (float v)
{
    return std::isfinite (v) && (v == 0.0f || std::abs (v) >= std::numeric_limits<float>::min());
}
} // namespace

class SampleRateConversion : public ::testing::TestWithParam<double>
{};

TEST_P (SampleRateConversion, DeliversEveryHostSampleCleanlyAndPullsTheEngineAtItsOwnRate)
{
    const double hostRate = GetParam();
    tavrine::test::SineSource sine;
    qvrControllableAudio::SampleRateConverter converter (&sine, 44100.0, 2);
    const int block = 480;
    converter.prepareToPlay (block, hostRate);
    EXPECT_EQ (converter.isBypassed(), hostRate == 44100.0);
    EXPECT_DOUBLE_EQ (sine.preparedRate, 44100.0);

    const int seconds = 2;
    const int total = (int) hostRate * seconds;
    juce::AudioBuffer<float> buffer (2, block);
    std::size_t allocations = 0;
    double peak = 0.0;
    int rendered = 0;
    {
        const tavrine::test::ScopedAllocationCount count;
        while (rendered < total)
        {
            const int n = juce::jmin (block, total - rendered);
            buffer.clear();
            converter.getNextAudioBlock (juce::AudioSourceChannelInfo (&buffer, 0, n));
            for (int c = 0; c < 2; ++c)
                for (int i = 0; i < n; ++i)
                {
                    const float v = buffer.getSample (c, i);
                    ASSERT_TRUE (isCleanSample (v)) << "sample " << rendered + i;
                    peak = juce::jmax (peak, (double) std::abs (v));
                }
            rendered += n;
        }
        allocations = count.count();
    }
    EXPECT_EQ (rendered, total);
    EXPECT_EQ (allocations, 0u);
    EXPECT_NEAR (peak, 0.5, 0.02);
    // The engine side ran for the same time at 44100 Hz (give or take the
    // converter's look-ahead).
    EXPECT_NEAR ((double) sine.pulled, 44100.0 * seconds, 64.0);
}

INSTANTIATE_TEST_SUITE_P (HostRates, SampleRateConversion, ::testing::Values (44100.0, 48000.0, 96000.0, 22050.0));

TEST (SampleRateConversion, HostBlocksLargerThanAnnouncedAreCutNotReallocated)
{
    tavrine::test::SineSource sine;
    qvrControllableAudio::SampleRateConverter converter (&sine, 44100.0, 2);
    converter.prepareToPlay (64, 48000.0);
    juce::AudioBuffer<float> buffer (2, 4096);
    const tavrine::test::ScopedAllocationCount count;
    converter.getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
    EXPECT_EQ (count.count(), 0u);
}

TEST (EngineOutput, HandsSilenceToTheHostAtAnyRateAndBlockSize)
{
    for (double rate : { 44100.0, 48000.0, 96000.0 })
        for (int block : { 1, 64, 512, 4096 })
        {
            TavrineEngine engine;
            auto* source = engine.getAudioSource();
            source->prepareToPlay (block, rate);
            // Every bus the host enabled is written, whatever the rate.
            for (int channels : { 2, 32 })
            {
                juce::AudioBuffer<float> buffer (channels, block);
                for (int i = 0; i < 4; ++i)
                {
                    for (int c = 0; c < channels; ++c)
                        juce::FloatVectorOperations::fill (buffer.getWritePointer (c), 1.0e30f, block);
                    source->getNextAudioBlock (juce::AudioSourceChannelInfo (buffer));
                    EXPECT_EQ (buffer.getMagnitude (0, block), 0.0f) << rate << " " << block << " " << channels;
                }
            }
            source->releaseResources();
        }
}
