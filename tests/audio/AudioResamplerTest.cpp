#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "audio/Resampler.h"
#include "tests/audio/AudioSourceTestSupport.h"

using namespace qvrControllableAudio;
using namespace tavrine::test;

using Resampled = Fed<Resampler>;

TEST (ResamplerSignal, AtRatioOneTheSignalPassesAfterTheEnginesLatency)
{
    auto data = makeNoise (2, 6000, 21);
    Resampled r (data, false);
    r.prepare (256);
    const auto out = r.run (2, 5000, 256);
    int latency = 0;
    while (latency <= 8 && std::abs (out.getSample (0, 100 + latency) - data.getSample (0, 100)) > 1e-6f)
        ++latency;
    ASSERT_LE (latency, 8) << "no delay of up to 8 samples reproduces the input";
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < 4900; ++i)
            ASSERT_NEAR (out.getSample (c, i + latency), data.getSample (c, i), 1e-6f) << i;
}

TEST (ResamplerSignal, TheOutputLastsTheInputDividedByTheRatio)
{
    for (double ratio : { 2.0, 0.5 })
    {
        auto data = makeConstant (1, 4000, 0.5f);
        Resampled r (data, false);
        r.link->resamplingRatio.write (ratio);
        r.prepare();
        const int length = (int) (4000 / ratio) + 2000;
        const auto out = r.run (1, length);
        int loud = 0;
        for (int i = 0; i < length; ++i)
            loud += out.getSample (0, i) > 0.25f ? 1 : 0;
        EXPECT_NEAR (loud, 4000.0 / ratio, 4.0) << ratio;
        // The source was read `ratio` times as fast as the output was written.
        EXPECT_NEAR ((double) r.memory.getNextReadPosition(), length * ratio, 8.0) << ratio;
    }
}

TEST (ResamplerEngine, SwapsWhileTheAudioThreadRendersAndDetachingSilences)
{
    auto a = makeConstant (2, 1000, 0.25f), b = makeConstant (2, 1000, -0.75f);
    Resampled r (a, true);
    MemoryAudioSource other;
    other.setBuffer (&b, false);
    other.sourceLooping.write (true);
    juce::ReferenceCountedObjectPtr<HeadLink> otherHead (new HeadLink (other));
    r.prepare (256);

    std::atomic<bool> stop { false };
    std::atomic<int> strays { 0 };
    std::thread audio ([&] {
        juce::AudioBuffer<float> out (2, 256);
        while (! stop)
        {
            r.link->getNextAudioBlock (juce::AudioSourceChannelInfo (out));
            const auto range = out.findMinMax (0, 0, 256);
            if (range.getStart() < -0.76f || range.getEnd() > 0.26f) // neither source nor a step between them
                ++strays;
        }
    });
    for (int k = 0; k < 200; ++k)
    {
        if (k % 2 == 0)
            r.link->setUpstream (&other, otherHead.get());
        else
            r.link->setUpstream (&r.memory, r.head.get());
        juce::Thread::yield();
    }
    stop = true;
    audio.join();
    EXPECT_EQ (strays.load(), 0);
    EXPECT_EQ (r.run (2, 128, 128).getSample (1, 100), 0.25f); // the last one linked

    r.link->detachUpstream();
    EXPECT_FALSE (r.link->hasEngine());
    auto out = makeConstant (2, 128, 1.0f);
    r.link->getNextAudioBlock (juce::AudioSourceChannelInfo (out));
    EXPECT_EQ (out.getMagnitude (0, 128), 0.0f);
}
