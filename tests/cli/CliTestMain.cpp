#include <gtest/gtest.h>
#include <juce_events/juce_events.h>

// One JUCE initialiser for the whole binary: the processor needs a message
// manager, and this thread is its message thread.
int main (int argc, char** argv)
{
    ::testing::InitGoogleTest (&argc, argv);
    const juce::ScopedJuceInitialiser_GUI juceInitialiser;
    return RUN_ALL_TESTS();
}
