#include <gtest/gtest.h>

#include "shell/TavrinePluginProcessor.h"

// Every bus a part of the player offers (a loop's bus, the prelisten bus) is
// one of the host's outputs, and every host output can be chosen: the engine's
// bus count is the one figure all of them are built from.
TEST (OutputBuses, LoopsPrelistenAndHostOfferTheSameBuses)
{
    TavrinePluginProcessor processor;
    const int buses = TavrineEngine::kNumOutputBuses;
    EXPECT_EQ (processor.getBusCount (false), buses);
    EXPECT_EQ (processor.getEngine().getNumOutputBuses(), buses);

    for (int key : { 0, TavrineEngine::kNumLoops - 1 })
    {
        auto& loop = *processor.getEngine().getLoop (key);
        EXPECT_EQ (loop.outputBus.minimum.get(), 0) << key;
        EXPECT_EQ (loop.outputBus.maximum.get(), buses - 1) << key;
    }

    auto* settings = TavrineSettings::getInstanceIfCreated();
    ASSERT_NE (settings, nullptr);
    auto choices = settings->prelistenOutputBus->getChoices();
    ASSERT_EQ (choices->size(), buses);
    // The host's name of each output and the settings' text for that bus are
    // one name: the user picks "Output 31/32" and hears it there.
    for (int b = 0; b < buses; ++b)
    {
        EXPECT_EQ (choices->get (b)->getInt(), b);
        EXPECT_EQ (choices->get (b)->getString(), processor.getBus (false, b)->getName()) << b;
        EXPECT_EQ (processor.getBus (false, b)->getDefaultLayout(), juce::AudioChannelSet::stereo()) << b;
    }
    EXPECT_EQ (processor.getBus (false, buses - 1)->getName(), "Output 31/32");
}
