#include <gtest/gtest.h>

#include <cmath>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/AutomationNormalizers.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using namespace qvrControllableLib;

TEST (NormalizersLinear, DenormalisesToTheMiddleOnlyInsideTheDeadZone)
{
    LinearAutomationNormalizer linear (0.05f);
    EXPECT_FLOAT_EQ (linear.normalize (2.0, -1.0, 3.0), 0.75f);
    EXPECT_DOUBLE_EQ (linear.denormalize (0.46f, 0.0, 10.0), 5.0);
    EXPECT_NEAR (linear.denormalize (0.56f, 0.0, 10.0), 5.6, 1e-6);
}

TEST (NormalizersLogarithmic, EqualStepsAreEqualRatiosWithTheBaseOfItsBirth)
{
    FloatParamDefHandle f ("frequency");
    f.minimum = 20.0;
    f.maximum = 20000.0;
    LogarithmicAutomationNormalizer log (f.get(), 0.1f);
    const double middle = 20.0 * std::sqrt (1000.0);
    EXPECT_FLOAT_EQ (log.normalize (20000.0, 20.0, 20000.0), 1.0f);
    EXPECT_FLOAT_EQ (log.normalize (middle, 20.0, 20000.0), 0.5f);
    EXPECT_NEAR (log.denormalize (1.0f / 3.0f, 20.0, 20000.0), 200.0, 1e-4);
    EXPECT_DOUBLE_EQ (log.denormalize (0.59f, 20.0, 20000.0), middle); // dead zone
    EXPECT_NEAR (log.denormalize (0.61f, 20.0, 20000.0), 20.0 * std::pow (1000.0, (double) 0.61f), 1e-9);

    // The base is max / min when made; the range's later change is not seen.
    f.maximum = 2000.0;
    EXPECT_NEAR (log.denormalize (1.0f, 20.0, 2000.0), 20000.0, 1e-9);

    // Through a handle, the host's 0.5 lands on the geometric middle.
    FloatParamDefHandle g ("cutoff");
    g.minimum = 20.0;
    g.maximum = 20000.0;
    g->createAutomationHandle (nullptr, 0, {}, new LogarithmicAutomationNormalizer (g.get(), 0.0f))
        ->setNormalized (0.5f);
    EXPECT_NEAR (g.read(), middle, 1e-9);
    g->removeAutomationHandle();
}

TEST (NormalizersSqrt, SquaresInFloatOnTheWayBack)
{
    SqrtAutomationNormalizer s;
    EXPECT_FLOAT_EQ (s.normalize (2.0, 1.0, 5.0), 0.5f);
    EXPECT_DOUBLE_EQ (s.denormalize (0.5f, 1.0, 5.0), 2.0);
    EXPECT_EQ (s.denormalize (0.1f, 1.0, 5.0), (double) (0.1f * 0.1f) * 4.0 + 1.0);
    for (double x : { 1.0, 1.3, 4.99 })
        EXPECT_NEAR (s.denormalize (s.normalize (x, 1.0, 5.0), 1.0, 5.0), x, 1e-6) << x;
}

TEST (NormalizersReverse, FalseIsSentAsAHalfAndOnlyAboveThreeQuartersReadsTrue)
{
    ReverseAutomationNormalizer r;
    EXPECT_FLOAT_EQ (r.normalize (0.0, 0.0, 1.0), 0.5f);
    EXPECT_FLOAT_EQ (r.normalize (1.0, 0.0, 1.0), 1.0f);
    for (float n : { 0.0f, 0.5f, 0.75f })
        EXPECT_DOUBLE_EQ (r.denormalize (n, 0.0, 1.0), 0.0) << n;
    EXPECT_DOUBLE_EQ (r.denormalize (0.7501f, 0.0, 1.0), 1.0);
    EXPECT_DOUBLE_EQ (r.denormalize (r.normalize (0.0, 0.0, 1.0), 0.0, 1.0), 0.0);
}

TEST (NormalizersChoice, StepsThroughTheChoicesByIndex)
{
    FloatParamDefHandle p ("ratio");
    p.choices.add (1.0).add (2.0).add (4.0).add (8.0);
    ChoiceAutomationNormalizer c (p.get());
    EXPECT_FLOAT_EQ (c.normalize (4.00001, 0, 0), 2.0f / 3.0f); // within 1e-5
    EXPECT_FLOAT_EQ (c.normalize (5.0, 0, 0), 2.0f / 3.0f);     // the last entry below
    EXPECT_FLOAT_EQ (c.normalize (0.5, 0, 0), -1.0f / 3.0f);    // none below: index -1
    EXPECT_DOUBLE_EQ (c.denormalize (0.5f, 0, 0), 4.0);         // 1.5 rounds half to even
    EXPECT_DOUBLE_EQ (c.denormalize (1.5f, 0, 0), 8.0);
    EXPECT_DOUBLE_EQ (c.denormalize (-1.0f, 0, 0), 1.0);

    // One choice: normalize divides by zero, unguarded; the way back is defined.
    IntParamDefHandle single ("single");
    single.choices.add (7);
    ChoiceAutomationNormalizer one (single.get());
    for (float n : { 0.0f, 0.5f, 1.0f })
        EXPECT_DOUBLE_EQ (one.denormalize (n, 0, 0), 7.0) << n;
}
