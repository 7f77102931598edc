#include "dsp/MeridexErrors.h"

#include <gtest/gtest.h>
#include <string>

TEST (MeridexErrors, CodesKeepTheirPublishedValues)
{
    // These numbers are part of the library's public contract.
    EXPECT_EQ (meridex::kNotEnoughInput, -1);
    EXPECT_EQ (meridex::kBelowMinimumFactor, 2);
    EXPECT_EQ (meridex::kMemoryError, 1000001);
    EXPECT_EQ (meridex::kStartRunning, 5000001);
    EXPECT_EQ (meridex::kBadChannelCount, 5000005);
}

TEST (MeridexErrors, FormatCheckRefusesRatesAndChannelsAtTheEdges)
{
    EXPECT_EQ (meridex::checkFormat (8000, 1), meridex::kNoError);
    EXPECT_EQ (meridex::checkFormat (384000, 48), meridex::kNoError);
    EXPECT_EQ (meridex::checkFormat (7999, 2), meridex::kBadSampleRate);
    EXPECT_EQ (meridex::checkFormat (384001, 2), meridex::kBadSampleRate);
    EXPECT_EQ (meridex::checkFormat (44100, 0), meridex::kBadChannelCount);
    EXPECT_EQ (meridex::checkFormat (44100, 49), meridex::kBadChannelCount);
    // A bad rate is reported before a bad channel count.
    EXPECT_EQ (meridex::checkFormat (0, 0), meridex::kBadSampleRate);
}

TEST (MeridexErrors, EveryCodeHasANonEmptyText)
{
    for (int code : { 0, -1, 2, 1000001, 5000001, 5000002, 5000003, 5000004, 5000005, 42 })
        EXPECT_FALSE (std::string (meridex::describeError (code)).empty()) << code;
}
