#include <gtest/gtest.h>

#include "audio/SliceAwareResampler.h"
#include "tests/audio/AudioSourceTestSupport.h"

using namespace qvrControllableAudio;
using namespace tavrine::test;

using SliceResampled = Fed<SliceAwareResampler>;

// At a ratio of exactly 1 the upstream passes untouched and without the
// engine's latency, also after a stretch at another ratio: the loop's
// timeline counts from the source's own read position.
TEST (SliceAwareResampler, AtRatioOneTheSourcePassesBitExactBeforeAndAfterAnotherRatio)
{
    auto data = makeNoise (2, 20000, 5);
    SliceResampled r (data, false);
    r.prepare (256);

    auto first = r.run (2, 1000, 256);
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < 1000; ++i)
            ASSERT_EQ (first.getSample (c, i), data.getSample (c, i)) << i;

    r.link->resamplingRatio.write (1.5);
    r.run (2, 1000, 256);
    const int position = (int) r.memory.getNextReadPosition();
    EXPECT_NEAR (position, 1000 + 1500, 16); // the engine reads a little ahead

    r.link->resamplingRatio.write (1.0);
    auto after = r.run (2, 1000, 256);
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < 1000; ++i)
            ASSERT_EQ (after.getSample (c, i), data.getSample (c, position + i)) << i;
}

TEST (SliceAwareResampler, PublishesTheLengthFiguresOfTheRatio)
{
    auto data = makeConstant (2, 4410, 0.25f);
    SliceResampled r (data, false);
    r.link->setSampleLength (r.memory.totalLength.get());
    EXPECT_EQ (r.link->outputSamplesPerSlice.read(), 4410);
    EXPECT_EQ (r.link->resamplingMode.read(), SliceAwareResampler::kDefaultMode);

    r.link->resamplingRatio.write (0.5);
    EXPECT_DOUBLE_EQ (r.link->resamplingLengthRatio.read(), 2.0);
    EXPECT_EQ (r.link->outputSamplesPerSlice.read(), 8820);

    r.prepare (128);
    r.run (2, 300, 128);
    EXPECT_EQ (r.link->outputSamplesRead.read(), 300);
    r.link->restartSliceCount();
    EXPECT_EQ (r.link->outputSamplesRead.read(), 0);
}
