#include <gtest/gtest.h>
#include <juce_events/juce_events.h>

namespace
{
// One JUCE GUI initialiser for the whole binary: the main thread is the
// message thread, as in a host.
class JuceEnvironment : public ::testing::Environment
{
public:
    void SetUp() override { initialiser = std::make_unique<juce::ScopedJuceInitialiser_GUI>(); }
    void TearDown() override { initialiser.reset(); }

private:
    std::unique_ptr<juce::ScopedJuceInitialiser_GUI> initialiser;
};
} // namespace

int main (int argc, char** argv)
{
    ::testing::InitGoogleTest (&argc, argv);
    ::testing::AddGlobalTestEnvironment (new JuceEnvironment());
    return RUN_ALL_TESTS();
}
