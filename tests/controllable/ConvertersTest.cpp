#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/ValueConverters.h"
#include "tests/support/ConverterTestSupport.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using namespace qvrControllableLib;
using namespace tavrine::test;

TEST (ConvertersDefault, RoundsHalfToEvenAndSaturatesWhatAnIntCannotHold)
{
    DefaultValueConverter c;
    const std::pair<double, int> cases[] = { { 2.5, 2 },
                                             { 3.5, 4 },
                                             { -2.5, -2 },
                                             { 1e20, std::numeric_limits<int>::max() },
                                             { -INFINITY, std::numeric_limits<int>::min() },
                                             { NAN, 0 } };
    for (const auto& [in, expected] : cases)
    {
        int out = -1;
        c.intFromFloat (in, out);
        EXPECT_EQ (out, expected) << in;
    }
}

TEST (ConvertersUnitAppending, ScalesAppendsAndSignsByTheUnscaledValue)
{
    UnitAppendingConverter percent (" %", 1, true, 100.0);
    EXPECT_EQ (print (percent, 0.255), "+25.5 %");
    EXPECT_EQ (print (percent, 0.0), "0.0 %");   // not above 0: no sign
    EXPECT_EQ (printInt (percent, 3), "+300 %"); // ints never show decimals
    EXPECT_DOUBLE_EQ (parse (percent, "25.5%"), 0.255);
    EXPECT_DOUBLE_EQ (parse (percent, " +12 % "), 0.12);
    EXPECT_EQ (parseInt (percent, "250 %"), 2); // 2.5 after the factor, half to even
    EXPECT_EQ (parseInt (percent, "350 %"), 4);

    UnitAppendingConverter semitones (" st", 0);
    EXPECT_EQ (print (semitones, 12.5), "12 st");
    EXPECT_EQ (print (semitones, -0.4), "0 st"); // never "-0"
}

TEST (ConvertersDecibel, TheFloorPrintsAndParsesAsMinusInfinity)
{
    DecibelValueConverter db (-300.0, 2);
    EXPECT_EQ (print (db, -300.0), "-inf dB");
    EXPECT_EQ (print (db, -299.99), "-299.99 dB");
    EXPECT_EQ (print (db, 3.0), "+3.00 dB");
    EXPECT_DOUBLE_EQ (parse (db, "-inf"), -300.0);
    EXPECT_DOUBLE_EQ (parse (db, "-inf dB"), -300.0);
    EXPECT_DOUBLE_EQ (parse (db, "+3.00 dB"), 3.0);

    // The int forms compare with the floor as doubles.
    DecibelValueConverter intDb (-60.5, 0);
    EXPECT_EQ (printInt (intDb, -61), "-inf dB");
    EXPECT_EQ (printInt (intDb, -60), "-60 dB");
    EXPECT_EQ (parseInt (intDb, "-inf dB"), -60);
}

TEST (ConvertersGainDb, OneDecimalStrictlyInsideTenDecibels)
{
    GainDbValueConverter g;
    EXPECT_EQ (print (g, 3.0), "+3.0dB");
    EXPECT_EQ (print (g, 0.0), "0.0dB");
    EXPECT_EQ (print (g, 9.94), "+9.9dB");
    EXPECT_EQ (print (g, 10.0), "+10dB");
    EXPECT_EQ (print (g, -12.5), "-12dB");
    EXPECT_DOUBLE_EQ (parse (g, "+3.0dB"), 3.0);
    EXPECT_DOUBLE_EQ (parse (g, "-12 dB"), -12.0);
}

TEST (ConvertersGigaByte, ParsesCaseAndDecimalCommaTolerantly)
{
    GigaByteValueConverter gb;
    EXPECT_EQ (print (gb, 4.0), "4.0 GB");
    EXPECT_DOUBLE_EQ (parse (gb, "10.5 GB"), 10.5);
    EXPECT_DOUBLE_EQ (parse (gb, "2,5gb"), 2.5);
    EXPECT_DOUBLE_EQ (parse (gb, "1,500.5 GB"), 1.0); // a comma beside a point stays a comma
}

TEST (ConvertersRelativeBpm, ShowsTheRatioAsATempoOfTheLiveSourceOrTheFallback)
{
    FloatParamDefHandle tempo ("sourceBpm");
    tempo.defaultValue = 100.0;
    RelativeBpmConverter r (120.0, tempo->getValue().get());
    EXPECT_EQ (print (r, 1.5), "150");
    tempo.write (140.0);
    EXPECT_EQ (print (r, 1.001), "140.14");
    EXPECT_DOUBLE_EQ (parse (r, "70"), 0.5);
    EXPECT_DOUBLE_EQ (parse (r, "-30"), 1.0);
    tempo.write (0.0); // unknown tempo: neutral, not infinite
    EXPECT_DOUBLE_EQ (parse (r, "70"), 1.0);

    r.connectTempo (nullptr);
    EXPECT_EQ (print (r, 0.5), "60");
    EXPECT_DOUBLE_EQ (parse (r, "90,6"), 90.6 / 120.0);
}
