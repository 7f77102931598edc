#include <gtest/gtest.h>

#include "tests/support/ProcessorHarness.h"

using namespace tavrine::test;

TEST (ProcessorHostTable, PublishesNineParametersPerKeyInTableOrder)
{
    TavrinePluginProcessor processor;
    const auto& parameters = processor.getParameters();
    ASSERT_EQ (parameters.size(), 648);

    const char* rows[] = { "Begin",     "Length",  "Volume",     "Pan",       "Cutoff",
                           "Resonance", "Reverse", "Resampling", "Finetuning" };
    const char* paths[] = { "nextBeginLoop",  "nextLoopLength",         "gain.xyMode",
                            "balance.xyMode", "filterFrequency.xyMode", "filterQ.xyMode",
                            "globalReverse",  "resamplingRatio.xyMode", "resamplingRatio.fine" };
    for (int key = 0; key < 72; ++key)
        for (int row = 0; row < 9; ++row)
        {
            auto* p = dynamic_cast<qvrControllableToolbox::AutomationEntry*> (parameters[9 * key + row]);
            ASSERT_NE (p, nullptr);
            EXPECT_EQ (p->getName (100), TavrineEngine::getKeyName (key) + " " + rows[row]);
            EXPECT_EQ (p->getPath(), "loop" + juce::String (key) + "." + paths[row]);
            EXPECT_EQ (p->getParameterIndex(), 9 * key + row);
        }
    EXPECT_EQ (parameters[0]->getName (100), "C1 Begin");
    EXPECT_EQ (parameters[10]->getName (100), "C#1 Length");
    EXPECT_EQ (parameters[647]->getName (100), "B6 Finetuning");
}

TEST (ProcessorHostTable, HostValuesMapTheLoopRangesOntoZeroToOne)
{
    TavrinePluginProcessor processor;
    auto& loop = *processor.getEngine().getLoop (3);
    auto* volume = processor.getParameters()[9 * 3 + 2];
    auto* reverse = processor.getParameters()[9 * 3 + 6];
    auto* fine = processor.getParameters()[9 * 3 + 8];

    // gain.xyMode: 0..2, default -3 dB.
    EXPECT_NEAR (volume->getDefaultValue(), 0.70794578 / 2.0, 1e-6);
    volume->setValue (1.0f);
    EXPECT_DOUBLE_EQ (loop.gainXy.read(), 2.0);
    EXPECT_NEAR (volume->getValue(), 1.0f, 1e-6);

    reverse->setValue (0.8f);
    EXPECT_TRUE (loop.globalReverse.read());
    reverse->setValue (0.2f);
    EXPECT_FALSE (loop.globalReverse.read());

    fine->setValue (0.25f);
    EXPECT_DOUBLE_EQ (loop.resamplingRatioFine.read(), 0.75);
    EXPECT_EQ (fine->getText (0.5f, 20), "1");
}

TEST (ProcessorState, AnyStateBlockIsSurvivedAndMarksTheStateRestored)
{
    TavrinePluginProcessor processor;
    juce::MemoryBlock state;
    processor.getStateInformation (state);
    EXPECT_GT (state.getSize(), 0u);

    const char garbage[] = "not a state block at all";
    processor.setStateInformation (garbage, (int) sizeof (garbage));
    processor.setStateInformation (nullptr, 0);
    processor.setStateInformation (state.getData(), (int) state.getSize());
    juce::MemoryBlock truncated (state.getData(), state.getSize() / 2);
    processor.setStateInformation (truncated.getData(), (int) truncated.getSize());
    EXPECT_TRUE (processor.isStateRestored());
    EXPECT_EQ (processor.getName(), "Tavrine 2");
}
