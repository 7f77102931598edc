#include "GroovePass.h"

#include "MessagePump.h"
#include "Stopwatch.h"

#include <algorithm>
#include <cmath>

namespace pluginCheck
{
namespace
{
constexpr double kLoopBpm = 120.0;
constexpr double kLoopRate = 44100.0;
constexpr int kBeatsPerBar = 4;
constexpr int kFirstKeyNote = 36;
// The player loads and fits the sample on threads of its own, started by
// timers of the message thread; this is how long the check lets it work.
constexpr int kPreparationMs = 3000;
// A click is heard within this much of the host's beat.
constexpr double kToleranceMs = 3.0;

// A host transport that runs at one tempo from the first sample.
class SteadyPlayHead : public juce::AudioPlayHead
{
public:
    SteadyPlayHead (double rateToUse, double tempo) : rate (rateToUse), bpm (tempo) {}

    void advance (int numSamples) noexcept { timeSamples += numSamples; }

    juce::Optional<PositionInfo> getPosition() const override
    {
        PositionInfo info;
        info.setIsPlaying (true);
        info.setBpm (bpm);
        info.setTimeInSamples (timeSamples);
        info.setTimeInSeconds ((double) timeSamples / rate);
        info.setPpqPosition ((double) timeSamples / rate * bpm / 60.0);
        info.setTimeSignature (TimeSignature { 4, 4 });
        return info;
    }

private:
    const double rate, bpm;
    juce::int64 timeSamples = 0;
};

// The state a host would hand back with the click loop on the first key:
// the instance's own state with "loop0.fileName" set. JUCE's VST3 host keeps
// the plug-in's state base64-encoded in an "IComponent" element of its own
// document, so that is where it is changed. Empty on a state of another form.
juce::MemoryBlock withFileOnFirstKey (juce::AudioPluginInstance& instance, const juce::File& clickLoop,
                                      juce::String& error)
{
    juce::MemoryBlock hostState;
    instance.getStateInformation (hostState);
    const auto hostXml = juce::AudioProcessor::getXmlFromBinary (hostState.getData(), (int) hostState.getSize());
    auto* component = hostXml != nullptr ? hostXml->getChildByName ("IComponent") : nullptr;
    juce::MemoryBlock pluginState;
    if (component == nullptr || ! pluginState.fromBase64Encoding (component->getAllSubText()))
    {
        error = "the host's state holds no IComponent state";
        return {};
    }
    const auto state = juce::AudioProcessor::getXmlFromBinary (pluginState.getData(), (int) pluginState.getSize());
    auto* engine = state != nullptr ? state->getChildByAttribute ("prefix", "engine") : nullptr;
    if (engine == nullptr)
    {
        error = "the plug-in's state has no engine element";
        return {};
    }
    auto* fileName = engine->getChildByAttribute ("name", "loop0.fileName");
    if (fileName == nullptr)
    {
        fileName = engine->createNewChildElement ("p");
        fileName->setAttribute ("name", "loop0.fileName");
    }
    fileName->setAttribute ("value", clickLoop.getFullPathName());

    juce::MemoryBlock changed;
    juce::AudioProcessor::copyXmlToBinary (*state, changed);
    component->deleteAllTextElements();
    component->addTextElement (changed.toBase64Encoding());
    juce::MemoryBlock result;
    juce::AudioProcessor::copyXmlToBinary (*hostXml, result);
    return result;
}
} // namespace

juce::File writeClickLoop (const juce::File& folder)
{
    const int beatSamples = (int) std::lround (kLoopRate * 60.0 / kLoopBpm);
    juce::AudioBuffer<float> loop (2, beatSamples * kBeatsPerBar);
    loop.clear();
    // A decaying 2 kHz burst of 10 ms per beat, the first beat loudest.
    for (int beat = 0; beat < kBeatsPerBar; ++beat)
        for (int i = 0; i < 441; ++i)
        {
            const auto value = (beat == 0 ? 0.8f : 0.6f) * std::exp (-i / 80.0f)
                               * std::sin (juce::MathConstants<float>::twoPi * 2000.0f * (float) i / (float) kLoopRate);
            loop.setSample (0, beat * beatSamples + i, value);
            loop.setSample (1, beat * beatSamples + i, value);
        }

    // The player reads the loop's tempo from the digits after "loop_".
    const auto file = folder.getChildFile ("loop_120_clicks.wav");
    file.deleteFile();
    juce::WavAudioFormat wav;
    std::unique_ptr<juce::AudioFormatWriter> writer (
        wav.createWriterFor (new juce::FileOutputStream (file), kLoopRate, 2, 24, {}, 0));
    if (writer == nullptr || ! writer->writeFromAudioSampleBuffer (loop, 0, loop.getNumSamples()))
        return {};
    return file;
}

std::vector<juce::int64> findOnsets (const std::vector<float>& mono, double sampleRate)
{
    const auto quietSamples = (juce::int64) (0.005 * sampleRate);
    std::vector<juce::int64> onsets;
    juce::int64 lastLoud = -quietSamples - 1;
    for (size_t i = 0; i < mono.size(); ++i)
    {
        if (std::abs (mono[i]) < 0.05f)
            continue;
        if ((juce::int64) i - lastLoud > quietSamples)
            onsets.push_back ((juce::int64) i);
        lastLoud = (juce::int64) i;
    }
    return onsets;
}

void playGroove (juce::AudioPluginInstance& instance, const juce::File& clickLoop, const GroovePass& pass,
                 CheckReport& report)
{
    Stopwatch stopwatch;
    const auto label = "click loop of " + juce::String (kLoopBpm, 0) + " bpm at " + juce::String (pass.sampleRate, 0)
                       + " Hz, host at " + juce::String (pass.hostBpm, 0) + " bpm";
    constexpr int blockSize = 512;
    instance.releaseResources();
    instance.disableNonMainBuses();
    instance.setNonRealtime (false);
    instance.prepareToPlay (pass.sampleRate, blockSize);

    SteadyPlayHead playHead (pass.sampleRate, pass.hostBpm);
    instance.setPlayHead (&playHead);
    const int channels = juce::jmax (instance.getTotalNumInputChannels(), instance.getTotalNumOutputChannels());
    juce::AudioBuffer<float> buffer (channels, blockSize);
    juce::MidiBuffer midi;
    const auto processBlock = [&] {
        buffer.clear();
        instance.processBlock (buffer, midi);
        playHead.advance (blockSize);
        midi.clear();
    };

    // As a host restoring a session: the state arrives, the transport runs
    // in real time with no key held while the player loads and fits the
    // sample on its own threads (started by timers of the message thread).
    juce::String error;
    const auto state = withFileOnFirstKey (instance, clickLoop, error);
    if (state.isEmpty())
    {
        report.fail (label + ": " + error);
        instance.setPlayHead (nullptr);
        instance.releaseResources();
        return;
    }
    instance.setStateInformation (state.getData(), (int) state.getSize());
    const auto blockMs = 1000.0 * blockSize / pass.sampleRate;
    for (double elapsed = 0.0; elapsed < kPreparationMs; elapsed += blockMs)
    {
        processBlock();
        pumpMessagesFor ((int) blockMs);
    }

    std::vector<float> left;
    const auto numBlocks = (int) std::ceil (pass.seconds * pass.sampleRate / blockSize);
    float peak = 0.0f;
    for (int block = 0; block < numBlocks; ++block)
    {
        if (block == 0)
            midi.addEvent (juce::MidiMessage::noteOn (1, kFirstKeyNote, (juce::uint8) 127), 0);
        processBlock();
        const auto* samples = buffer.getReadPointer (0);
        left.insert (left.end(), samples, samples + blockSize);
        peak = juce::jmax (peak, buffer.getMagnitude (0, blockSize));
        // The message thread keeps running as in a host.
        juce::dispatchNextMessageOnSystemQueue (true);
    }
    midi.addEvent (juce::MidiMessage::noteOff (1, kFirstKeyNote), 0);
    processBlock();
    instance.setPlayHead (nullptr);

    const auto onsets = findOnsets (left, pass.sampleRate);
    const double beat = pass.sampleRate * 60.0 / pass.hostBpm;
    double worstMs = 0.0;
    juce::StringArray intervals;
    for (size_t i = 1; i < onsets.size(); ++i)
    {
        const auto interval = (double) (onsets[i] - onsets[i - 1]);
        worstMs = juce::jmax (worstMs, std::abs (interval - beat) * 1000.0 / pass.sampleRate);
        if (intervals.size() < 6)
            intervals.add (juce::String (interval * 1000.0 / pass.sampleRate, 1));
    }
    report.note (label + ": peak " + juce::String (peak, 3) + ", " + juce::String ((int) onsets.size())
                 + " clicks, first at " + (onsets.empty() ? juce::String ("-") : juce::String (onsets[0]))
                 + ", intervals " + intervals.joinIntoString (" ") + " ms (beat "
                 + juce::String (beat * 1000.0 / pass.sampleRate, 1) + " ms), worst off by "
                 + juce::String (worstMs, 2) + " ms (" + stopwatch.lap() + ")");
    report.expect (peak > 0.1f, label + ": the key is audible", "peak " + juce::String (peak));
    const auto expectedClicks = (size_t) std::floor (pass.seconds * pass.hostBpm / 60.0) - 2;
    report.expect (onsets.size() >= expectedClicks && worstMs <= kToleranceMs,
                   label + ": at least " + juce::String ((int) expectedClicks) + " clicks, each on the host's beat within "
                       + juce::String (kToleranceMs) + " ms",
                   juce::String ((int) onsets.size()) + " clicks, worst off by " + juce::String (worstMs, 2) + " ms");
    instance.releaseResources();
}
} // namespace pluginCheck
