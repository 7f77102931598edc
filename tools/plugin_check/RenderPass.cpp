#include "RenderPass.h"

#include "ProblemList.h"
#include "ScriptedPlayHead.h"
#include "Stopwatch.h"

#include <cmath>
#include <vector>

namespace pluginCheck
{
namespace
{
// Notes of the first key (36), a middle key (60), the last key (107) and one
// outside each end (35, 108), on several channels, with a zero-velocity
// note-on as note-off, a retrigger of a held key, and messages that must be
// ignored. Played cyclically.
std::vector<juce::MidiMessage> makeMidiScript()
{
    using Midi = juce::MidiMessage;
    return {
        Midi::noteOn (1, 36, (juce::uint8) 100),
        Midi::noteOn (1, 60, (juce::uint8) 80),
        Midi::noteOn (16, 107, (juce::uint8) 127),
        Midi::noteOn (1, 35, (juce::uint8) 100),
        Midi::noteOn (1, 108, (juce::uint8) 100),
        Midi::controllerEvent (1, 7, 0),
        Midi::pitchWheel (1, 0),
        Midi::noteOff (1, 36, (juce::uint8) 0),
        Midi::noteOn (1, 60, (juce::uint8) 0),
        Midi::noteOff (16, 107, (juce::uint8) 64),
        Midi::noteOff (1, 35, (juce::uint8) 0),
        Midi::noteOff (1, 108, (juce::uint8) 0),
        Midi::programChange (1, 3),
        Midi::noteOn (2, 36, (juce::uint8) 1),
        Midi::noteOn (2, 36, (juce::uint8) 127),
        Midi::noteOff (2, 36, (juce::uint8) 0),
    };
}

// Hosts hand over output buffers holding whatever was there before; this
// check fills them with a value no plug-in writes, so that a channel the
// plug-in leaves unwritten shows.
constexpr float kHostFillValue = 12345.0f;

// +24 dBFS: far above anything the player can sum to, far below the values
// that uninitialised memory or a runaway filter produce.
constexpr float kMaxPlausibleLevel = 16.0f;
} // namespace

void render (juce::AudioPluginInstance& instance, const RenderPass& pass, CheckReport& report,
             const std::function<void (int, int)>& betweenBlocks)
{
    Stopwatch stopwatch;
    // A layout may change only while the plug-in is not prepared, as in a host.
    instance.releaseResources();
    if (pass.buses == BusChoice::all)
    {
        if (! instance.enableAllBuses())
            report.note ("the host could not enable all output buses");
    }
    else
        instance.disableNonMainBuses();

    instance.setNonRealtime (false);
    instance.prepareToPlay (pass.sampleRate, pass.blockSize);
    const int channels = juce::jmax (instance.getTotalNumInputChannels(), instance.getTotalNumOutputChannels());

    ScriptedPlayHead playHead;
    instance.setPlayHead (&playHead);

    juce::AudioBuffer<float> buffer (channels, pass.blockSize);
    juce::MidiBuffer midi;
    const auto script = makeMidiScript();
    size_t nextEvent = 0;
    juce::Random random (2);
    int numEvents = 0;
    std::vector<float> channelPeaks ((size_t) channels, 0.0f);
    ProblemList nonFinite, implausible, notSilent;

    juce::AudioBuffer<float> empty (channels, 0);
    instance.processBlock (empty, midi);

    const int numBlocks = (int) std::ceil (pass.seconds * pass.sampleRate / pass.blockSize);
    for (int block = 0; block < numBlocks; ++block)
    {
        if (betweenBlocks)
            betweenBlocks (block, numBlocks);

        playHead.moveTo ((double) block / numBlocks, pass.sampleRate, pass.blockSize);
        midi.clear();
        const int last = pass.blockSize - 1;
        const auto add = [&] (int offset) {
            midi.addEvent (script[nextEvent], offset);
            nextEvent = (nextEvent + 1) % script.size();
            ++numEvents;
        };
        switch (block % 5)
        {
            case 1: add (0); break;
            case 2: add (last); break;
            case 3:
                add (last / 2);
                add (last / 2);
                break;
            case 4:
                for (int i = 0; i < 3; ++i)
                    add (random.nextInt (pass.blockSize));
                break;
            default: break;
        }

        for (int channel = 0; channel < channels; ++channel)
            juce::FloatVectorOperations::fill (buffer.getWritePointer (channel), kHostFillValue, pass.blockSize);
        instance.processBlock (buffer, midi);

        for (int channel = 0; channel < channels; ++channel)
        {
            const auto* samples = buffer.getReadPointer (channel);
            const auto where = "block " + juce::String (block) + ", channel " + juce::String (channel + 1);
            float peak = 0.0f;
            for (int i = 0; i < pass.blockSize; ++i)
            {
                if (! std::isfinite (samples[i]))
                {
                    nonFinite.add (where + ", sample " + juce::String (i) + ": " + juce::String (samples[i]));
                    break;
                }
                peak = juce::jmax (peak, std::abs (samples[i]));
            }
            auto& channelPeak = channelPeaks[(size_t) channel];
            channelPeak = juce::jmax (channelPeak, peak);
            const auto peakText = where + ": peak " + juce::String (peak)
                                  + (peak == kHostFillValue ? " (the host's fill value: not written)" : "");
            if (peak > kMaxPlausibleLevel)
                implausible.add (peakText);
            if (peak > 0.0f)
                notSilent.add (peakText);
        }
    }
    instance.setPlayHead (nullptr);

    juce::StringArray soundingChannels;
    for (int channel = 0; channel < channels; ++channel)
        if (channelPeaks[(size_t) channel] > 0.0f)
            soundingChannels.add (juce::String (channel + 1) + ": " + juce::String (channelPeaks[(size_t) channel]));
    report.note (pass.label + ": " + juce::String (numBlocks) + " blocks of " + juce::String (pass.blockSize) + " at "
                 + juce::String (pass.sampleRate, 0) + " Hz on " + juce::String (channels) + " channels, "
                 + juce::String (numEvents) + " MIDI events, "
                 + (soundingChannels.isEmpty() ? juce::String ("silent")
                                               : "peaks on channels " + soundingChannels.joinIntoString (", "))
                 + " (" + stopwatch.lap() + ")");
    nonFinite.report (report, pass.label + ": every output sample is finite");
    implausible.report (report, pass.label + ": no output above +24 dBFS");
    notSilent.report (report, pass.label + ": silent on every channel, as nothing is loaded");
}

void processOneBlock (juce::AudioPluginInstance& instance, int blockSize)
{
    juce::AudioBuffer<float> buffer (
        juce::jmax (instance.getTotalNumInputChannels(), instance.getTotalNumOutputChannels()), blockSize);
    buffer.clear();
    juce::MidiBuffer midi;
    instance.processBlock (buffer, midi);
}
} // namespace pluginCheck
