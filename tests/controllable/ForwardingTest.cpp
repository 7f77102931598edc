#include <gtest/gtest.h>

#include "controllable/handle/ParamDefHandle.h"
#include "engine/TavrineEngine.h"
#include "tests/support/RecordingListener.h"

using namespace qvrControllableAPI;
using tavrine::test::RecordingListener;

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
