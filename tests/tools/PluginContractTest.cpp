#include "tools/plugin_check/PluginContract.h"

#include <gtest/gtest.h>

#include <set>

using namespace pluginCheck;

// Sessions keep parameters by ID: two paths whose IDs agree would make a host
// restore one parameter's automation into the other.
TEST (PluginContract, EveryNamePathAndVst3IdIsUnique)
{
    const auto table = makeExpectedTable();
    ASSERT_EQ ((int) table.size(), kNumHostParameters);
    std::set<juce::String> names, paths, ids;
    for (const auto& entry : table)
    {
        EXPECT_TRUE (names.insert (entry.name).second) << entry.name;
        EXPECT_TRUE (paths.insert (entry.path).second) << entry.path;
        EXPECT_TRUE (ids.insert (vst3IdForPath (entry.path)).second) << entry.path;
        // A VST3 ID is the non-negative 31-bit hash, written in decimal.
        EXPECT_TRUE (vst3IdForPath (entry.path).containsOnly ("0123456789")) << entry.path;
        EXPECT_FALSE (entry.path.containsChar ('.')) << entry.path;
    }
}

// Host index = 9 x key + row, keys from C1 up: the first, a middle and the
// last entry pin the order hosts list and sessions remember.
TEST (PluginContract, HostIndexRunsKeyMajorFromC1ToB6)
{
    const auto table = makeExpectedTable();
    ASSERT_EQ ((int) table.size(), kNumKeys * kNumRows);
    EXPECT_EQ (table.front().name, "C1 Begin");
    EXPECT_EQ (table.front().path, "loop0_nextBeginLoop");
    EXPECT_EQ (table[(size_t) (kNumRows * 13 + 2)].name, "C#2 Volume");
    EXPECT_EQ (table[(size_t) (kNumRows * 13 + 2)].path, "loop13_gain_xyMode");
    EXPECT_EQ (table.back().name, "B6 Finetuning");
    EXPECT_EQ (table.back().path, "loop71_resamplingRatio_fine");
}

TEST (PluginContract, Lv2IdIsThePropertyUnderTheUri)
{
    EXPECT_EQ (lv2IdForPath ("https://example.org/t2", "loop3.gain.xyMode"),
               "des:https://example.org/t2:loop3_gain_xyMode");
}
