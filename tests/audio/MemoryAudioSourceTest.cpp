#include <gtest/gtest.h>

#include "audio/MemoryAudioSource.h"
#include "tests/audio/AudioSourceTestSupport.h"

using qvrControllableAudio::MemoryAudioSource;
using namespace tavrine::test;

namespace
{
// Sample i of channel c holds c * 1000 + i + 1: every sample says where it came from.
juce::AudioBuffer<float> makeIndexed (int channels, int length)
{
    juce::AudioBuffer<float> b (channels, length);
    for (int c = 0; c < channels; ++c)
        for (int i = 0; i < length; ++i)
            b.setSample (c, i, (float) (c * 1000 + i + 1));
    return b;
}
} // namespace

TEST (MemoryPlayback, PastTheEndWithoutLoopingIsSilentAndThePositionRunsOn)
{
    auto data = makeIndexed (2, 100);
    MemoryAudioSource source;
    source.setBuffer (&data, false);
    source.setNextReadPosition (80);
    auto out = makeConstant (2, 64, 9.0f);
    source.getNextAudioBlock (juce::AudioSourceChannelInfo (out));
    EXPECT_EQ (out.getSample (1, 19), 1100.0f);
    EXPECT_EQ (out.getMagnitude (20, 44), 0.0f);
    EXPECT_EQ (source.getNextReadPosition(), 144);
    source.getNextAudioBlock (juce::AudioSourceChannelInfo (out));
    EXPECT_EQ (out.getMagnitude (0, 64), 0.0f);
    EXPECT_EQ (source.getNextReadPosition(), 208);
}

TEST (MemoryPlayback, LoopingWrapsExactlyAtAnyBlockSize)
{
    auto data = makeIndexed (2, 100);
    for (int block : { 1, 7, 64, 100, 4096 })
    {
        MemoryAudioSource source;
        source.setBuffer (&data, false);
        source.sourceLooping.write (true);
        source.setNextReadPosition (-30); // wraps from behind the start too
        const auto out = render (source, 2, 1000, block);
        for (int i = 0; i < 1000; ++i)
            ASSERT_EQ (out.getSample (1, i), (float) (1000 + ((i + 70) % 100) + 1)) << block << " " << i;
        EXPECT_EQ (source.getNextReadPosition(), 70) << block;
    }
}
