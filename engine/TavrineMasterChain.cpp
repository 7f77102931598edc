#include "engine/TavrineMasterChain.h"

#include <cmath>

#include "controllable/lib/ParameterTypeImpl.h"
#include "engine/OutputBpmConverter.h"
#include "engine/TavrineEngine.h"
#include "engine/TavrineLoopMixer.h"

using namespace qvrControllableAPI;

TavrineMasterChain::TavrineMasterChain (TavrineEngine& owner, TavrineLoopMixer& mixer)
    : engine (owner), ownParameters (new qvrControllableLib::BasicControllable()),
      stretcher (new qvrControllableAudio::MeridexAudioSource (true)),
      limiter (new qvrControllableAudio::BlockSizeLimitingSource()),
      gainSource (new qvrControllableAudio::GainAudioSource())
{
    defineParameters();

    timeline = new TavrineMasterTimeline (outputBpm.get(), triggerPlayMode.get());
    setTimeline (timeline.get());

    setHead (&mixer);
    // The master stretcher runs in real time on the whole mix; the cheaper
    // engine keeps the cost of a tempo change between master and output low.
    stretcher->meridexProcMode.write ("Efficient V3");
    append (stretcher.get());
    limiter->maxBlockSize.write (kMaxBlockSize);
    append (limiter.get());
    gainSource->gain.minimum = 0.0001;
    gainSource->detectClipping.defaultValue = true;
    appendSource (gainSource.get(), false);
    triggerSync = new TriggerSyncMasterSource (engine, *timeline, *getEventQueue(), engine.getSnapFactory(),
                                               triggerPlayMode.get(), masterBpm.get());
    append (triggerSync.get());

    stretchFactor.bind (stretcher->stretchFactor.getParameter());
    meridexReadAhead.bind (stretcher->meridexReadAhead.getParameter());
    gain.bind (gainSource->gain.getParameter());
    detectClipping.bind (gainSource->detectClipping.getParameter());
    triggerSyncSnapMode.bind (triggerSync->triggerSyncSnapMode.getParameter());
    triggerSyncSnapTimes.bind (triggerSync->triggerSyncSnapTimes.getParameter());

    // Synchronous: the tempo logic must act on the thread of the write, so
    // that the audio thread's own tempo write settles within its block.
    for (auto* p : { triggerPlayMode.get(), masterBpm.get(), outputBpm.get(), renderTrigger.get() })
        p->addChangeListener (this, true);
}

TavrineMasterChain::~TavrineMasterChain()
{
    for (auto* p : { triggerPlayMode.get(), masterBpm.get(), outputBpm.get(), renderTrigger.get() })
        p->removeChangeListener (this, true);
    if (realtimeSetting.isBound())
        realtimeSetting->removeChangeListener (this, true);
}

void TavrineMasterChain::bindRealtimeStretchingSetting (ParameterDef* setting)
{
    if (realtimeSetting.isBound())
        realtimeSetting->removeChangeListener (this, true);
    realtimeSetting.bind (setting);
    if (setting == nullptr)
        return;
    setting->addChangeListener (this, true);
    setRealtimeStretching (realtimeSetting.read());
}

void TavrineMasterChain::defineParameters()
{
    auto& p = *ownParameters;
    addTarget (&p);

    p.addParameter (triggerPlayMode.getParameter());
    triggerPlayModeAvailable.defaultValue = true;
    p.addParameter (triggerPlayModeAvailable.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (renderTrigger.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    // The defaults of both tempi lie outside their range on purpose: 0 means
    // "not known yet", so the default is set before the range.
    masterBpm.defaultValue = 0.0;
    masterBpm.minimum = kMinBpm;
    masterBpm.maximum = kMaxBpm;
    p.addParameter (masterBpm.getParameter());

    outputBpm.defaultValue = 0.0;
    outputBpm.minimum = kMinBpm;
    outputBpm.maximum = kMaxBpm;
    outputBpm->setConverter (new OutputBpmConverter());
    p.addParameter (outputBpm.getParameter(), qvrControllableLib::ParameterPersistence::transient);
}

void TavrineMasterChain::setRealtimeStretching (bool enabled)
{
    if (realtimeStretching.exchange (enabled) == enabled)
        return;
    applyTempoLogic (nullptr, true);
}

void TavrineMasterChain::parameterChanged (ParameterDef* parameter)
{
    if (realtimeSetting.isBound() && parameter == realtimeSetting.get())
    {
        setRealtimeStretching (realtimeSetting.read());
        return;
    }
    applyTempoLogic (parameter, false);
}

void TavrineMasterChain::applyTempoLogic (ParameterDef* parameter, bool settingChanged)
{
    const bool realtime = realtimeStretching.load();
    const bool tempoChanged = parameter == masterBpm.get() || parameter == outputBpm.get();
    const bool renderNow = (parameter == renderTrigger.get() && renderTrigger.read()) || (settingChanged && ! realtime);

    const double m = masterBpm.read();
    const double o = outputBpm.read();

    if (tempoChanged)
    {
        // The first tempo fills the other one, without stretching or stopping.
        if (o == 0.0 && m != 0.0)
        {
            outputBpm.write (m);
            return;
        }
        if (m == 0.0 && o != 0.0)
        {
            masterBpm.write (o);
            return;
        }
        if (realtime && o != 0.0)
            stretchFactor.write (m / o);
    }

    if (renderNow || (tempoChanged && ! realtime))
    {
        // The stop itself changes keys, so it belongs to the audio thread;
        // the one-shot request is answered here.
        if (m != o)
            stopForTempoRequested.store (true);
        renderTrigger.write (false);
    }

    if (parameter == triggerPlayMode.get() && ! triggerPlayMode.read())
        requestReleaseAll();
}

void TavrineMasterChain::releaseAllKeys()
{
    for (int i = 0; i < engine.getNumLoops(); ++i)
        engine.triggerKey (i, TavrineEngine::Key::off);
}

void TavrineMasterChain::applyRequests()
{
    timeline->applyRequestedRestart();
    triggerSync->applyRequestedReschedule();
    if (stopForTempoRequested.exchange (false))
    {
        // Read now, not when asked: a tempo that came back meanwhile stops
        // nothing.
        const double o = outputBpm.read();
        if (masterBpm.read() != o)
        {
            // Released while the stretcher still bends the mix, so that the
            // flush of the first key captures what it holds.
            releaseAllKeys();
            stretchFactor.write (1.0);
            masterBpm.write (o);
        }
    }
    if (releaseAllRequested.exchange (false))
        releaseAllKeys();
}

int TavrineMasterChain::captureReadAhead()
{
    const int readAhead = (int) std::lround (meridexReadAhead.read());
    // A bypassed stretcher holds nothing, whatever its last count says.
    if (readAhead < 1 || stretcher->isBypassing())
        return 0;

    // What the stretcher has in flight is heard for 64 more samples, fading
    // out under the new audio. With its input muted it pulls nothing from the
    // loops, which are then rewound by what it had read ahead. Only the
    // stretcher renders: the chain's events, timeline, gain ramp and clip
    // watch stay where they are, so a flush between two segments of a block
    // leaves the block as if it had been cut there. The output gain is taken
    // as it stands.
    stretcher->setInputMuted (true);
    captureBuffer.clear();
    stretcher->getNextAudioBlock (juce::AudioSourceChannelInfo (&captureBuffer, 0, kCrossfadeSamples));
    stretcher->setInputMuted (false);
    const float outputGain = (float) gain.read();
    for (int c = 0; c < captureBuffer.getNumChannels(); ++c)
        captureBuffer.applyGainRamp (c, 0, kCrossfadeSamples, outputGain, 0.0f);
    crossfadeRemaining = kCrossfadeSamples;
    stretcher->resetEngine();
    return readAhead;
}

void TavrineMasterChain::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    applyRequests();
    for (auto* loop : engine.getLoops())
        loop->applyPendingTrigger();

    AudioSourceChain::getNextAudioBlock (info);
    triggerSync->checkSyncTick (info.numSamples);
}

void TavrineMasterChain::renderSegment (const juce::AudioSourceChannelInfo& info, juce::AudioSource* source,
                                        int numSamples)
{
    renderingSegment = true;
    AudioSourceChain::renderSegment (info, source, numSamples);
    renderingSegment = false;
    mixCaptureUnder (info, numSamples);
    // A flush asked for during the segment starts its fade with the next one.
    engine.runDeferredFlush();
}

void TavrineMasterChain::mixCaptureUnder (const juce::AudioSourceChannelInfo& info, int numSamples)
{
    if (crossfadeRemaining <= 0 || numSamples <= 0)
        return;

    const int n = juce::jmin (crossfadeRemaining, numSamples);
    const int done = kCrossfadeSamples - crossfadeRemaining;
    const int channels = juce::jmin (2, info.buffer->getNumChannels());
    for (int c = 0; c < channels; ++c)
    {
        info.buffer->applyGainRamp (c, info.startSample, n, (float) done / kCrossfadeSamples,
                                    (float) (done + n) / kCrossfadeSamples);
        info.buffer->addFrom (c, info.startSample, captureBuffer, c, done, n);
    }
    crossfadeRemaining -= n;
}
