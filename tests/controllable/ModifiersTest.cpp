#include <gtest/gtest.h>

#include <cmath>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/ShortcutValue.h"
#include "controllable/lib/ValueModifiers.h"
#include "tests/support/RecordingListener.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using namespace qvrControllableLib;
using tavrine::test::RecordingListener;

namespace
{
double outer (ValueModifier& m, double x)
{
    double y = 0.0;
    m.toOuter (nullptr, x, y);
    return y;
}
double stored (ValueModifier& m, double y)
{
    double x = 0.0;
    m.toStored (nullptr, y, x);
    return x;
}
double floatPow (float base, double exponent)
{
    return (double) std::pow (base, (float) exponent);
}

// gain 0..2 at 1, and gainDb on it through (10, 20, 1) with a range of its own.
struct GainWithDbView
{
    GainWithDbView (double dbMinimum, double dbMaximum)
    {
        gain.minimum = 0.0;
        gain.maximum = 2.0;
        gain.defaultValue = 1.0;
        auto view = gain->createForwardingParameter ("gainDb", nullptr);
        view->setModifier (new LogarithmicValueModifier (10.0, 20.0, 1.0));
        for (auto role : { kRoleMinimum, kRoleMaximum })
            view->replaceValue ((role == kRoleMinimum ? view->getMinimum() : view->getMaximum()).get(),
                                view->getType()->createValue (view.get(), role).get());
        gainDb.bind (view);
        gainDb.minimum = dbMinimum;
        gainDb.maximum = dbMaximum;
    }

    FloatParamDefHandle gain { "gain" };
    FloatParamDefHandle gainDb;
};
} // namespace

TEST (ModifiersLogarithmic, ReadsInDoubleWithSilenceBoundedAtAFloat1eMinus16)
{
    LogarithmicValueModifier db (10.0, 20.0, 1.0);
    EXPECT_NEAR (outer (db, 0.5), -6.0206, 1e-4);
    // A gain of 0 (or below) reads about -320 dB: 20 log10 of the bound.
    EXPECT_DOUBLE_EQ (outer (db, 0.0), 20.0 * std::log10 (1.0000000168623835e-16));
    EXPECT_DOUBLE_EQ (outer (db, -1.0), outer (db, 0.0));
    EXPECT_NEAR (outer (db, 0.0), -320.0, 1e-6);

    LogarithmicValueModifier semitones (2.0, 12.0, 440.0);
    EXPECT_NEAR (outer (semitones, 880.0), 12.0, 1e-12);
}

TEST (ModifiersLogarithmic, WritesAFloatPowerWidenedBeforeTheReference)
{
    LogarithmicValueModifier db (10.0, 20.0, 1.0);
    EXPECT_EQ (stored (db, -6.0), floatPow (10.0f, -0.3));
    EXPECT_NE (stored (db, -6.0), std::pow (10.0, -0.3));
    LogarithmicValueModifier scaled (10.0, 20.0, 3.0);
    EXPECT_EQ (stored (scaled, -6.0), 3.0 * floatPow (10.0f, -0.3));
    for (double y : { -80.0, -6.0, 0.0, 6.0 })
        EXPECT_NEAR (outer (db, stored (db, y)), y, 1e-5) << y;
}

TEST (ModifiersDecibel, ReadingStopsAtTheFloorAndWritingTheFloorIsSilence)
{
    DecibelValueModifier db (-300.0, 20.0, 1.0);
    EXPECT_DOUBLE_EQ (outer (db, 0.0), -300.0);
    EXPECT_EQ (stored (db, -300.0), 0.0);
    EXPECT_EQ (stored (db, -1000.0), 0.0);
    EXPECT_GT (stored (db, -299.0), 0.0);
    EXPECT_EQ (stored (db, -3.0), floatPow (10.0f, -0.15));

    DecibelValueModifier high (-40.0, 20.0, 1.0);
    EXPECT_DOUBLE_EQ (outer (high, 0.001), -40.0);
    int out = 1;
    high.toOuter (nullptr, 0, out);
    EXPECT_EQ (out, -40);
}

TEST (ModifiersPitchAndStretch, CentsAndTheLinearStretchScaleRoundTrip)
{
    PitchCentsModifier cents;
    EXPECT_NEAR (outer (cents, 2.0), 1200.0, 1e-9);
    EXPECT_NEAR (outer (cents, 0.5), -1200.0, 1e-9);
    EXPECT_EQ (stored (cents, 700.0), floatPow (2.0f, 7.0 / 12.0));

    StretchLinearizerModifier linear;
    EXPECT_DOUBLE_EQ (outer (linear, 1.0), 0.0);
    EXPECT_NEAR (outer (linear, 2.0), -std::log10 (2.0), 1e-12);
    EXPECT_NEAR (stored (linear, -std::log10 (4.0)), 4.0, 1e-6);
    for (double factor : { 0.25, 0.8, 3.0 })
        EXPECT_NEAR (stored (linear, outer (linear, factor)), factor, 1e-6 * factor) << factor;
}

TEST (ModifiersForwardingView, WritesClampInDecibelsThenInTheSourcesUnits)
{
    GainWithDbView v (-80.0, 6.0);
    EXPECT_NEAR (v.gainDb->getMinimum()->getFloat(), -80.0, 1e-5);
    v.gainDb->getValue()->setFloat (-6.0);
    EXPECT_EQ (v.gain.read(), floatPow (10.0f, -0.3));
    v.gainDb->getValue()->setFloat (-100.0); // the view's -80 dB hold
    EXPECT_NEAR (v.gain.read(), 1e-4, 1e-10);

    // Reading is not clamped: silence reads far below the view's minimum.
    // A listener on the view hears each change of the source once.
    RecordingListener listener;
    v.gainDb->addChangeListener (&listener, true);
    v.gain.write (0.0);
    EXPECT_EQ (listener.calls.load(), 1);
    EXPECT_NEAR (v.gainDb->getValue()->getFloat(), -320.0, 1e-6);
    v.gainDb->removeChangeListener (&listener, true);

    GainWithDbView wide (-80.0, 12.0); // wider than the gain: its 2.0 holds
    wide.gainDb->getValue()->setFloat (12.0);
    EXPECT_DOUBLE_EQ (wide.gain.read(), 2.0);
}

TEST (ModifiersForwardingView, AShortcutOnTheViewWalksToTheStorageAndMapsThroughTheModifier)
{
    GainWithDbView v (-80.0, 6.0);
    FloatShortcutValue shortcut (v.gainDb->getValue().get());
    ASSERT_TRUE (shortcut.isConnected());
    EXPECT_EQ (shortcut.getParameter(), v.gain.get());
    v.gain.write (0.5);
    EXPECT_NEAR (shortcut.get(), -6.0206, 1e-4);
    shortcut.set (-12.0);
    EXPECT_EQ (v.gain.read(), floatPow (10.0f, -0.6));
}
