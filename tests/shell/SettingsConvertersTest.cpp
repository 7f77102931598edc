#include <gtest/gtest.h>

#include "controllable/handle/ParamDefHandle.h"
#include "shell/GuiWidthValueConverter.h"
#include "shell/TooltipDelayValueConverter.h"
#include "tests/support/ConverterTestSupport.h"

using namespace qvrControllableHandle;
using namespace tavrine::test;

TEST (ConvertersGuiWidth, NamesThreeWidthsAndReadsEverythingElseAsMedium)
{
    GuiWidthValueConverter w;
    EXPECT_EQ (printInt (w, 444), "Small");
    EXPECT_EQ (printInt (w, 700), "Large");
    EXPECT_EQ (parseInt (w, "Small"), 444);
    EXPECT_EQ (parseInt (w, "large"), 525); // exact comparison

    IntParamDefHandle width ("width");
    width->setConverter (new GuiWidthValueConverter());
    width.write (600);
    EXPECT_EQ (width->getValue()->getString(), "Custom");
    width->getValue()->setString ("Custom");
    EXPECT_EQ (width.read(), 525);
}

TEST (ConvertersTooltipDelay, MillisecondsSecondsAndDisabled)
{
    TooltipDelayValueConverter t;
    EXPECT_EQ (printInt (t, 4000), "(tooltips disabled)");
    EXPECT_EQ (printInt (t, 999), "999ms");
    EXPECT_EQ (printInt (t, 2500), "2.5s");
    EXPECT_EQ (parseInt (t, "1000"), 4000); // no unit: disabled
    for (int ms : { 50, 999, 1000, 2500, 4000 })
        EXPECT_EQ (parseInt (t, printInt (t, ms)), ms) << ms;
}
