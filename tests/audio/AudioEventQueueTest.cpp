#include <gtest/gtest.h>

#include "audio/AudioSourceChain.h"
#include "tests/audio/ChainTestSources.h"

using namespace tavrine::test;

namespace
{
// A sample-counting chain over a probe, with a log of what fired where.
struct LoggingChain
{
    LoggingChain()
    {
        chain->setHeadSource (probe, true);
        chain->setTimeline (nullptr);
    }

    TestEventPtr add (int priority, double time, char name)
    {
        TestEventPtr e (new TestEvent (priority, time, [this, name] (TestEvent&) {
            log += name;
            positions.push_back ((int) chain->getTimeline()->getPosition());
        }));
        chain->getEventQueue()->add (e.get());
        return e;
    }

    juce::ReferenceCountedObjectPtr<AudioSourceChain> chain { new AudioSourceChain() };
    ProbeSource* probe = new ProbeSource();
    std::string log;
    std::vector<int> positions;
};

class DyingEvent : public TestEvent
{
public:
    explicit DyingEvent (std::atomic<bool>& flag) : TestEvent (0, 0.0), deleted (flag) {}
    ~DyingEvent() override { deleted = true; }

private:
    std::atomic<bool>& deleted;
};
} // namespace

TEST (AudioEventQueue, EqualTimesComeOutByPriorityThenInTheOrderAdded)
{
    LoggingChain p;
    p.add (2, 10.0, 'a');
    p.add (3, 10.0, 'b');
    p.add (2, 10.0, 'c');
    p.add (0, 5.0, 'd');
    p.add (0, 10.0, 'e');
    auto f = p.add (1, 4.0, 'f');
    f->setTime (10.0); // sorted again: between the priorities 2 and 0

    render (*p.chain, 2, 100, 100);
    EXPECT_EQ (p.log, "dbacfe");
    EXPECT_EQ (p.positions, (std::vector<int> { 5, 10, 10, 10, 10, 10 }));
    // Events at one offset apply one after another with no segment between.
    EXPECT_EQ (p.probe->segments, (std::vector<int> { 5, 5, 90 }));
    EXPECT_EQ (f->describe(), "TestEvent (Priority=1)");
}

TEST (AudioEventQueue, AnEventMovedBackBehindTheCachedPlaceIsStillFound)
{
    LoggingChain p;
    auto x = p.add (0, 50.0, 'x');
    p.add (0, 80.0, 'y');
    p.add (0, 90.0, 'z');
    render (*p.chain, 2, 60, 60);
    ASSERT_EQ (p.log, "x");
    // x keeps index 0 but now lies before y, where the last search stopped.
    x->setTime (62.0);
    render (*p.chain, 2, 40, 40);
    EXPECT_EQ (p.positions, (std::vector<int> { 50, 62, 80, 90 }));
}

TEST (AudioEventQueue, ARemovedEventIsNeverFreedOnTheRenderThread)
{
    juce::ReferenceCountedObjectPtr<AudioEventQueue> queue (new AudioEventQueue());
    std::atomic<bool> deleted { false };
    queue->add (new DyingEvent (deleted)); // the queue is its only holder
    bool deletedOnRenderThread = true;
    std::thread renderThread ([&] {
        int samplesUntil = -1;
        auto event = queue->next (samplesUntil);
        // An event's work may take an event (itself too) out of the queue.
        queue->remove (event.get());
        event = nullptr;
        queue->releaseRetiredEvents();
        deletedOnRenderThread = deleted.load();
    });
    renderThread.join();
    EXPECT_FALSE (deletedOnRenderThread);
    EXPECT_EQ (queue->getNumEvents(), 0);
    queue->releaseRetiredEvents();
    EXPECT_TRUE (deleted.load());
}
