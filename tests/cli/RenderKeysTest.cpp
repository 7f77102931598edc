#include "CliTestSupport.h"

#include <cmath>
#include <sstream>
#include <vector>

#include "cli/RenderCommand.h"

using namespace tavrineCli;

namespace
{
constexpr double kFileRate = 44100.0;

// One bar of 4/4 at `bpm`: a short decaying burst on each beat, silence
// between them, so that every beat is one clear onset however it is stretched.
void writeClickLoop (const juce::File& target, double bpm)
{
    const int beat = (int) std::lround (kFileRate * 60.0 / bpm);
    juce::AudioBuffer<float> loop (2, 4 * beat);
    loop.clear();
    for (int b = 0; b < 4; ++b)
        for (int i = 0; i < 441; ++i)
            for (int ch = 0; ch < 2; ++ch)
                loop.setSample (ch, b * beat + i,
                                0.7f * std::exp (-i / 80.0f) * std::sin (0.2849f * (float) i)); // ~2 kHz
    juce::WavAudioFormat wav;
    std::unique_ptr<juce::AudioFormatWriter> writer (
        wav.createWriterFor (new juce::FileOutputStream (target), kFileRate, 2, 24, {}, 0));
    ASSERT_NE (writer, nullptr);
    ASSERT_TRUE (writer->writeFromAudioSampleBuffer (loop, 0, loop.getNumSamples()));
}

// Samples at which sound crosses 0.05 after at least 5 ms below it.
std::vector<int> onsetsOf (const juce::AudioBuffer<float>& audio, double rate)
{
    const int quietNeeded = (int) (0.005 * rate);
    std::vector<int> onsets;
    int lastLoud = -quietNeeded - 1;
    for (int i = 0; i < audio.getNumSamples(); ++i)
    {
        if (std::fabs (audio.getSample (0, i)) < 0.05f)
            continue;
        if (i - lastLoud > quietNeeded)
            onsets.push_back (i);
        lastLoud = i;
    }
    return onsets;
}

class RenderKeys : public CliTempDirTest
{
protected:
    RenderOptions optionsFor (int rate, double hostBpm)
    {
        RenderOptions options;
        options.outPath = file ("out.wav").getFullPathName();
        options.sampleRate = rate;
        options.blockSize = 256;
        options.bpm = hostBpm;
        options.lengthSeconds = 6.0;
        return options;
    }
};
} // namespace

// The loop is fitted to the host's tempo before the first block: a bar of
// 120 bpm held in a host at 90 bpm gives a click every 2/3 s from the start,
// at every rate the host runs at.
TEST_F (RenderKeys, ALoopOf120BpmPlaysOnTheBeatsOfAHostAt90)
{
    writeClickLoop (file ("loop_120_clicks.wav"), 120.0);
    for (const int rate : { 44100, 48000, 96000 })
    {
        SCOPED_TRACE (juce::String (rate) + " Hz");
        auto options = optionsFor (rate, 90.0);
        options.keys.add ({ 0, file ("loop_120_clicks.wav").getFullPathName() });
        std::ostringstream progress;
        const auto result = renderToFile (options, progress);
        ASSERT_EQ (result.code, ExitCode::success) << result.errorText;

        const auto wav = readWav (file ("out.wav"));
        const auto onsets = onsetsOf (wav.samples, rate);
        const double beat = rate * 60.0 / 90.0;
        ASSERT_GE (onsets.size(), 8u) << "peak " << wav.samples.getMagnitude (0, 0, wav.samples.getNumSamples());
        // The stretcher may move a click's start by a few milliseconds; a
        // loop left at its own tempo would be 167 ms short per beat.
        EXPECT_LT (onsets[0], (int) (0.005 * rate));
        for (size_t i = 1; i < onsets.size(); ++i)
            EXPECT_NEAR (onsets[i] - onsets[i - 1], beat, 0.003 * rate) << "beat " << i;
    }
}

// A key restored from a state is fitted to the host's tempo before the first
// block as well: the built-in pattern holds C1 for three and a half beats.
TEST_F (RenderKeys, AKeyOfAStateIsFittedToTheHostBeforeTheFirstBlock)
{
    writeClickLoop (file ("loop_120_clicks.wav"), 120.0);
    ASSERT_TRUE (file ("state.xml").replaceWithText (
        "<state><c prefix=\"engine\"><p name=\"master.masterBpm\" value=\"120\"/><p name=\"loop0.fileName\" value=\""
        + file ("loop_120_clicks.wav").getFullPathName() + "\"/></c></state>"));
    auto options = optionsFor (44100, 90.0);
    options.statePath = file ("state.xml").getFullPathName();
    std::ostringstream progress;
    const auto result = renderToFile (options, progress);
    ASSERT_EQ (result.code, ExitCode::success) << result.errorText;

    const auto onsets = onsetsOf (readWav (file ("out.wav")).samples, 44100);
    ASSERT_GE (onsets.size(), 4u);
    for (size_t i = 1; i < 4; ++i)
        EXPECT_NEAR (onsets[i] - onsets[i - 1], 29400, 0.003 * 44100) << "beat " << i;
}

TEST_F (RenderKeys, MissingAndUnreadableSamplesFailWithTheInputCodeAndWriteNothing)
{
    ASSERT_TRUE (file ("notes.wav").replaceWithText ("not audio"));
    struct Case
    {
        const char* name;
        const char* error;
    };
    for (const auto& c : { Case { "missing.wav", "cannot read sample file" },
                           Case { "notes.wav", "is not a readable audio file" } })
    {
        SCOPED_TRACE (c.name);
        auto options = optionsFor (44100, 120.0);
        options.keys.add ({ 5, file (c.name).getFullPathName() });
        std::ostringstream progress;
        const auto result = renderToFile (options, progress);
        EXPECT_EQ (result.code, ExitCode::input);
        EXPECT_TRUE (result.errorText.startsWith ("--key F1: ")) << result.errorText;
        EXPECT_TRUE (result.errorText.contains (c.error)) << result.errorText;
        EXPECT_FALSE (file ("out.wav").exists());
    }
}
