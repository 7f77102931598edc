#include "engine/TavrineLoop.h"

#include <cmath>

#include "audio/MeridexAudioSource.h"
#include "dsp/Meridex.h"
#include "engine/OutputBusValueConverter.h"
#include "engine/RelativeBpmConverter.h"
#include "engine/ResamplingModeValueConverter.h"
#include "engine/ResamplingSliceSumProvider.h"
#include "engine/TavrineEngine.h"

namespace
{
// Parameters of the sample source that the loop wires up when it has them.
constexpr const char* kRelativeBpm = "relativeBpm";
constexpr const char* kSourceBpm = "sourceBpm";
} // namespace

TavrineLoop::TavrineLoop (TavrineEngine& owner, TavrineLoopMixer& loopMixer, int numOutputBuses)
    : MemorizingAudioChain (kMemoryCapacitySamples), engine (owner), mixer (loopMixer),
      ownParameters (new qvrControllableLib::BasicControllable()),
      standInHolder (new qvrControllableLib::BasicControllable())
{
    defineParameters (numOutputBuses);
    defineStandIns();
    addTarget (ownParameters.get());
    buildChain();
    attachCombiners();
    trigger->addChangeListener (this, true);
}

TavrineLoop::~TavrineLoop()
{
    trigger->removeChangeListener (this, true);
    // The chain and the queue (bases) outlive the loop's own members; what
    // they hold must stop listening to those members now.
    timeStretchListener.reset();
    combiners.clear();
    envelope->detach();
    endOfLoop->detach();
    singleShotEnd->detach();
    if (auto* queue = getEventQueue())
        for (qvrControllableAudio::AudioEvent* event : { (qvrControllableAudio::AudioEvent*) endOfLoop.get(),
                                                         (qvrControllableAudio::AudioEvent*) endOfSample.get(),
                                                         (qvrControllableAudio::AudioEvent*) singleShotEnd.get() })
            queue->remove (event);
}

void TavrineLoop::parameterChanged (qvrControllableAPI::ParameterDef*)
{
    setPendingTrigger (trigger.read(), 1.0f);
}

void TavrineLoop::defineStandIns()
{
    auto& p = *standInHolder;
    p.addParameter (standIns.totalLength.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (standIns.nextReadPosition.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (standIns.reverse.getParameter());
    p.addParameter (standIns.globalReverse.getParameter());
    p.addParameter (standIns.loading.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (standIns.adjusting.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (standIns.rendering.getParameter(), qvrControllableLib::ParameterPersistence::transient);
}

void TavrineLoop::buildChain()
{
    using namespace qvrControllableAudio;
    resampler = new SliceAwareResampler();
    resampler->resamplingMode->setConverter (new ResamplingModeValueConverter());
    gainSource = new GainAudioSource();
    balanceSource = new InterpolatedBalanceSource();
    eq = new ParamEqSource();
    envelope = new TriggerEnvelopeSource (*this);

    // The chain's outputs of the combiners are derived: the inputs are what
    // is saved.
    for (auto* derived : { gainSource->gain.get(), balanceSource->balance.get(), eq->filterFrequency.get(),
                           eq->filterGain.get(), eq->filterQ.get(), resampler->resamplingRatio.get() })
        derived->setTransient (true);

    setSampleSource (new MemoryAudioSource());
    append (resampler.get());
    appendSource (gainSource.get(), false);
    append (balanceSource.get());
    append (eq.get());
    append (envelope.get());
    addTarget (standInHolder.get());

    timeline = new TavrineLoopTimeline();
    setTimeline (timeline.get());
    bindSourceParameters();

    endOfLoop = new EndOfLoopEvent (*this);
    endOfSample = new EndOfSampleEvent (*this);
    singleShotEnd = new SingleShotEndEvent (*this);
    for (AudioEvent* event : { (AudioEvent*) endOfLoop.get(), (AudioEvent*) endOfSample.get(),
                               (AudioEvent*) singleShotEnd.get() })
        getEventQueue()->add (event);
}

void TavrineLoop::attachCombiners()
{
    using Kind = FloatValueCombiner::Kind;
    auto add = [this] (Kind kind, qvrControllableHandle::FloatParamDefHandle& output, qvrControllableAPI::ParameterDef* a, qvrControllableAPI::ParameterDef* b,
                       qvrControllableAPI::ParameterDef* c)
    {
        combiners.push_back (std::make_unique<FloatValueCombiner> (
            kind, output.get(), output.minimum.get(), output.maximum.get(), a, b, c));
    };
    add (Kind::multiply, gainSource->gain, sequencers.gain.get(), gainXy.get(), gainFine.get());
    add (Kind::add, balanceSource->balance, sequencers.balance.get(), balanceXy.get(), nullptr);
    add (Kind::multiply, eq->filterFrequency, sequencers.filterFrequency.get(), filterFrequencyXy.get(), nullptr);
    add (Kind::multiply, eq->filterGain, sequencers.filterGain.get(), filterGainXy.get(), nullptr);
    add (Kind::multiply, eq->filterQ, sequencers.filterQ.get(), filterQXy.get(), nullptr);
    add (Kind::multiply, resampler->resamplingRatio, sequencers.resamplingRatio.get(), resamplingRatioXy.get(),
         resamplingRatioFine.get());

    // One slice of the constant ratio until the sequencer divides the loop.
    const double slices[] = { sequencers.resamplingRatio.read() };
    resamplingSliceSum.write (ResamplingSliceSumProvider::compute (slices, 1));
}

void TavrineLoop::setSampleSource (qvrControllableAudio::MemoryAudioSource* source)
{
    if (source == nullptr)
        return;
    qvrControllableAudio::MemoryAudioSourcePtr holder (source);
    sampleSource = holder;
    // The timeline ends the loop; the source itself runs on round the end,
    // so that a crossfade at the end of the sample hears its start.
    source->sourceLooping.write (true);
    if (preparedSampleRate > 0.0)
        source->prepareToPlay (preparedBlockSize, preparedSampleRate);
    setHeadSource (source, false);

    // What needs both the loop and the source is wired where both exist.
    if (auto relative = source->findParameter (kRelativeBpm))
        if (auto sourceTempo = source->findParameter (kSourceBpm))
            relative->setConverter (new RelativeBpmConverter (sourceTempo.get()));
    if (auto procMode = source->findParameter (qvrControllableAudio::MeridexAudioSource::kMeridexProcMode))
        bindTimeStretchParameters (procMode.get());
}

void TavrineLoop::bindTimeStretchParameters (qvrControllableAPI::ParameterDef* meridexProcMode)
{
    timeStretchListener.reset();
    if (meridexProcMode != nullptr)
        timeStretchListener = std::make_unique<TimeStretchTypeListener> (timeStretchType.get(), meridexProcMode,
                                                                         resampler->resamplingMode.get());
}

void TavrineLoop::setHead (qvrControllableAudio::AudioSourceProvider* provider)
{
    qvrControllableAudio::AudioSourceProviderPtr old (getHead());
    auto* oldTarget = old != nullptr ? old->getControllable() : nullptr;
    MemorizingAudioChain::setHead (provider);
    replaceTarget (oldTarget, provider != nullptr ? provider->getControllable() : nullptr);
    if (getNumLinks() > 0)
        getLink (0)->setUpstream (provider != nullptr ? provider->getAudioSource() : nullptr, provider);
    if (timeline != nullptr)
        bindSourceParameters();
}

void TavrineLoop::bindSourceParameters()
{
    auto* head = getHead();
    auto* headParameters = head != nullptr ? head->getControllable() : nullptr;
    auto pick = [headParameters] (auto& handle, auto& standIn, const char* name)
    {
        qvrControllableAPI::ParameterDefPtr found =
            headParameters != nullptr ? headParameters->findParameter (name) : nullptr;
        handle.bind (found != nullptr ? found : qvrControllableAPI::ParameterDefPtr (standIn.get()));
    };
    pick (totalLength, standIns.totalLength, kTotalLength);
    pick (nextReadPosition, standIns.nextReadPosition, kNextReadPosition);
    pick (reverse, standIns.reverse, kReverse);
    pick (globalReverse, standIns.globalReverse, kGlobalReverse);
    pick (loading, standIns.loading, kLoading);
    pick (adjusting, standIns.adjusting, kAdjusting);
    pick (rendering, standIns.rendering, kRendering);
    timeline->bind (totalLength.get(), resampler->resamplingRatio.get());
    resampler->setSampleLength (totalLength.get());
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

    for (const auto& mode : meridex::kModeTable)
        timeStretchType.choices.add (juce::String (mode.text));
    timeStretchType.choices.add (juce::String (TimeStretchTypeListener::kVariSpeed));
    timeStretchType.defaultValue = juce::String (meridex::kModeTable[0].text);
    p.addParameter (timeStretchType.getParameter());
    // The effect screen's name for the same choice.
    timeEffectType.bind (timeStretchType->createForwardingParameter (kTimeEffectType, nullptr));
    p.addParameter (timeEffectType.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    resamplingSliceSum.defaultValue = 1.0;
    p.addParameter (resamplingSliceSum.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    // The constant outputs of the slice sequencers: their defaults.
    sequencers.gain.value = 1.0;
    sequencers.balance.value = 0.0;
    sequencers.filterFrequency.value = 1.0;
    sequencers.filterGain.value = 0.5;
    sequencers.filterQ.value = 1.0;
    sequencers.resamplingRatio.value = 1.0;
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
    return playing.read() || trigger.read() || timeline->getPosition() != beginLoopFraction.read();
}

void TavrineLoop::setVelocity (double velocity)
{
    if (gainFine.read() != velocity)
        gainFine.write (velocity);
}

TavrineLoop::KeyState TavrineLoop::getKeyState() const noexcept
{
    if (loading.read())
        return KeyState::loading;
    if (adjusting.read())
        return KeyState::adjusting;
    if (rendering.read())
        return KeyState::rendering;
    const bool held = trigger.read(), sounding = playing.read();
    if (held)
        return sounding ? KeyState::playing : KeyState::waiting;
    return sounding ? KeyState::released : KeyState::idle;
}

double TavrineLoop::getNextLoopBoundary() const noexcept
{
    const double end = endLoopFraction.read();
    return end <= 0.0 || end >= 1.0 ? 1.0 : end;
}

void TavrineLoop::addTimelineEvent (qvrControllableAudio::AudioEvent* event)
{
    getEventQueue()->add (event);
}

void TavrineLoop::restartAtBegin()
{
    samplesPlayedInLoop.store (0);
    endOfLoop->fire();
    loopJumped();
}

void TavrineLoop::loopJumped() noexcept
{
    resampler->restartSliceCount();
}

bool TavrineLoop::enterTriggerGroup (bool start)
{
    return engine.getMasterChain().getTriggerSync().addToTriggerGroup (this, start);
}

void TavrineLoop::prepareToPlay (int samplesPerBlockExpected, double sampleRate)
{
    preparedBlockSize = samplesPerBlockExpected;
    preparedSampleRate = sampleRate;
    MemorizingAudioChain::prepareToPlay (samplesPerBlockExpected, sampleRate);
}

void TavrineLoop::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    if (! playing.read())
    {
        // An idle loop renders nothing; it only makes sure that it starts
        // from its begin, and then the mixer skips it.
        info.clearActiveBufferRegion();
        cancelCrossfade();
        const double begin = beginLoopFraction.read();
        if (timeline->getPosition() != begin)
        {
            endOfLoop->fire();
            if (timeline->getPosition() != begin)
                timeline->setPosition (begin);
        }
        return;
    }
    if (releaseRequested.exchange (false))
        envelope->beginRelease (samplesPlayedInLoop.read());
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
