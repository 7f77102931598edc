#include <gtest/gtest.h>
#include <thread>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/BasicAutomationHandle.h"
#include "controllable/lib/ChangeStrategies.h"
#include "controllable/lib/Controllables.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/RecordingListener.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using namespace qvrControllableLib;
using tavrine::test::RecordingListener;

TEST (ListenerLists, ChangesToTheListDuringACallSkipNobodyAndTakeEffectNextRound)
{
    // The walk runs from the last listener down. d removes c (not yet
    // called) and itself, b removes a (not yet called: it shifts b down),
    // a adds `late`: nobody is called twice, c and a not at all this round,
    // `late` only from the next change on.
    FloatParamDefHandle p ("p");
    RecordingListener a, b, c, d, late;
    a.onChange = [&] (ParameterDef* param) {
        if (a.calls == 1)
            param->addChangeListener (&late, true);
    };
    b.onChange = [&] (ParameterDef* param) {
        if (b.calls == 1)
            param->removeChangeListener (&a, true);
    };
    d.onChange = [&] (ParameterDef* param) {
        param->removeChangeListener (&c, true);
        param->removeChangeListener (&d, true);
    };
    for (auto* l : { &a, &b, &c, &d })
        p->addChangeListener (l, true);
    p->getValue()->setFloat (1.0);
    EXPECT_EQ (d.calls.load(), 1);
    EXPECT_EQ (c.calls.load(), 0);
    EXPECT_EQ (b.calls.load(), 1);
    EXPECT_EQ (a.calls.load(), 0);
    p->addChangeListener (&a, true);
    p->getValue()->setFloat (2.0);
    EXPECT_EQ (b.calls.load(), 2);
    EXPECT_EQ (a.calls.load(), 1);
    EXPECT_EQ (late.calls.load(), 0);
    p->getValue()->setFloat (3.0);
    EXPECT_EQ (late.calls.load(), 1);
    EXPECT_EQ (d.calls.load(), 1);
    for (auto* l : { &a, &b, &late })
        p->removeChangeListener (l, true);
}

TEST (Notification, ChangesOffTheMessageThreadReachAsyncListenersThroughTheFifoInOrder)
{
    FloatParamDefHandle p ("p");
    RecordingListener sync, async;
    std::vector<double> seenValues;
    async.onChange = [&] (ParameterDef* param) { seenValues.push_back (param->getValue()->getFloat()); };
    p->addChangeListener (&sync, true);
    p->addChangeListener (&async, false);

    std::thread writer ([&] {
        for (int i = 1; i <= 10; ++i)
            p->getValue()->setFloat (i);
    });
    writer.join();
    EXPECT_EQ (sync.calls.load(), 10); // on the writing thread, at once
    EXPECT_EQ (async.calls.load(), 0); // waiting in the FIFO

    ParameterTypes::floatType().drainChanges();
    EXPECT_EQ (async.calls.load(), 10); // each change, in the next tick
    EXPECT_EQ (sync.calls.load(), 10);  // not a second time from the FIFO
    p->removeChangeListener (&sync, true);
    p->removeChangeListener (&async, false);
}

// A parameter that dies takes its waiting changes with it, however often it
// went through the FIFO and was delivered before: the drain never reaches it
// and the other parameter's changes stay.
TEST (Notification, AParameterDyingWithChangesInTheFifoLeavesNoneBehind)
{
    FloatParamDefHandle kept ("kept");
    RecordingListener keptListener, dyingListener;
    kept->addChangeListener (&keptListener, false);
    auto& fifoType = ParameterTypes::floatType();
    fifoType.drainChanges();
    {
        FloatParamDefHandle dying ("dying");
        dying->addChangeListener (&dyingListener, false);
        const auto writeBoth = [&] (double value) {
            std::thread writer ([&] {
                dying->getValue()->setFloat (value);
                kept->getValue()->setFloat (value);
                dying->getValue()->setFloat (value + 0.5);
            });
            writer.join();
        };
        writeBoth (1.0);
        fifoType.drainChanges(); // delivered: its count goes back down
        EXPECT_EQ (dyingListener.calls.load(), 2);
        writeBoth (2.0);
        EXPECT_EQ (fifoType.getNumPendingChanges(), 3);
        dying->removeChangeListener (&dyingListener, false);
    }
    fifoType.drainChanges();
    EXPECT_EQ (dyingListener.calls.load(), 2);
    EXPECT_EQ (keptListener.calls.load(), 2);
    kept->removeChangeListener (&keptListener, false);
}

TEST (Notification, AutomationWritesOnAnotherThreadAllocateNothing)
{
    FloatParamDefHandle p ("p");
    p.minimum = 0.0;
    p.maximum = 4.0;
    BoolParamDefHandle b ("b");
    RecordingListener l1, l2, l3;
    for (auto* l : { &l1, &l2, &l3 })
        p->addChangeListener (l, false);
    b->addChangeListener (&l1, false);
    auto floatHandle = p->createAutomationHandle (nullptr, 0, {}, nullptr);
    auto boolHandle = b->createAutomationHandle (nullptr, 1, {}, nullptr);

    std::size_t allocations = 1;
    std::thread audio ([&] {
        const tavrine::test::ScopedAllocationCount count;
        for (int i = 0; i < 1000; ++i)
        {
            floatHandle->setNormalized ((float) (i % 100) / 100.0f);
            boolHandle->setNormalized (i % 2 == 0 ? 1.0f : 0.0f);
        }
        allocations = count.count();
    });
    audio.join();
    EXPECT_EQ (allocations, 0u);
    EXPECT_DOUBLE_EQ (p.read(), 4.0 * 0.99f);
    EXPECT_EQ (l2.calls.load(), 0); // the async listeners wait in the FIFO

    ParameterTypes::drainAll();
    EXPECT_EQ (l2.calls.load(), 999); // the first write stores the value it already had
    for (auto* l : { &l1, &l2, &l3 })
        p->removeChangeListener (l, false);
    b->removeChangeListener (&l1, false);
}

TEST (Notification, PostponedUpdatesTellEachChangedParameterOnce)
{
    juce::ReferenceCountedObjectPtr<BasicControllable> c (new BasicControllable());
    std::vector<FloatParamDefHandle> handles;
    RecordingListener listener;
    for (int i = 0; i < 100; ++i)
    {
        handles.emplace_back ("p" + juce::String (i));
        c->addParameter (handles.back().getParameter());
        handles.back()->addChangeListener (&listener, true);
    }
    {
        PostponedUpdates postponed;
        postponed.addAll (c.get());
        for (int round = 0; round < 3; ++round)
            for (int i = 0; i < 100; ++i)
                handles[(size_t) i]->getValue()->setFloat (round + i + 1);
        EXPECT_EQ (listener.calls.load(), 0);
        postponed.release();
    }
    EXPECT_EQ (listener.calls.load(), 100);
    for (auto& h : handles)
        h->removeChangeListener (&listener, true);
}
