#include <gtest/gtest.h>

#include "controllable/handle/ParamDefHandle.h"
#include "tests/support/RecordingListener.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using tavrine::test::RecordingListener;

TEST (ValueWrappers, AssigningTheDefaultSetsTheValueToWhatTheDefaultBecame)
{
    FloatParamDefHandle h ("h");
    h.minimum = 0.0;
    h.maximum = 10.0;
    h->getValue()->setFloat (7.0);

    h.defaultValue = 3.0;
    EXPECT_DOUBLE_EQ (h->getDefault()->getFloat(), 3.0);
    EXPECT_DOUBLE_EQ (h.read(), 3.0);

    // The default is clamped like any value; the current value takes the
    // clamped default, not the number that was assigned.
    h.defaultValue = 20.0;
    EXPECT_DOUBLE_EQ (h.read(), 10.0);

    // Only the default's wrapper writes through to the value.
    h.maximum = 12.0;
    h.minimum = 1.0;
    h.value = 5.0;
    EXPECT_DOUBLE_EQ (h->getDefault()->getFloat(), 10.0);
    EXPECT_DOUBLE_EQ (h.read(), 5.0);

    StringParamDefHandle s ("s");
    s.defaultValue = juce::String ("Off");
    EXPECT_EQ (s->getValue()->getString(), "Off");
}

TEST (ValueWrappers, ReadAccessWrappersAreMadeAtEachCallAndFollowAReplacedValue)
{
    IntParamDefHandle definer ("count");
    definer.maximum = 8;
    const IntParameterHandle reader (definer.getParameter());
    EXPECT_EQ (reader.getMaximum().get(), 8);

    auto replacement = definer->getType()->createValue (definer.get(), kRoleMaximum);
    replacement->setInt (16);
    definer->replaceValue (definer->getMaximum().get(), replacement.get());
    EXPECT_EQ (reader.getMaximum().get(), 16);

    auto defaultWrapper = reader.getDefault();
    defaultWrapper = 4;
    EXPECT_EQ (definer.read(), 4);
}

TEST (ListValueWrappers, AddReadAndWriteEntriesInPlace)
{
    FloatParamDefHandle slices ("slices", ValueShape::list);
    ASSERT_TRUE (slices->getType()->isList());
    slices.maximum = 1.0;

    auto list = slices.getValueList();
    list.add (0.25).add (0.5).add (4.0);
    ASSERT_EQ (list.size(), 3);
    EXPECT_EQ (slices->getValueList()->size(), 3);
    EXPECT_DOUBLE_EQ (list[1], 0.5);
    EXPECT_DOUBLE_EQ (list[2], 1.0); // entries obey the parameter's range
    EXPECT_DOUBLE_EQ (list[3], 0.0);
    EXPECT_EQ (list.getEntry (3).getValue(), nullptr);

    // Indices past the end are refused, the last one is not.
    RecordingListener listener;
    slices->addChangeListener (&listener, true);
    EXPECT_EQ (list.set (2, 0.75), kOk);
    EXPECT_EQ (list.set (3, 0.75), kNotFound);
    EXPECT_EQ (slices->getValueList()->removeAt (3), kNotFound);
    auto entry = list.getEntry (1);
    entry = 0.125;
    slices->removeChangeListener (&listener, true);

    EXPECT_EQ (listener.calls.load(), 2);
    EXPECT_EQ (list.size(), 3);
    EXPECT_DOUBLE_EQ (slices->getValueList()->get (2)->getFloat(), 0.75);
    EXPECT_DOUBLE_EQ (slices->getValueList()->get (1)->getFloat(), 0.125);
}

TEST (ChoicesWrapper, AddingAChoiceReindexesTheValueAndTheListEntries)
{
    IntParamDefHandle mode ("mode");
    mode.defaultValue = 4;
    mode->getValueList()->addInt (2);
    mode.choices.add (1).add (2);
    EXPECT_EQ (mode.choices.getCurrentChoiceIndex(), -1);
    EXPECT_EQ (mode.choices.getCurrentChoice(), nullptr);
    EXPECT_EQ (mode->getValueList()->get (0)->getChoiceIndex(), 1);

    mode.choices.add (4);
    EXPECT_EQ (mode.choices.getCurrentChoiceIndex(), 2);
    ASSERT_NE (mode.choices.getCurrentChoice(), nullptr);
    EXPECT_EQ (mode.choices.getCurrentChoice()->getInt(), 4);
    EXPECT_EQ (mode.choices[2], 4);
}
