#include "engine/TavrineSampleAudioSource.h"

#include <cmath>

#include "controllable/api/ParameterValue.h"
#include "controllable/lib/ValueConverters.h"
#include "engine/TavrineLoop.h"
#include "samples/SampleKey.h"
#include "samples/SamplePreparationThread.h"
#include "samples/TavrineSampleManager.h"

namespace
{
bool isOnPreparationThread()
{
    auto* thread = juce::Thread::getCurrentThread();
    return thread != nullptr && thread->getThreadName() == SamplePreparationThread::threadName;
}
} // namespace

TavrineSampleAudioSource::TavrineSampleAudioSource (TavrineLoop& owner, TavrineSampleManager& manager,
                                                    qvrControllableAPI::ParameterDef* masterTempo,
                                                    qvrControllableAPI::ParameterDef* outputTempo)
    : loop (owner), sampleManager (manager), chain (new TavrineLoopPreRenderChain()),
      renderJob (new TavrineLoopPreRenderJob (*chain)), replaceEvent (new ReplaceSampleEvent (*this, owner, manager))
{
    masterBpm.bind (masterTempo);
    outputBpm.bind (outputTempo);
    defineParameters();
    bindLoopParameters();

    TavrineLoopPreRenderChain::SignatureSources signature;
    signature.sourceBpm = sourceBpm.getParameter();
    signature.relativeBpm = relativeBpm.getParameter();
    signature.masterBpm = masterBpm.getParameter();
    signature.resamplingMode = resamplingMode.getParameter();
    chain->setSignatureSources (signature);

    renderJob->setClient (this);
    loop.addTimelineEvent (replaceEvent.get());
    listen (true);
    startTimer (kTimerIntervalMs);
}

TavrineSampleAudioSource::~TavrineSampleAudioSource()
{
    stopTimer();
    listen (false);
    // A delivery under way ends before the source goes; later ones reach
    // nobody. The loop usually dies first and takes the event with it, so
    // the event is only cut loose here, never taken out of the loop's queue.
    renderJob->setClient (nullptr);
    replaceEvent->detachSource();
}

void TavrineSampleAudioSource::defineParameters()
{
    addParameter (reverse.getParameter());
    addParameter (globalReverse.getParameter());

    sourceBpm.minimum = 0.0;
    sourceBpm.maximum = 999.0;
    sourceBpm.defaultValue = 0.0;
    addParameter (sourceBpm.getParameter());

    relativeBpm.minimum = 0.125;
    relativeBpm.maximum = 8.0;
    relativeBpm.defaultValue = 1.0;
    // Shown as the loop's own tempo: the ratio times the master tempo.
    relativeBpm->setConverter (new qvrControllableLib::RelativeBpmConverter (
        0.0, masterBpm.isBound() ? masterBpm->getValue().get() : nullptr));
    addParameter (relativeBpm.getParameter());

    addParameter (loading.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (fileName.getParameter());

    // The chain's and its stretch source's settings, published under the
    // source's name. Pitch and stretch factors follow other settings, so they
    // are not saved.
    auto& stretch = chain->getStretchSource();
    pitchFactor.bind (stretch.pitchFactor.getParameter());
    pitchSemitonesXy.bind (chain->pitchSemitonesXy.getParameter());
    pitchSemitonesFine.bind (chain->pitchSemitonesFine.getParameter());
    stretchFactor.bind (stretch.stretchFactor.getParameter());
    formantFactorXy.bind (chain->formantFactorXy.getParameter());
    adjusting.bind (chain->adjusting.getParameter());
    rendering.bind (chain->rendering.getParameter());

    addParameter (pitchFactor.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (pitchSemitonesXy.getParameter());
    addParameter (pitchSemitonesFine.getParameter());
    addParameter (stretchFactor.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (formantFactorXy.getParameter());
    addParameter (adjusting.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (rendering.getParameter(), qvrControllableLib::ParameterPersistence::transient);
}

void TavrineSampleAudioSource::bindLoopParameters()
{
    // Looked up in the chain members' own parameter sets: the loop's merged
    // namespace is built once, and must not be built before this source is
    // in it.
    for (auto* target : loop.getTargets())
        if (target != this)
            if (auto mode = target->findParameter (kResamplingMode); mode != nullptr)
            {
                resamplingMode.bind (mode);
                break;
            }
}

void TavrineSampleAudioSource::listen (bool shouldListen)
{
    for (auto* parameter : { fileName.get(), stretchFactor.get(), sourceBpm.get(), relativeBpm.get(), masterBpm.get(),
                             resamplingMode.get(), outputBpm.get(), adjusting.get() })
        if (parameter != nullptr)
        {
            if (shouldListen)
                parameter->addChangeListener (this, true);
            else
                parameter->removeChangeListener (this, true);
        }
}

//==============================================================================
void TavrineSampleAudioSource::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    bool moved = false;
    {
        const juce::ScopedLock sl (getLock());
        juce::AudioSampleBuffer* playingBuffer = nullptr;
        if (currentSample != nullptr)
        {
            // The two switches are an exclusive or: both on plays forwards.
            const auto& chosen = reverse.read() == globalReverse.read() ? currentSample->getForward()
                                                                        : currentSample->getReverse();
            playingBuffer = const_cast<juce::AudioSampleBuffer*> (&chosen);
        }
        setBufferLocked (playingBuffer);
        moved = renderLocked (info);
    }
    if (moved)
        signalPositionChanged();
}

//==============================================================================
void TavrineSampleAudioSource::parameterChanged (qvrControllableAPI::ParameterDef* parameter)
{
    if (parameter == fileName.get())
        fileNameChanged();

    // The render's own settings, written on the preparation thread, never
    // call for another render.
    if (parameter == stretchFactor.get() && ! isOnPreparationThread())
        adjusting.write (true);

    if (parameter == sourceBpm.get() || parameter == relativeBpm.get() || parameter == masterBpm.get()
        || (parameter != nullptr && parameter == resamplingMode.get()))
        updateStretchFactor();

    // The text of "relativeBpm" is a tempo built from these.
    if ((parameter != nullptr && parameter == outputBpm.get()) || parameter == sourceBpm.get()
        || parameter == masterBpm.get())
        relativeBpm->notifyChanged (false, false);

    if (parameter == adjusting.get())
        lastAdjustTime.store (juce::Time::getMillisecondCounter());
}

void TavrineSampleAudioSource::fileNameChanged()
{
    const auto url = fileName->getValue()->getString();
    const auto key = SampleKey::make (url, chain->getRenderSignature());

    if (url.isEmpty())
    {
        chain->setSource (url, nullptr);
        jobFinished (nullptr, TavrineLoopPreRenderJob::kResultDone);
        return;
    }

    // Reloading what plays costs nothing, rendered or not.
    if (const auto playing = getCurrentSample(); playing != nullptr)
        if (playing->getKey() == key || playing->getKey() == SampleKey::make (url, {}))
        {
            loading.write (false);
            return;
        }

    const bool singleShot = url.contains (kSingleShotMark);
    loop.loopingEnabled.defaultValue = ! singleShot;
    loop.loopingEnabled.write (! singleShot);
    sourceLooping.write (! singleShot);
    loop.setSampleName (url);

    const double tempo = tempoFromName (url);
    if (tempo > 0.0 && ! singleShot)
    {
        if (sourceBpm.read() != tempo)
            sourceBpm.write (tempo);
        // The first sample ever loaded sets the master tempo.
        if (masterBpm.isBound() && masterBpm.read() == 0.0)
            masterBpm.write (tempo);
    }
    else
    {
        sourceBpm.write (0.0);
    }

    adjusting.write (true);
}

bool TavrineSampleAudioSource::isPitchSpeed() const
{
    return resamplingMode.isBound() && resamplingMode.read() == TavrineLoopPreRenderChain::kPitchSpeedResamplingMode;
}

void TavrineSampleAudioSource::updateStretchFactor()
{
    const double s = sourceBpm.read();
    const double m = masterBpm.isBound() ? masterBpm.read() : 0.0;
    const double r = relativeBpm.read();
    const double factor = (s > 0.0 && m > 0.0 && r > 0.0 && ! isPitchSpeed()) ? s / m / r : 1.0;
    if (stretchFactor.read() != factor)
        stretchFactor.write (factor);
}

double TavrineSampleAudioSource::tempoFromName (const juce::String& url)
{
    if (url.isEmpty())
        return 0.0;
    const int slash = url.lastIndexOfChar ('/');
    const auto name = url.substring ((slash >= 0 ? slash : url.lastIndexOfChar ('\\')) + 1);
    const int start = name[1] == '_' ? 7 : 5;
    // Read as a decimal number: a text that starts with none gives 0.
    return name.substring (start, start + 3).getDoubleValue();
}

//==============================================================================
void TavrineSampleAudioSource::timerCallback()
{
    checkDebounce (juce::Time::getMillisecondCounter());
}

bool TavrineSampleAudioSource::checkDebounce (juce::uint32 nowMs)
{
    // "loading" is not waited for: whoever assigns a file sets it before the
    // file name, and only the delivery of this very request clears it.
    // "rendering" alone keeps a second request from overtaking the first.
    // Unsigned difference: right across the counter's wrap.
    if (! adjusting.read() || nowMs - lastAdjustTime.load() < kSettleMs || rendering.read())
        return false;
    adjusting.write (false);
    const auto url = fileName->getValue()->getString();
    if (url.isEmpty())
        return false;
    rendering.write (true);
    sampleManager.requestSample (url, renderJob.get(), renderJob->getDeliveryCallback());
    return true;
}

//==============================================================================
void TavrineSampleAudioSource::jobFinished (PreparedSample::Ptr sample, int)
{
    bool performNow = false;
    {
        const juce::ScopedLock sl (getLock());
        replaceEvent->arm (sample, loop.getNextLoopBoundary());
        // A loop that plays, or waits for its trigger, with a sample in place
        // swaps at its boundary; anything else has nothing to keep.
        performNow = ! ((loop.playing.read() || loop.trigger.read()) && totalLength.read() != 0);
    }
    if (performNow)
        replaceEvent->perform();
    renderJob->sample = nullptr;
    loading.write (false);
}

void TavrineSampleAudioSource::installSampleLocked (PreparedSample::Ptr& incoming,
                                                    PreparedSample::Ptr& outgoing) noexcept
{
    const int oldPosition = nextReadPosition.read();
    const int oldLength = totalLength.read();
    const int newLength = incoming != nullptr ? incoming->getForward().getNumSamples() : 0;
    // The position keeps its place as a fraction of the sample.
    const int newPosition = oldLength > 0
                                ? (int) std::lround ((double) oldPosition / (double) oldLength * (double) newLength)
                                : 0;

    outgoing = std::move (currentSample);
    currentSample = std::move (incoming);
    setBufferLocked (currentSample != nullptr ? const_cast<juce::AudioSampleBuffer*> (&currentSample->getForward())
                                              : nullptr);
    nextReadPosition.store (newPosition);
    totalLength.store (newLength);
    jassert (checkInvariantsLocked());
}

bool TavrineSampleAudioSource::checkInvariantsLocked() const noexcept
{
    if (currentSample == nullptr)
        return getBuffer() == nullptr && totalLength.read() == 0;
    const auto* playing = getBuffer();
    return (playing == &currentSample->getForward() || playing == &currentSample->getReverse())
           && totalLength.read() == currentSample->getForward().getNumSamples();
}

void TavrineSampleAudioSource::signalSampleReplaced()
{
    rendering.write (false);
    totalLength->notifyChanged (false, false);
    signalPositionChanged();
}

PreparedSample::Ptr TavrineSampleAudioSource::getCurrentSample() const
{
    const juce::ScopedLock sl (getLock());
    return currentSample;
}
