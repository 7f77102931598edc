#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

#include "tests/support/MessagePump.h"
#include "tests/support/ProcessorHarness.h"

using namespace tavrine::test;

namespace
{
// Collects the assertion reports of every thread: with JUCE_LOG_ASSERTIONS a
// jassert reaches the current logger instead of only printing.
class AssertionLog : public juce::Logger
{
public:
    AssertionLog() : previous (juce::Logger::getCurrentLogger()) { juce::Logger::setCurrentLogger (this); }
    ~AssertionLog() override { juce::Logger::setCurrentLogger (previous); }

    void logMessage (const juce::String& message) override
    {
        if (! message.startsWith ("JUCE Assertion failure"))
            return;
        const std::lock_guard<std::mutex> lock (mutex);
        failures.add (message);
    }

    juce::StringArray getFailures()
    {
        const std::lock_guard<std::mutex> lock (mutex);
        return failures;
    }

private:
    juce::Logger* previous;
    std::mutex mutex;
    juce::StringArray failures;
};

enum class MessageThreadProcessor
{
    none,
    aliveThroughout,
};

class ProcessorLifetime : public ::testing::TestWithParam<MessageThreadProcessor>
{};
} // namespace

// A host that builds and destroys the plug-in on its own thread (JUCE's LV2
// client does) while the message thread runs timers and drains parameter
// changes: no framework object may be built or torn down unguarded.
TEST_P (ProcessorLifetime, BuildingAndDestroyingOnAHostThreadKeepsTheMessageThreadOut)
{
    AssertionLog log;
    std::unique_ptr<TavrinePluginProcessor> resident;
    if (GetParam() == MessageThreadProcessor::aliveThroughout)
        resident = std::make_unique<TavrinePluginProcessor>();

    std::atomic<bool> finished { false };
    std::atomic<int> built { 0 };
    std::thread host ([&] {
        for (int round = 0; round < 3; ++round)
        {
            auto processor = std::make_unique<TavrinePluginProcessor>();
            // A host write in between leaves work for the message thread's drain.
            processor->getParameters()[9 * round + 2]->setValue (0.25f);
            processor.reset();
            ++built;
        }
        finished = true;
    });

    const bool done = pumpMessagesUntil ([&] { return finished.load(); }, 60000);
    host.join();
    ASSERT_TRUE (done);
    EXPECT_EQ (built.load(), 3);
    const auto failures = log.getFailures();
    EXPECT_TRUE (failures.isEmpty()) << failures.joinIntoString ("\n");

    // The last holder of the settings deletes them, on whichever thread.
    resident.reset();
    pumpMessagesUntil ([] { return false; }, 50);
    EXPECT_EQ (TavrineSettings::getInstanceIfCreated(), nullptr);
    EXPECT_EQ (TavrinePluginProcessor::getNumInstances(), 0);
}

INSTANTIATE_TEST_SUITE_P (Hosts, ProcessorLifetime,
                          ::testing::Values (MessageThreadProcessor::none, MessageThreadProcessor::aliveThroughout));
