#include <gtest/gtest.h>

#include "controllable/handle/ParamDefHandle.h"
#include "engine/OutputBpmConverter.h"
#include "engine/OutputBusValueConverter.h"
#include "engine/ResamplingModeValueConverter.h"
#include "engine/SnapModeValueConverter.h"
#include "tests/support/ConverterTestSupport.h"

using namespace qvrControllableHandle;
using namespace tavrine::test;

TEST (ConvertersSnapMode, ParsesFractionsAndOffAndRefusesTheRestStoringNothing)
{
    SnapModeValueConverter s;
    EXPECT_EQ (printInt (s, 1024), "Off");
    EXPECT_EQ (printInt (s, 16), "1/16");
    EXPECT_EQ (parseInt (s, "oFF"), 1024);
    EXPECT_EQ (parseInt (s, "1/16"), 16);
    for (const char* text : { "1/0", "x", "16", "1/-4" })
    {
        int out = 77;
        EXPECT_EQ (s.intFromString (text, out), SnapModeValueConverter::kRefusedText) << text;
        EXPECT_EQ (out, 77) << text;
    }

    IntParamDefHandle snap ("snapMode");
    snap->setConverter (new SnapModeValueConverter());
    snap.defaultValue = 8;
    EXPECT_EQ (snap->getValue()->setString ("1/0"), SnapModeValueConverter::kRefusedText);
    EXPECT_EQ (snap.read(), 8);
}

TEST (ConvertersResamplingMode, UnknownValuesAndTextsAreLooped)
{
    ResamplingModeValueConverter r;
    EXPECT_EQ (printInt (r, 0), "Vari-Speed");
    EXPECT_EQ (printInt (r, 3), "Pitch-Speed");
    EXPECT_EQ (printInt (r, 7), "Looped");
    for (int mode = 0; mode < 4; ++mode)
        EXPECT_EQ (parseInt (r, printInt (r, mode)), mode);
    EXPECT_EQ (parseInt (r, "sliced"), 2);
}

TEST (ConvertersTempoAndBus, OutputTempoDropsTrailingZerosAndBusesNameTheirChannelPair)
{
    OutputBpmConverter bpm;
    EXPECT_EQ (print (bpm, 120.0), "120");
    EXPECT_EQ (print (bpm, 120.5), "120.5");

    OutputBusValueConverter bus;
    EXPECT_EQ (printInt (bus, 0), "Output 1/2");
    EXPECT_EQ (printInt (bus, 15), "Output 31/32");
    EXPECT_EQ (parseInt (bus, "Output 7/8"), 3);
    EXPECT_EQ (parseInt (bus, "Output 1/2"), 0);
}
