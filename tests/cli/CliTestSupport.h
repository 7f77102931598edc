#pragma once

#include <gtest/gtest.h>
#include <juce_audio_formats/juce_audio_formats.h>

// A fixture with a fresh temporary directory, removed after each test. The
// name is unique across processes: ctest runs tests of this binary side by
// side, and two processes asking for the first free name at once get the same
// one, so one test's tear-down removed the other's files.
class CliTempDirTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        dir = juce::File::getSpecialLocation (juce::File::tempDirectory)
                  .getChildFile ("tavrine-cli-test-" + juce::Uuid().toString());
        ASSERT_TRUE (dir.createDirectory().wasOk());
    }
    void TearDown() override { dir.deleteRecursively(); }

    juce::File file (const juce::String& name) const { return dir.getChildFile (name); }

    static void writeMidi (const juce::File& target, const juce::MidiFile& midi)
    {
        juce::FileOutputStream out (target);
        ASSERT_TRUE (out.openedOk() && out.truncate().wasOk() && midi.writeTo (out, 1));
    }

    juce::File dir;
};

// A WAV or AIFF file read back through JUCE's readers; lengthSamples is -1
// if it does not open.
struct WavContents
{
    juce::int64 lengthSamples = -1;
    double sampleRate = 0.0;
    int numChannels = 0, bitsPerSample = 0;
    bool isFloat = false, allFinite = true;
    juce::AudioBuffer<float> samples;
};

inline WavContents readWav (const juce::File& wavFile)
{
    juce::AudioFormatManager formats;
    formats.registerBasicFormats();
    std::unique_ptr<juce::AudioFormatReader> reader (formats.createReaderFor (wavFile));
    if (reader == nullptr)
        return {};

    const int length = (int) reader->lengthInSamples;
    WavContents contents { reader->lengthInSamples,
                           reader->sampleRate,
                           (int) reader->numChannels,
                           (int) reader->bitsPerSample,
                           reader->usesFloatingPointData,
                           true,
                           juce::AudioBuffer<float> ((int) reader->numChannels, length) };
    reader->read (&contents.samples, 0, length, 0, true, true);
    for (int ch = 0; ch < contents.numChannels; ++ch)
        for (int i = 0; i < length; ++i)
            contents.allFinite = contents.allFinite && std::isfinite (contents.samples.getSample (ch, i));
    return contents;
}
