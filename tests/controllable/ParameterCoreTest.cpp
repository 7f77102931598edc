#include <gtest/gtest.h>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"
#include "controllable/lib/DispatchingControllable.h"
#include "tests/support/RecordingListener.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using namespace qvrControllableLib;
using tavrine::test::RecordingListener;

TEST (Controllable, FindsByExactCaseSensitiveNameFirstMatchWinning)
{
    juce::ReferenceCountedObjectPtr<BasicControllable> empty (new BasicControllable());
    EXPECT_EQ (empty->findParameter ("gain"), nullptr);

    juce::ReferenceCountedObjectPtr<BasicControllable> c (new BasicControllable());
    FloatParamDefHandle first ("gain"), second ("gain");
    c->addParameter (first.getParameter());
    c->addParameter (second.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    EXPECT_EQ (c->findParameter ("gain").get(), first.get());
    EXPECT_EQ (c->findParameter ("Gain"), nullptr);
    EXPECT_TRUE (second->isTransient());
}

TEST (ParameterValues, RangeClampsInOuterUnitsAndNullBoundsStoreAnything)
{
    FloatParamDefHandle free ("free");
    EXPECT_EQ (free->getValue()->setFloat (-1.0e12), kOk);
    EXPECT_DOUBLE_EQ (free.read(), -1.0e12);

    FloatParamDefHandle ranged ("ranged");
    ranged.minimum = 0.5;
    ranged.maximum = 2.0;
    ranged.defaultValue = 1.0;
    EXPECT_DOUBLE_EQ (ranged.read(), 1.0); // the default also sets the value
    ranged->getValue()->setFloat (5.0);
    EXPECT_DOUBLE_EQ (ranged.read(), 2.0);
    ranged->getValue()->setString ("0.1");
    EXPECT_DOUBLE_EQ (ranged.read(), 0.5);

    IntParamDefHandle count ("count");
    count.minimum = 0;
    count.maximum = 10;
    count->getValue()->setFloat (2.5); // half to even
    EXPECT_EQ (count.read(), 2);
    count->getValue()->setFloat (3.5);
    EXPECT_EQ (count.read(), 4);
    count->getValue()->setInt (11);
    EXPECT_EQ (count.read(), 10);
}

TEST (ParameterValues, EqualWritesNotifyNothingAndRealChangesNotifyOnce)
{
    FloatParamDefHandle p ("p");
    RecordingListener listener;
    p->addChangeListener (&listener, true);
    p->getValue()->setFloat (0.0);
    EXPECT_EQ (listener.calls.load(), 0);
    p->getValue()->setFloat (0.25);
    EXPECT_EQ (listener.calls.load(), 1);
    p->getValue()->setNull();
    EXPECT_TRUE (p->getValue()->isNull());
    EXPECT_EQ (listener.calls.load(), 2);
    p->removeChangeListener (&listener, true);
}

TEST (ParameterValues, BoolParametersAreTwoChoiceParametersAndParseTheUsualWords)
{
    BoolParamDefHandle b ("b");
    EXPECT_EQ (b->getChoices()->size(), 2);
    EXPECT_EQ (b->getValue()->getChoiceIndex(), 0);
    for (auto* text : { "YES", "1.0", "on", "True", "1" })
    {
        b->getValue()->setBool (false);
        b->getValue()->setString (text);
        EXPECT_TRUE (b.read()) << text;
        EXPECT_EQ (b->getValue()->getChoiceIndex(), 1);
    }
    b->getValue()->setString ("2");
    EXPECT_FALSE (b.read());
    EXPECT_EQ (b->getValue()->getString(), "false");
}

TEST (ParameterValues, ChoiceIndexToleratesTenToTheMinusSeven)
{
    FloatParamDefHandle p ("p");
    p.choices.add (0.25).add (0.5).add (1.0);
    p->getValue()->setFloat (0.5 + 0.9e-7);
    EXPECT_EQ (p->getValue()->getChoiceIndex(), 1);
    p->getValue()->setFloat (0.5 + 2e-7);
    EXPECT_EQ (p->getValue()->getChoiceIndex(), -1);
    EXPECT_DOUBLE_EQ (p->getValue()->getNearestChoice()->getFloat(), 0.5);

    FloatParamDefHandle plain ("plain");
    EXPECT_EQ (plain->getValue()->getNearestChoice().get(), plain->getValue().get());
}

TEST (Dispatching, ForwardToFirstTakesTheEarlierTargetForADuplicateNameAndKeepsTheOrder)
{
    struct Provider : TargetProvider
    {
        ControllableArray targets;
        ControllableArray getTargets() override { return targets; }
    };
    juce::ReferenceCountedObjectPtr<Provider> provider (new Provider());
    juce::ReferenceCountedObjectPtr<BasicControllable> a (new BasicControllable()), b (new BasicControllable());
    FloatParamDefHandle gainA ("gain"), gainB ("gain"), pan ("pan");
    a->addParameter (gainA.getParameter());
    b->addParameter (gainB.getParameter());
    b->addParameter (pan.getParameter());
    provider->targets.add (a.get());
    provider->targets.add (b.get());

    juce::ReferenceCountedObjectPtr<DispatchingControllable> d (
        new DispatchingControllable (new ForwardToFirstStrategy(), provider.get()));
    ASSERT_EQ (d->getParameters().size(), 2);
    EXPECT_EQ (d->getParameters().size(), 2);            // merged once
    EXPECT_EQ (d->getParameters()[1]->getName(), "pan"); // in the order of first appearance
    d->findParameter ("gain")->getValue()->setFloat (0.75);
    EXPECT_DOUBLE_EQ (gainA.read(), 0.75);
    EXPECT_DOUBLE_EQ (gainB.read(), 0.0);
    EXPECT_NE (d->findParameter ("pan"), nullptr);
}
