#include <cstdlib>
#include <gtest/gtest.h>
#include <juce_events/juce_events.h>

#include "controllable/lib/ParameterTypeImpl.h"

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
// The change queues are process-wide, and a whole binary runs in one process
// under the thread sanitizer: changes a test made off the message thread and
// never drained (a render on an audio thread) would fill them for the tests
// after it, whose own changes would then be lost. Each test starts with empty
// queues; nothing of an earlier test is delivered into it.
class EmptyChangeQueues : public ::testing::EmptyTestEventListener
{
    void OnTestStart (const ::testing::TestInfo&) override
    {
        // Blanked entries still hold their place until a drain passes them.
        for (auto* type : qvrControllableLib::ParameterTypes::all())
        {
            type->cancelAllChanges();
            type->drainChanges();
        }
    }
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
    ::testing::UnitTest::GetInstance()->listeners().Append (new EmptyChangeQueues());
    const int result = RUN_ALL_TESTS();
    juce::File (home).deleteRecursively();
    return result;
}
