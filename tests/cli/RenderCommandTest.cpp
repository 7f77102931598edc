#include <cmath>
#include <limits>
#include <optional>

#include "cli/RenderCommand.h"
#include "tests/cli/CliTestSupport.h"
#include "tests/support/AllocationCounter.h"

using namespace tavrineCli;

namespace
{
// Plays `level` everywhere (NaN on every nanEvery-th sample) and records what
// a host hands it: each event at its absolute sample, and per block the
// play head's position against the probe's own count of samples.
class ProbeProcessor final : public juce::AudioProcessor
{
public:
    ProbeProcessor() : AudioProcessor (BusesProperties().withOutput ("Out", juce::AudioChannelSet::stereo(), true)) {}

    void prepareToPlay (double, int maxBlock) override
    {
        preparedBlockSize = maxBlock;
        prepareThread = juce::Thread::getCurrentThreadId();
        events.reserve (1024);
    }
    void releaseResources() override
    {
        ++releaseCount;
        releaseThread = juce::Thread::getCurrentThreadId();
    }

    void processBlock (juce::AudioBuffer<float>& buffer, juce::MidiBuffer& midi) override
    {
        blocksOffThePrepareThread += juce::Thread::getCurrentThreadId() != prepareThread;
        // From the second block on: what the host's loop, the probe and the
        // sink allocated in between.
        if (rendered == 0)
            allocationsAfterFirstBlock.reset();
        else if (! allocationsAfterFirstBlock.has_value())
            allocationsAfterFirstBlock.emplace();
        else
            allocationsInLaterBlocks = allocationsAfterFirstBlock->count();
        const auto position = getPlayHead()->getPosition();
        playHeadErrors += position->getTimeInSamples().orFallback (-1) != (position->getIsPlaying() ? rendered : 0);
        blocksPlaying += position->getIsPlaying();
        maxBlockSeen = std::max (maxBlockSeen, buffer.getNumSamples());
        for (const auto metadata : midi)
            events.emplace_back (rendered + metadata.samplePosition, metadata.getMessage().getNoteNumber());
        for (int ch = 0; ch < buffer.getNumChannels(); ++ch)
            for (int i = 0; i < buffer.getNumSamples(); ++i)
                buffer.setSample (
                    ch, i,
                    nanEvery > 0 && (rendered + i) % nanEvery == 0 ? std::numeric_limits<float>::quiet_NaN() : level);
        rendered += buffer.getNumSamples();
    }
    using AudioProcessor::processBlock;

    const juce::String getName() const override { return "Probe"; }
    double getTailLengthSeconds() const override { return 0.0; }
    bool acceptsMidi() const override { return true; }
    bool producesMidi() const override { return false; }
    juce::AudioProcessorEditor* createEditor() override { return nullptr; }
    bool hasEditor() const override { return false; }
    int getNumPrograms() override { return 1; }
    int getCurrentProgram() override { return 0; }
    void setCurrentProgram (int) override {}
    const juce::String getProgramName (int) override { return {}; }
    void changeProgramName (int, const juce::String&) override {}
    void getStateInformation (juce::MemoryBlock&) override {}
    void setStateInformation (const void*, int) override {}

    float level = 0.0f;
    int nanEvery = 0;
    std::vector<std::pair<juce::int64, int>> events;
    juce::int64 rendered = 0;
    int preparedBlockSize = 0, maxBlockSeen = 0, releaseCount = 0, playHeadErrors = 0, blocksPlaying = 0;
    int blocksOffThePrepareThread = 0;
    juce::Thread::ThreadID prepareThread {}, releaseThread {};
    std::optional<tavrine::test::ScopedAllocationCount> allocationsAfterFirstBlock;
    std::size_t allocationsInLaterBlocks = 0;
};

RenderOptions optionsFor (const juce::File& out, int rate, int blockSize)
{
    RenderOptions options;
    options.outPath = out.getFullPathName();
    options.sampleRate = rate;
    options.blockSize = blockSize;
    return options;
}
} // namespace

TEST (RenderOffline, EveryBlockSizeDeliversEachEventOnItsSampleWithAMatchingPlayHead)
{
    const auto schedule = MidiSchedule::makeBuiltInPattern (150.0, 44100.0);
    for (const auto transport : { Transport::playing, Transport::stopped })
    {
        for (const int blockSize : { 1, 7, 64, 512, 4096 })
        {
            ProbeProcessor probe;
            OfflineRenderSettings settings;
            settings.blockSize = blockSize;
            settings.transport = transport;
            settings.lengthSamples = schedule.getLengthSamples() + 1001; // most sizes end on a short block
            juce::int64 sunk = 0;
            ASSERT_TRUE (renderOffline (probe, schedule, settings, [&] (const juce::AudioBuffer<float>& block) {
                sunk += block.getNumSamples();
                return true;
            }));

            SCOPED_TRACE (juce::String ("block ") + juce::String (blockSize));
            EXPECT_EQ (sunk, settings.lengthSamples);
            EXPECT_EQ (probe.rendered, settings.lengthSamples);
            EXPECT_EQ (probe.preparedBlockSize, blockSize);
            EXPECT_LE (probe.maxBlockSeen, blockSize);
            EXPECT_EQ (probe.releaseCount, 1);
            EXPECT_EQ (probe.getPlayHead(), nullptr) << "the play head must not outlive the render";
            EXPECT_EQ (probe.playHeadErrors, 0);
            EXPECT_EQ (probe.blocksPlaying > 0, transport == Transport::playing);
            ASSERT_EQ (probe.events.size(), schedule.getEvents().size());
            for (size_t i = 0; i < probe.events.size(); ++i)
            {
                EXPECT_EQ (probe.events[i].first, schedule.getEvents()[i].samplePosition);
                EXPECT_EQ (probe.events[i].second, schedule.getEvents()[i].message.getNoteNumber());
            }
        }
    }
}

// As in a host: prepare, blocks and release on one audio thread of their own,
// while the message thread goes on delivering messages (timers, callAsync).
TEST (RenderOffline, RunsTheCallbacksOnAnAudioThreadWhileTheMessageThreadDeliversMessages)
{
    const auto schedule = MidiSchedule::makeBuiltInPattern (120.0, 44100.0);
    ProbeProcessor probe;
    OfflineRenderSettings settings;
    settings.blockSize = 256;
    settings.lengthSamples = 20 * 256;

    // Shared with the message, which may arrive after a failed wait.
    struct Delivery
    {
        juce::WaitableEvent arrived;
        std::atomic<bool> onMessageThread { false };
    };
    const auto delivery = std::make_shared<Delivery>();
    int sunkBlocks = 0;
    bool deliveredDuringRender = false;
    ASSERT_TRUE (renderOffline (probe, schedule, settings, [&] (const juce::AudioBuffer<float>&) {
        if (++sunkBlocks == 3)
        {
            juce::MessageManager::callAsync ([delivery] {
                delivery->onMessageThread = juce::MessageManager::existsAndIsCurrentThread();
                delivery->arrived.signal();
            });
            deliveredDuringRender = delivery->arrived.wait (5000);
        }
        return true;
    }));

    const auto messageThread = juce::MessageManager::getInstance()->getCurrentMessageThread();
    EXPECT_NE (probe.prepareThread, messageThread);
    EXPECT_EQ (probe.releaseThread, probe.prepareThread);
    EXPECT_EQ (probe.blocksOffThePrepareThread, 0);
    EXPECT_EQ (probe.rendered, settings.lengthSamples);
    EXPECT_TRUE (deliveredDuringRender);
    EXPECT_TRUE (delivery->onMessageThread.load());
}

TEST (RenderOffline, BlocksAfterTheFirstAllocateNothingOnTheAudioThread)
{
    const auto schedule = MidiSchedule::makeBuiltInPattern (150.0, 44100.0);
    ProbeProcessor probe;
    OfflineRenderSettings settings;
    settings.blockSize = 64;
    settings.lengthSamples = schedule.getLengthSamples() + 100;
    ASSERT_TRUE (renderOffline (probe, schedule, settings, [] (const juce::AudioBuffer<float>&) { return true; }));
    ASSERT_FALSE (probe.events.empty());
    EXPECT_EQ (probe.allocationsInLaterBlocks, 0u);
}

using RenderToFile = CliTempDirTest;

TEST_F (RenderToFile, WritesExactlyTheRequestedLengthRateAndDepthOverALongerEarlierFile)
{
    struct Case
    {
        int rate, bits;
        double seconds;
    };
    // Longest first: each render replaces a longer file.
    for (const auto& c :
         { Case { 48000, 24, 2.0 }, Case { 44100, 24, 1.25 }, Case { 44100, 16, 0.5 }, Case { 44100, 32, 0.25 } })
    {
        SCOPED_TRACE (juce::String (c.rate) + " Hz, " + juce::String (c.bits) + " bits");
        auto options = optionsFor (file ("out.wav"), c.rate, 512);
        options.lengthSeconds = c.seconds;
        options.bitsPerSample = c.bits;
        const auto result = renderToFile (options);
        ASSERT_EQ (result.code, ExitCode::success) << result.errorText;

        const auto wav = readWav (file ("out.wav"));
        EXPECT_EQ (wav.lengthSamples, std::llround (c.seconds * c.rate));
        EXPECT_EQ (result.summary.lengthSamples, wav.lengthSamples);
        EXPECT_EQ (std::make_tuple (wav.sampleRate, wav.numChannels, wav.bitsPerSample, wav.isFloat),
                   std::make_tuple ((double) c.rate, 2, c.bits, c.bits == 32));
        EXPECT_TRUE (wav.allFinite);
    }
}

TEST_F (RenderToFile, PatternLengthPlusTailIsTheSameForEveryBlockSize)
{
    for (const int blockSize : { 1, 64, 512, 4096 })
    {
        auto options = optionsFor (file ("out.wav"), 48000, blockSize);
        options.bpm = 300.0;
        options.tailSeconds = 0.25;
        const auto result = renderToFile (options);
        ASSERT_EQ (result.code, ExitCode::success) << result.errorText;
        // Two bars at 300 bpm (1.6 s), then the tail.
        EXPECT_EQ (readWav (file ("out.wav")).lengthSamples, 76800 + 12000) << "block " << blockSize;
    }
}

TEST_F (RenderToFile, ReportsThePeakAndWritesNonFiniteSamplesAsZero)
{
    ProbeProcessor probe;
    probe.level = -0.5f;
    probe.nanEvery = 100;
    auto options = optionsFor (file ("out.wav"), 44100, 64);
    options.lengthSeconds = 0.1;
    options.bitsPerSample = 32;

    const auto result = renderToFile (options, probe);
    ASSERT_EQ (result.code, ExitCode::success) << result.errorText;
    EXPECT_FLOAT_EQ (result.summary.peak, 0.5f);
    EXPECT_EQ (result.summary.nonFiniteSamples, 2 * 45); // samples 0, 100, ... 4400 of both channels
    EXPECT_TRUE (readWav (file ("out.wav")).allFinite);
    EXPECT_EQ (result.summary.toString(), file ("out.wav").getFullPathName()
                                              + ": 4410 samples (0.100 s) at 44100 Hz, 32-bit float stereo, "
                                                "peak 0.500000 (-6.02 dBFS)");
}

TEST_F (RenderToFile, UnwritableOutputsFailWithTheOutputCodeAndLeaveNoFile)
{
    const auto readOnly = file ("read-only");
    ASSERT_TRUE (readOnly.createDirectory().wasOk());
    ASSERT_TRUE (readOnly.setReadOnly (true));
    // Privileged users write into read-only directories: test that one only
    // where it means something.
    const bool readOnlyHolds = readOnly.getChildFile ("probe").create().failed();

    for (const auto& out : { file ("no-such-dir").getChildFile ("out.wav"), dir, readOnly.getChildFile ("out.wav") })
    {
        if (out.isAChildOf (readOnly) && ! readOnlyHolds)
            continue;
        const auto result = renderToFile (optionsFor (out, 44100, 512));
        EXPECT_EQ (result.code, ExitCode::output) << out.getFullPathName();
        EXPECT_TRUE (result.errorText.contains (out.getFullPathName())) << result.errorText;
        EXPECT_FALSE (out.existsAsFile());
    }
    readOnly.setReadOnly (false);
}

TEST_F (RenderToFile, BadMidiFailsWithTheInputCodeBeforeTouchingTheOutput)
{
    ASSERT_TRUE (file ("out.wav").replaceWithText ("an earlier render"));
    ASSERT_TRUE (file ("corrupt.mid").replaceWithText ("MThd followed by garbage"));
    auto options = optionsFor (file ("out.wav"), 44100, 512);
    options.midiPath = file ("corrupt.mid").getFullPathName();

    const auto result = renderToFile (options);
    EXPECT_EQ (result.code, ExitCode::input);
    EXPECT_TRUE (result.errorText.contains (options.midiPath)) << result.errorText;
    EXPECT_EQ (file ("out.wav").loadFileAsString(), "an earlier render");
}
