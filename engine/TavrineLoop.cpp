#include "engine/TavrineLoop.h"

#include <cmath>

#include "engine/OutputBusValueConverter.h"
#include "engine/TavrineEngine.h"

TavrineLoop::TavrineLoop (TavrineEngine& owner, TavrineLoopMixer& loopMixer, int numOutputBuses)
    : MemorizingAudioChain (kMemoryCapacitySamples), engine (owner), mixer (loopMixer),
      ownParameters (new qvrControllableLib::BasicControllable())
{
    defineParameters (numOutputBuses);
    addTarget (ownParameters.get());
    trigger->addChangeListener (this, true);
}

TavrineLoop::~TavrineLoop()
{
    trigger->removeChangeListener (this, true);
}

void TavrineLoop::parameterChanged (qvrControllableAPI::ParameterDef*)
{
    setPendingTrigger (trigger.read(), 1.0f);
}

void TavrineLoop::defineParameters (int numOutputBuses)
{
    auto& p = *ownParameters;

    // State of the key: derived at run time, never saved.
    p.addParameter (trigger.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (playing.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (freeMode.getParameter());
    p.addParameter (samplesPlayedInLoop.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    gainXy.minimum = 0.0;
    gainXy.maximum = 2.0;
    gainXy.defaultValue = std::exp (-0.3453877866); // -3 dB
    p.addParameter (gainXy.getParameter());

    gainFine.defaultValue = 1.0; // MIDI velocity as a linear gain
    p.addParameter (gainFine.getParameter());

    balanceXy.minimum = -1.0;
    balanceXy.maximum = 1.0;
    balanceXy.defaultValue = 0.0;
    p.addParameter (balanceXy.getParameter());

    resamplingRatioXy.minimum = 0.125;
    resamplingRatioXy.maximum = 8.0;
    resamplingRatioXy.defaultValue = 1.0;
    p.addParameter (resamplingRatioXy.getParameter());

    resamplingRatioFine.minimum = 0.5;
    resamplingRatioFine.maximum = 1.5;
    resamplingRatioFine.defaultValue = 1.0;
    p.addParameter (resamplingRatioFine.getParameter());

    // The X-Y views of the equaliser take the equaliser's own range.
    filterFrequencyXy.minimum = 20.0;
    filterFrequencyXy.maximum = 20000.0;
    filterFrequencyXy.defaultValue = 5000.0;
    p.addParameter (filterFrequencyXy.getParameter());

    filterGainXy.minimum = 0.0;
    filterGainXy.maximum = 1.0;
    p.addParameter (filterGainXy.getParameter());

    filterQXy.minimum = 0.1;
    filterQXy.maximum = 3.0;
    filterQXy.defaultValue = 0.5;
    p.addParameter (filterQXy.getParameter());

    p.addParameter (colourCode.getParameter());

    outputBus.minimum = 0;
    outputBus.maximum = juce::jmax (0, numOutputBuses - 1);
    outputBus.defaultValue = 0;
    outputBus->setConverter (new OutputBusValueConverter());
    p.addParameter (outputBus.getParameter());

    p.addParameter (totalLength.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (nextReadPosition.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    resamplingLengthRatio.defaultValue = 1.0;
    p.addParameter (resamplingLengthRatio.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    envelopeAttack.minimum = 0;
    envelopeAttack.maximum = 264600;
    envelopeAttack.defaultValue = 16;
    p.addParameter (envelopeAttack.getParameter());

    envelopeRelease.minimum = 0;
    envelopeRelease.maximum = 264600;
    envelopeRelease.defaultValue = 0;
    p.addParameter (envelopeRelease.getParameter());

    loopingEnabled.defaultValue = true;
    p.addParameter (loopingEnabled.getParameter());

    for (auto* fraction : { &beginLoopFraction, &endLoopFraction, &nextBeginLoop, &nextEndLoop, &nextLoopLength })
    {
        fraction->minimum = 0.0;
        fraction->maximum = 1.0;
        fraction->defaultValue = 0.0;
    }
    nextLoopLength.defaultValue = 1.0;
    p.addParameter (beginLoopFraction.getParameter());
    p.addParameter (endLoopFraction.getParameter());
    p.addParameter (nextBeginLoop.getParameter());
    p.addParameter (nextEndLoop.getParameter());
    p.addParameter (nextLoopLength.getParameter());

    p.addParameter (reverse.getParameter());
    p.addParameter (globalReverse.getParameter());

    // States of the sample source.
    p.addParameter (loading.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (adjusting.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (rendering.getParameter(), qvrControllableLib::ParameterPersistence::transient);
}

void TavrineLoop::setPendingTrigger (bool on, float velocity)
{
    pendingVelocity.store (velocity);
    pendingTrigger.store (on);
}

void TavrineLoop::applyPendingTrigger()
{
    const bool pending = pendingTrigger.load();
    if (pending == trigger.read())
        return;
    // The pending flag now mirrors the state this trigger produces, so that
    // it is acted on once.
    pendingTrigger.store (trigger.read());
    if (keyIndex < 0)
        keyIndex = engine.indexOfLoop (this);
    engine.triggerKey (keyIndex, pending ? TavrineEngine::Key::on : TavrineEngine::Key::off, pendingVelocity.load());
}

void TavrineLoop::syncTick()
{
    if (trigger.read() && ! playing.read())
    {
        if (keyIndex < 0)
            keyIndex = engine.indexOfLoop (this);
        engine.flushReadAhead (this, nullptr);
        playing.write (true);
    }
}

bool TavrineLoop::isActive() const noexcept
{
    return playing.read() || trigger.read();
}

void TavrineLoop::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    // An idle loop, or one without a sample source, plays silence; otherwise
    // the chain writes every sample of the region itself.
    if (! playing.read() || getPulledSource() == nullptr)
    {
        info.clearActiveBufferRegion();
        return;
    }
    MemorizingAudioChain::getNextAudioBlock (info);
}

void TavrineLoop::segmentRendered (int numSamples)
{
    // A plain store without notification: a count that moves every segment
    // is polled by its readers, not pushed to them.
    samplesPlayedInLoop.getRaw()->fetch_add (numSamples, std::memory_order_relaxed);
}

void TavrineLoop::rewind (int numSamples)
{
    const int length = totalLength.read();
    if (length <= 0 || numSamples < 1)
        return;
    const int position = ((nextReadPosition.read() - numSamples) % length + length) % length;
    nextReadPosition.write (position);
    samplesPlayedInLoop.getRaw()->fetch_sub (numSamples, std::memory_order_relaxed);
}
