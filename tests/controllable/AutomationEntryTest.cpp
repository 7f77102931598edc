#include <gtest/gtest.h>

#include <cmath>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/AutomationNormalizers.h"
#include "controllable/lib/BasicAutomationHandle.h"
#include "controllable/toolbox/AutomatedAudioProcessor.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using namespace qvrControllableLib;
using qvrControllableToolbox::AutomationEntry;

namespace
{
// An entry not owned by the processor (the processor never sees it).
struct EntryFixture
{
    EntryFixture (ParameterDef* p, AutomationNormalizer* normalizer) : entry ("p", "P", p)
    {
        entry.attach (processor, 0, normalizer);
    }
    ~EntryFixture() { entry.release(); }

    // Any stock processor will do: the entry only needs one to attach to.
    juce::AudioProcessorGraph processor;
    AutomationEntry entry;
};
} // namespace

TEST (AutomationEntry, TextAndValueForTextFollowALogarithmicNormalizer)
{
    FloatParamDefHandle cutoff ("cutoff");
    cutoff.minimum = 20.0;
    cutoff.maximum = 20000.0;
    cutoff.defaultValue = 1000.0;
    EntryFixture f (cutoff.get(), new LogarithmicAutomationNormalizer (cutoff.get(), 0.0f));

    // 1/3 of the host's range is a thousandth of the way up in ratio: 200 Hz.
    EXPECT_NEAR (f.entry.getText (1.0f / 3.0f, 0).getDoubleValue(), 200.0, 1e-3);
    EXPECT_NEAR (f.entry.getValueForText ("2000"), 2.0f / 3.0f, 1e-6);
    // The host's text and its value agree with what a write would store.
    f.entry.setValue (f.entry.getValueForText ("632.45553"));
    EXPECT_NEAR (cutoff.read(), 632.45553, 1e-3);
}

TEST (AutomationEntry, ValueForTextOfAChoiceParameterIsTheChoicesStep)
{
    // Choices at 1, 2 and 8: "2" is the middle step of three, not 1/7 of the range.
    FloatParamDefHandle ratio ("ratio");
    ratio.minimum = 1.0;
    ratio.maximum = 8.0;
    for (double c : { 1.0, 2.0, 8.0 })
        ratio.choices.add (c);
    ratio.defaultValue = 1.0;
    EntryFixture f (ratio.get(), nullptr);

    EXPECT_FLOAT_EQ (f.entry.getValueForText ("2"), 0.5f);
    EXPECT_FLOAT_EQ (f.entry.getValueForText ("8"), 1.0f);
    EXPECT_EQ (f.entry.getText (0.5f, 0), "2");
}

struct RangeCase
{
    const char* name;
    bool isInt;
};

class AutomationHandleRange : public testing::TestWithParam<RangeCase>
{};

// The range is read when it is used: a maximum raised after the handle was
// made is where the host's 1.0 lands, and what the host is told.
TEST_P (AutomationHandleRange, ARangeChangedAfterTheHandleWasMadeIsHonoured)
{
    auto check = [] (auto& p) {
        p.minimum = 0;
        p.maximum = 10;
        p.defaultValue = 5;
        auto handle = p->createAutomationHandle (nullptr, 0, {}, nullptr);
        auto* basic = dynamic_cast<BasicAutomationHandle*> (handle.get());
        ASSERT_NE (basic, nullptr);

        p.maximum = 20;
        handle->setNormalized (1.0f);
        EXPECT_EQ (p.read(), 20);
        handle->setNormalized (0.25f);
        EXPECT_EQ (p.read(), 5);
        EXPECT_FLOAT_EQ (basic->getNormalized (p->getValue().get()), 0.25f);

        p.minimum = 10;
        p.write (15);
        EXPECT_FLOAT_EQ (basic->getNormalized (p->getValue().get()), 0.5f);
        p->removeAutomationHandle();
    };
    if (GetParam().isInt)
    {
        IntParamDefHandle p ("steps");
        check (p);
    }
    else
    {
        FloatParamDefHandle p ("level");
        check (p);
    }
}

INSTANTIATE_TEST_SUITE_P (Kinds, AutomationHandleRange,
                          testing::Values (RangeCase { "float", false }, RangeCase { "int", true }),
                          [] (const auto& info) { return std::string (info.param.name); });
