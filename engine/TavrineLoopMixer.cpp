#include "engine/TavrineLoopMixer.h"

#include "engine/TavrineEngine.h"

// The mix buffer holds at least one limiter block; the master chain never
// asks for more than 128 samples, but a larger request still works, in pieces.
static constexpr int kMinimumMixBlock = 128;

TavrineLoopMixer::TavrineLoopMixer (TavrineEngine& owner) : engine (owner) {}
TavrineLoopMixer::~TavrineLoopMixer() = default;

void TavrineLoopMixer::bindMultipleOutputsSetting (qvrControllableAPI::ParameterDef* setting)
{
    if (setting != nullptr)
        multipleOutputsSetting.connect (setting->getValue().get());
    else
        multipleOutputsSetting.disconnect();
}

void TavrineLoopMixer::prepareToPlay (int samplesPerBlockExpected, double sampleRate)
{
    preparedBlockSize = juce::jmax (kMinimumMixBlock, samplesPerBlockExpected);
    mixBuffer.setSize (2 * engine.getNumOutputBuses(), preparedBlockSize, false, true, false);
    const auto& loops = engine.getLoops();
    for (int i = loops.size(); --i >= 0;)
        loops.getUnchecked (i)->prepareToPlay (samplesPerBlockExpected, sampleRate);
}

void TavrineLoopMixer::releaseResources()
{
    const auto& loops = engine.getLoops();
    for (int i = loops.size(); --i >= 0;)
        loops.getUnchecked (i)->releaseResources();
    mixBuffer.setSize (2, 0);
    preparedBlockSize = 0;
}

int TavrineLoopMixer::busOffset (int bus, int numOutputBuses, int numChannels, bool multipleOutputsEnabled) noexcept
{
    if (! multipleOutputsEnabled)
        return 0;
    if (bus < 0 || bus >= numOutputBuses || 2 * bus + 1 >= numChannels)
        return 0;
    return 2 * bus;
}

void TavrineLoopMixer::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    info.clearActiveBufferRegion();
    if (preparedBlockSize <= 0)
        return;
    juce::AudioSourceChannelInfo piece (info.buffer, info.startSample, 0);
    int remaining = info.numSamples;
    while (remaining > 0)
    {
        piece.numSamples = juce::jmin (preparedBlockSize, remaining);
        mixPiece (piece);
        piece.startSample += piece.numSamples;
        remaining -= piece.numSamples;
    }
}

void TavrineLoopMixer::mixPiece (const juce::AudioSourceChannelInfo& info)
{
    const int n = info.numSamples;
    const int numChannels = info.buffer->getNumChannels();
    const bool multiple = multipleOutputsSetting.isConnected() ? multipleOutputsSetting.get()
                                                               : multipleOutputs.load (std::memory_order_relaxed);
    const int numBuses = engine.getNumOutputBuses();

    // A 2-channel view on the preallocated mix buffer: no allocation.
    float* channels[2] = { mixBuffer.getWritePointer (0), mixBuffer.getWritePointer (1) };
    juce::AudioBuffer<float> view (channels, 2, n);
    const juce::AudioSourceChannelInfo loopInfo (&view, 0, n);

    for (auto* loop : engine.getLoops())
    {
        if (! loop->isActive())
            continue;
        loop->getNextAudioBlock (loopInfo);
        const int offset = busOffset (loop->getOutputBus(), numBuses, numChannels, multiple);
        for (int c = 0; c < 2 && offset + c < numChannels; ++c)
            info.buffer->addFrom (offset + c, info.startSample, view, c, 0, n);
    }
}
