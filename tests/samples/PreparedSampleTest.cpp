#include <gtest/gtest.h>

#include "samples/PreparedSample.h"
#include "samples/PreparedSamplePool.h"
#include "samples/SampleKey.h"

#include <vector>

namespace
{
std::unique_ptr<juce::AudioSampleBuffer> makeSignal (int numChannels, int numSamples)
{
    auto buffer = std::make_unique<juce::AudioSampleBuffer> (numChannels, numSamples);
    juce::Random random (77);
    for (int c = 0; c < numChannels; ++c)
        for (int i = 0; i < numSamples; ++i)
            buffer->setSample (c, i, random.nextFloat() * 2.0f - 1.0f);
    return buffer;
}

// The overview rule computed plainly, sample by sample, to hold the
// implementation to.
PreparedSample::OverviewPoint directPoint (const juce::AudioSampleBuffer& b, int i)
{
    const int n = b.getNumSamples();
    const double step = (double) n / 512.0;
    const int start = (int) std::lround (i * step);
    const int end = std::min (n, start + (int) std::lround (step));
    if (start >= end)
        return {};
    PreparedSample::OverviewPoint p { b.getSample (0, start), b.getSample (0, start) };
    for (int c = 0; c < std::min (2, b.getNumChannels()); ++c)
        for (int s = start; s < end; ++s)
        {
            p.minimum = std::min (p.minimum, b.getSample (c, s));
            p.maximum = std::max (p.maximum, b.getSample (c, s));
        }
    return p;
}

struct RecordingPool : PreparedSamplePool
{
    struct Event
    {
        bool added;
        juce::String key;
        PreparedSample* sample;
    };
    std::vector<Event> events;

    void addPreparedSample (const juce::String& k, PreparedSample* s) override { events.push_back ({ true, k, s }); }
    void removePreparedSample (const juce::String& k, PreparedSample* s) override
    {
        events.push_back ({ false, k, s });
    }
};

struct Shape
{
    int numChannels;
    int numSamples;
};

class PreparedSampleShapes : public ::testing::TestWithParam<Shape>
{};
} // namespace

// Lengths around and off a multiple of 512 catch an integer step, a step of
// floor instead of round, and a read past the end; three channels catch a
// widening by every channel instead of the first two; a mono buffer one that
// reads channel 1 regardless.
TEST_P (PreparedSampleShapes, ReverseMirrorsEachChannelAndOverviewsFollowTheRule)
{
    const auto shape = GetParam();
    auto forward = makeSignal (shape.numChannels, shape.numSamples);
    const juce::AudioSampleBuffer original (*forward);
    auto reverse = PreparedSample::makeReverse (*forward);
    PreparedSample::Ptr sample (new PreparedSample ("k", std::move (forward), std::move (reverse), nullptr));

    const auto& fwd = sample->getForward();
    const auto& rev = sample->getReverse();
    ASSERT_EQ (rev.getNumChannels(), shape.numChannels);
    ASSERT_EQ (rev.getNumSamples(), shape.numSamples);
    for (int c = 0; c < shape.numChannels; ++c)
        for (int i = 0; i < shape.numSamples; ++i)
        {
            ASSERT_EQ (fwd.getSample (c, i), original.getSample (c, i));
            ASSERT_EQ (rev.getSample (c, i), original.getSample (c, shape.numSamples - 1 - i)) << c << " " << i;
        }

    for (int i = 0; i < PreparedSample::overviewPoints; ++i)
    {
        const auto expectF = directPoint (original, i);
        const auto expectR = directPoint (rev, i);
        const auto gotF = sample->getForwardOverview()[(size_t) i];
        const auto gotR = sample->getReverseOverview()[(size_t) i];
        ASSERT_EQ (gotF.minimum, expectF.minimum) << "point " << i;
        ASSERT_EQ (gotF.maximum, expectF.maximum) << "point " << i;
        ASSERT_EQ (gotR.minimum, expectR.minimum) << "point " << i;
        ASSERT_EQ (gotR.maximum, expectR.maximum) << "point " << i;
    }
}

INSTANTIATE_TEST_SUITE_P (Shapes, PreparedSampleShapes,
                          ::testing::Values (Shape { 1, 1000 }, Shape { 2, 1000 }, Shape { 2, 512 }, Shape { 3, 1537 },
                                             Shape { 2, 300 }, Shape { 1, 44100 }));

TEST (PreparedSample, ListsItselfInThePoolForItsLifetime)
{
    RecordingPool pool;
    PreparedSample* raw = nullptr;
    {
        auto forward = makeSignal (1, 10);
        auto reverse = PreparedSample::makeReverse (*forward);
        PreparedSample::Ptr sample (new PreparedSample ("abc-def", std::move (forward), std::move (reverse), &pool));
        raw = sample.get();
        PreparedSample::Ptr second (sample);
        ASSERT_EQ (pool.events.size(), 1u);
    }
    ASSERT_EQ (pool.events.size(), 2u);
    EXPECT_TRUE (pool.events[0].added);
    EXPECT_FALSE (pool.events[1].added);
    for (const auto& e : pool.events)
    {
        EXPECT_EQ (e.key, "abc-def");
        EXPECT_EQ (e.sample, raw);
    }
}

// Known MD5 digests of the UTF-8 text: a digest of UTF-16 or of the
// terminator, or upper-case hex, would not match.
TEST (SampleKey, IsTheLowerCaseMd5OfTheUtf8Url)
{
    EXPECT_EQ (SampleKey::make ("abc", {}), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ (SampleKey::make (juce::CharPointer_UTF8 ("/samples/Stra\xc3\x9f"
                                                        "e \xc3\xa9.wav"),
                                {}),
               "9927f91c51b58d815a65a81bad098ee0");
    EXPECT_FALSE (SampleKey::isRenderedVariant (SampleKey::make ("abc", {})));
}

TEST (SampleKey, VariantKeyIsUrlDigestDashSignatureDigest)
{
    const auto key = SampleKey::make ("abc", "tavrine:1/2");
    ASSERT_EQ (key.length(), 65);
    EXPECT_EQ (key, "900150983cd24fb0d6963f7d28e17f72-f0cb8e5e8fb487093c6e61ab02bc7f18");
    EXPECT_TRUE (SampleKey::isRenderedVariant (key));

    EXPECT_EQ (SampleKey::make ("abc", "tavrine:1/2"), key);
    EXPECT_NE (SampleKey::make ("abd", "tavrine:1/2"), key);
    EXPECT_NE (SampleKey::make ("abc", "tavrine:1/3"), key);
    EXPECT_NE (SampleKey::make ("a", {}), SampleKey::make ("b", {}));
}
