#include "engine/TavrineMasterChain.h"

#include <cmath>

#include "controllable/lib/ParameterTypeImpl.h"
#include "controllable/lib/ValueConverters.h"
#include "engine/TavrineEngine.h"
#include "engine/TavrineLoopMixer.h"

using namespace qvrControllableAPI;

TavrineMasterChain::TavrineMasterChain (TavrineEngine& owner, TavrineLoopMixer& mixer)
    : engine (owner),
      ownParameters (new qvrControllableLib::BasicControllable()),
      limiter (new qvrControllableAudio::BlockSizeLimitingSource())
{
    defineParameters();

    setHead (&mixer);
    limiter->maxBlockSize.write (kMaxBlockSize);
    append (limiter.get());

    timeline = new TavrineMasterTimeline (outputBpm.get(), triggerPlayMode.get());
    setTimeline (timeline.get());

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
    p.addParameter (triggerPlayModeAvailable.getParameter(), true);
    p.addParameter (renderTrigger.getParameter(), true);

    // The defaults of both tempi lie outside their range on purpose: 0 means
    // "not known yet", so the default is set before the range.
    masterBpm.defaultValue = 0.0;
    masterBpm.minimum = 30.0;
    masterBpm.maximum = 300.0;
    p.addParameter (masterBpm.getParameter());

    outputBpm.defaultValue = 0.0;
    outputBpm.minimum = 30.0;
    outputBpm.maximum = 300.0;
    outputBpm->setConverter (new qvrControllableLib::OutputBpmConverter());
    p.addParameter (outputBpm.getParameter(), true);

    stretchFactor.defaultValue = 1.0;
    p.addParameter (stretchFactor.getParameter(), true);
    p.addParameter (meridexReadAhead.getParameter(), true);

    gain.minimum = 0.0001;
    gain.maximum = 2.0;
    gain.defaultValue = 1.0;
    p.addParameter (gain.getParameter());

    detectClipping.defaultValue = true;
    p.addParameter (detectClipping.getParameter());

    triggerSyncSnapMode.defaultValue = 4;
    p.addParameter (triggerSyncSnapMode.getParameter());

    triggerSyncSnapTimes.bind (qvrControllableLib::ParameterTypes::floatListType().createParameter (kTriggerSyncSnapTimes));
    p.addParameter (triggerSyncSnapTimes.getParameter());
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
        if (m != o)
        {
            for (auto* loop : engine.getLoops())
                loop->trigger.write (false);
            stretchFactor.write (1.0);
            masterBpm.write (o);
        }
        renderTrigger.write (false);
    }

    if (parameter == triggerPlayMode.get() && ! triggerPlayMode.read())
        for (int i = 0; i < engine.getNumLoops(); ++i)
            engine.triggerKey (i, false, false, 1.0f);
}

int TavrineMasterChain::captureReadAhead()
{
    // No stretcher sits in the chain yet, so nothing is ever held ahead.
    return (int) std::lround (meridexReadAhead.read());
}

void TavrineMasterChain::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    for (auto* loop : engine.getLoops())
        loop->applyPendingTrigger();

    AudioSourceChain::getNextAudioBlock (info);

    if (crossfadeRemaining > 0)
    {
        const int n = juce::jmin (crossfadeRemaining, info.numSamples);
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
}
