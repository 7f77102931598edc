// The smallest JUCE 7 instrument that still looks like ours to a host: one
// stereo output bus, MIDI in, a sine per held note, no parameters, no state,
// no timer, no lock. It is a control for host checks: whatever a host does
// to it, it does to every JUCE instrument, so a fault that shows with it
// too is not in our processor.
#include <juce_audio_processors/juce_audio_processors.h>

namespace
{
class MinimalSineProcessor final : public juce::AudioProcessor
{
public:
    MinimalSineProcessor()
        : AudioProcessor (BusesProperties().withOutput ("Output", juce::AudioChannelSet::stereo(), true))
    {
    }

    const juce::String getName() const override { return "Minimal Sine Check"; }
    void prepareToPlay (double sampleRate, int) override
    {
        rateHz = sampleRate;
        phase = 0.0;
        note = -1;
    }
    void releaseResources() override {}

    // Audio thread.
    void processBlock (juce::AudioBuffer<float>& buffer, juce::MidiBuffer& midi) override
    {
        buffer.clear();
        int start = 0;
        for (const auto metadata : midi)
        {
            render (buffer, start, metadata.samplePosition);
            start = juce::jmax (start, metadata.samplePosition);
            const auto message = metadata.getMessage();
            if (message.isNoteOn())
                note = message.getNoteNumber();
            else if (message.isNoteOff() && message.getNoteNumber() == note)
                note = -1;
        }
        render (buffer, start, buffer.getNumSamples());
    }

    bool isBusesLayoutSupported (const BusesLayout& layouts) const override
    {
        return layouts.getMainOutputChannelSet() == juce::AudioChannelSet::stereo();
    }
    juce::AudioProcessorEditor* createEditor() override { return nullptr; }
    bool hasEditor() const override { return false; }
    bool acceptsMidi() const override { return true; }
    bool producesMidi() const override { return false; }
    double getTailLengthSeconds() const override { return 0.0; }
    int getNumPrograms() override { return 1; }
    int getCurrentProgram() override { return 0; }
    void setCurrentProgram (int) override {}
    const juce::String getProgramName (int) override { return {}; }
    void changeProgramName (int, const juce::String&) override {}
    void getStateInformation (juce::MemoryBlock&) override {}
    void setStateInformation (const void*, int) override {}

private:
    void render (juce::AudioBuffer<float>& buffer, int from, int to)
    {
        to = juce::jmin (to, buffer.getNumSamples());
        if (note < 0 || from >= to)
            return;
        const double step = juce::MathConstants<double>::twoPi * juce::MidiMessage::getMidiNoteInHertz (note) / rateHz;
        for (int i = from; i < to; ++i)
        {
            const auto value = (float) (0.25 * std::sin (phase));
            for (int c = 0; c < buffer.getNumChannels(); ++c)
                buffer.setSample (c, i, value);
            phase = std::fmod (phase + step, juce::MathConstants<double>::twoPi);
        }
    }

    double rateHz = 48000.0;
    double phase = 0.0;
    int note = -1;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (MinimalSineProcessor)
};
} // namespace

juce::AudioProcessor* JUCE_CALLTYPE createPluginFilter()
{
    return new MinimalSineProcessor();
}
