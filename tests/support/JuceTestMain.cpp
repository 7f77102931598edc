#include <cstdlib>
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
    // Processors read and write the user's settings: give the whole binary a
    // home of its own so that no test touches the real one.
    char home[] = "/tmp/tavrine-tests-home-XXXXXX";
    if (mkdtemp (home) != nullptr)
        setenv ("HOME", home, 1);

    ::testing::InitGoogleTest (&argc, argv);
    ::testing::AddGlobalTestEnvironment (new JuceEnvironment());
    const int result = RUN_ALL_TESTS();
    juce::File (home).deleteRecursively();
    return result;
}
