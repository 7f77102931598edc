#include <gtest/gtest.h>

#include "audio/AudioSourceChain.h"
#include "audio/AudioSourceProviderAdapters.h"
#include "controllable/handle/ParamDefHandle.h"
#include "tests/audio/ChainTestSources.h"

using namespace tavrine::test;

namespace
{
class CountingChain : public AudioSourceChain
{
public:
    int segmentCalls = 0;

protected:
    void segmentRendered (int) override { ++segmentCalls; }
};

struct ProbeChain
{
    explicit ProbeChain (AudioEventTimeline* timeline = nullptr)
    {
        chain->setHeadSource (probe, true);
        chain->setTimeline (timeline);
    }
    TestEventPtr add (double time, std::function<void (TestEvent&)> work = {})
    {
        TestEventPtr e (new TestEvent (0, time, std::move (work)));
        chain->getEventQueue()->add (e.get());
        return e;
    }
    juce::ReferenceCountedObjectPtr<CountingChain> chain { new CountingChain() };
    ProbeSource* probe = new ProbeSource();
};

// A seekable head with a `totalLength` parameter, as a sample player has.
class SeekableSource : public HashSource,
                       public qvrControllableLib::BasicControllable
{
public:
    SeekableSource() { addParameter (length.getParameter()); }
    juce::int64 getTotalLength() const override { return length.read(); }
    qvrControllableHandle::IntParamDefHandle length { "totalLength" };
};

class ControllableScale : public ScaleSource,
                          public qvrControllableLib::BasicControllable
{
public:
    ControllableScale() { addParameter (amount.getParameter()); }
    qvrControllableHandle::FloatParamDefHandle amount { "testAmount" };
};
} // namespace

TEST (AudioSourceChainEvents, EventsFireOnTheirSampleBeforeTheAudioThere)
{
    // At the present position, mid-block, exactly at a block's end, mid-block.
    ProbeChain p;
    std::vector<std::pair<int, int>> seen; // samples received so far, place in the block
    auto record = [&] (TestEvent&) {
        seen.push_back ({ p.probe->received, p.chain->getBlockPositionCounter (AudioSourceChain::kChainCounterKey) });
    };
    for (double t : { 0.0, 37.0, 64.0, 100.0 })
        p.add (t, record);

    render (*p.chain, 2, 128, 64);
    EXPECT_EQ (seen, (std::vector<std::pair<int, int>> { { 0, 0 }, { 37, 37 }, { 64, 0 }, { 100, 36 } }));
    EXPECT_EQ (p.probe->segments, (std::vector<int> { 37, 27, 36, 28 }));
    EXPECT_EQ (p.chain->segmentCalls, 4);
}

TEST (AudioSourceChainEvents, EventsThatRescheduleOrMoveTheTimelineCannotLoopForever)
{
    ProbeChain p;
    auto* timeline = p.chain->getTimeline();
    // To the present position, to a place inside the present sample, one period on.
    auto same = p.add (10.0, [&] (TestEvent& e) { e.setTime (timeline->getPosition()); });
    auto inside = p.add (10.0, [] (TestEvent& e) { e.setTime (e.getTime() + 0.25); });
    std::vector<int> periodicAt;
    p.add (10.0, [&] (TestEvent& e) {
        periodicAt.push_back ((int) timeline->getPosition());
        e.setTime (e.getTime() + 16.0);
    });
    render (*p.chain, 2, 105, 7);
    EXPECT_EQ (same->fires, 1);
    EXPECT_EQ (inside->fires, 1);
    EXPECT_EQ (periodicAt, (std::vector<int> { 10, 26, 42, 58, 74, 90 }));

    // Two events that send the timeline to each other: the block still ends.
    ProbeChain pingPong;
    auto* t2 = pingPong.chain->getTimeline();
    auto a = pingPong.add (10.0, [t2] (TestEvent&) { t2->setPosition (20.0); });
    auto b = pingPong.add (20.0, [t2] (TestEvent&) { t2->setPosition (10.0); });
    render (*pingPong.chain, 2, 64, 64);
    EXPECT_EQ (pingPong.probe->received, 64);
    EXPECT_LE (a->fires + b->fires, AudioSourceChain::kMaxEventsWithoutAudio + 1);
}

TEST (AudioSourceChainLinks, WrappedPlainSourcesFilterInPlaceAndPublishTheirParameters)
{
    bool deleted = false;
    {
        juce::ReferenceCountedObjectPtr<AudioSourceChain> chain (new AudioSourceChain());
        chain->setHeadSource (new HashSource(), true);
        auto* scale = new ControllableScale();
        scale->gain = 0.5f;
        chain->appendSource (scale, true);
        chain->append (new ChainableAudioSourceProviderAdapter (new ScaleSource (&deleted), true));

        const auto out = render (*chain, 2, 100, 64);
        for (int i = 0; i < 100; ++i)
            ASSERT_EQ (out.getSample (1, i), 0.5f * HashSource::valueAt (i, 1)) << i;

        auto published = chain->getControllable()->findParameter ("testAmount");
        ASSERT_NE (published, nullptr);
        published->getValue()->setFloat (0.25);
        EXPECT_EQ (scale->amount.read(), 0.25);
        EXPECT_EQ (chain->getLink (1)->findUpstreamParameter ("testAmount").get(), scale->amount.get());
        EXPECT_FALSE (deleted);
    }
    EXPECT_TRUE (deleted); // owned by its adapter, which the chain held
}

TEST (AudioSourceChainPositionable, TheProxySeeksTheHeadAndFollowsTheUpstreamLength)
{
    juce::ReferenceCountedObjectPtr<AudioSourceChain> plain (new AudioSourceChain());
    plain->setHeadSource (new ScaleSource(), true);
    EXPECT_EQ (plain->makePositionable(), nullptr);

    juce::ReferenceCountedObjectPtr<AudioSourceChain> chain (new AudioSourceChain());
    juce::ReferenceCountedObjectPtr<SeekableSource> head (new SeekableSource());
    head->length.write (1000);
    chain->setHeadSource (head.get(), false);
    chain->appendSource (new ScaleSource(), true);
    auto* proxy = chain->makePositionable();
    ASSERT_NE (proxy, nullptr);
    EXPECT_EQ (chain->getPositionable(), proxy);
    proxy->prepareToPlay (64, 44100.0);
    EXPECT_EQ (proxy->totalLength.read(), 1000);

    proxy->nextReadPosition.write (500); // reaches the head before the next block
    const auto out = render (*proxy, 2, 64, 64);
    EXPECT_EQ (out.getSample (0, 0), HashSource::valueAt (500, 0));
    EXPECT_EQ (proxy->nextReadPosition.read(), 564);

    proxy->setNextReadPosition (10);
    EXPECT_EQ (head->position, 10);
    EXPECT_EQ (proxy->nextReadPosition.read(), 10);
    head->length.write (2000);
    EXPECT_EQ (proxy->totalLength.read(), 2000);
}
