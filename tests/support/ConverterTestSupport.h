#pragma once

#include <gtest/gtest.h>

#include "controllable/api/ValueConverter.h"

namespace tavrine::test
{
// One conversion through a converter, with the result as the value; the
// parsers also expect the converter to accept the text.
inline juce::String print (qvrControllableAPI::ValueConverter& c, double x)
{
    juce::String s;
    c.stringFromFloat (x, s);
    return s;
}
inline juce::String printInt (qvrControllableAPI::ValueConverter& c, int x)
{
    juce::String s;
    c.stringFromInt (x, s);
    return s;
}
inline double parse (qvrControllableAPI::ValueConverter& c, const juce::String& t)
{
    double x = -1.0;
    EXPECT_EQ (c.floatFromString (t, x), qvrControllableAPI::kOk);
    return x;
}
inline int parseInt (qvrControllableAPI::ValueConverter& c, const juce::String& t)
{
    int x = -1;
    EXPECT_EQ (c.intFromString (t, x), qvrControllableAPI::kOk);
    return x;
}
} // namespace tavrine::test
