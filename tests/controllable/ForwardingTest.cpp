#include <gtest/gtest.h>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/ValueModifierImpl.h"
#include "engine/TavrineEngine.h"
#include "tests/support/RecordingListener.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using namespace qvrControllableLib;
using tavrine::test::RecordingListener;

namespace
{
// Shows a stored value in percent: outer = 100 x stored.
class PercentModifier : public ValueModifierImpl
{
public:
    using ValueModifierImpl::toOuter;
    using ValueModifierImpl::toStored;
    ErrorCode toOuter (ParameterValue*, const double& in, double& out) override
    {
        out = in * 100.0;
        return kOk;
    }
    ErrorCode toStored (ParameterValue*, const double& in, double& out) override
    {
        out = in / 100.0;
        return kOk;
    }
};
} // namespace

TEST (ForwardingView, WritesThroughClampingInTheViewsUnitsThenInTheSources)
{
    FloatParamDefHandle gain ("gain");
    gain.minimum = 0.0;
    gain.maximum = 2.0;
    gain.defaultValue = 1.0;

    FloatParamDefHandle percent (gain->createForwardingParameter ("gainPercent", nullptr));
    percent->setModifier (new PercentModifier());
    // The view's own range, in percent: replaces the forwarded bounds.
    percent->replaceValue (percent->getMaximum().get(),
                           percent->getType()->createValue (percent.get(), kRoleMaximum).get());
    percent->getMaximum()->setFloat (150.0);

    EXPECT_DOUBLE_EQ (percent->getValue()->getFloat(), 100.0);
    percent->getValue()->setFloat (120.0);
    EXPECT_DOUBLE_EQ (gain.read(), 1.2);
    percent->getValue()->setFloat (400.0); // view clamps to 150 %
    EXPECT_DOUBLE_EQ (gain.read(), 1.5);
    percent->getValue()->setFloat (-50.0); // minimum forwarded from the source: 0 -> 0 %
    EXPECT_DOUBLE_EQ (gain.read(), 0.0);

    RecordingListener listener;
    percent->addChangeListener (&listener, true);
    gain->getValue()->setFloat (0.5);
    EXPECT_EQ (listener.calls.load(), 1);
    EXPECT_DOUBLE_EQ (percent->getValue()->getFloat(), 50.0);
    percent->removeChangeListener (&listener, true);
}

TEST (EditLoopPaths, RetargetWhenTheEditedLoopChangesAndHearOnlyTheNewLoop)
{
    TavrineEngine engine;
    auto* root = engine.getControllable();
    auto editGain = root->findParameter ("editLoop.gain.xyMode");
    ASSERT_NE (editGain, nullptr);
    EXPECT_TRUE (editGain->isTransient());
    EXPECT_EQ (editGain->getAutomationHandle(), nullptr);

    engine.getLoop (2)->gainXy.write (1.5);
    editGain->getValue()->setFloat (0.25); // loop 0 is edited at start
    EXPECT_DOUBLE_EQ (engine.getLoop (0)->gainXy.read(), 0.25);

    RecordingListener listener;
    editGain->addChangeListener (&listener, false);
    engine.getDispatcher().editLoopIndex.write (2);
    EXPECT_DOUBLE_EQ (editGain->getValue()->getFloat(), 1.5);
    const int afterSwitch = listener.calls.load();
    EXPECT_GE (afterSwitch, 1); // told of the switch

    engine.getLoop (0)->gainXy.write (0.75);
    EXPECT_EQ (listener.calls.load(), afterSwitch);
    engine.getLoop (2)->gainXy.write (0.5);
    EXPECT_EQ (listener.calls.load(), afterSwitch + 1);
    editGain->removeChangeListener (&listener, false);
}
