#include "audio/MeridexAudioSource.h"

#include <cmath>

#include "controllable/lib/ParameterTypeImpl.h"
#include "controllable/lib/ValueModifiers.h"

namespace qvrControllableAudio
{
namespace
{
bool isNeutral (double factor) noexcept
{
    return std::abs (factor - 1.0) < 0.001;
}

// The extremes of the two factors' ranges: the input buffer is sized for the
// worst of them so that no block has to grow it.
constexpr float kStretchCorners[] = { 0.25f, 4.0f };
constexpr float kPitchCorners[] = { 0.125f, 8.0f };
} // namespace

MeridexAudioSource::MeridexAudioSource (bool bypassIfNeutral) : bypassWhenNeutral (bypassIfNeutral)
{
    defineParameters();
}

MeridexAudioSource::~MeridexAudioSource()
{
    meridexProcMode->removeChangeListener (&modeMirror, true);
    const juce::ScopedLock sl (lock);
    destroyEngine();
}

void MeridexAudioSource::defineParameters()
{
    for (const auto& entry : meridex::kModeTable)
        meridexProcMode.choices.add (juce::String (entry.text));
    meridexProcMode.defaultValue = juce::String ("Pro V3");
    meridexProcMode.value = juce::String ("Pro");
    addParameter (meridexProcMode.getParameter());
    meridexProcMode->addChangeListener (&modeMirror, true);
    mirrorSelectedMode();

    stretchFactor.minimum = 0.25;
    stretchFactor.maximum = 4.0;
    stretchFactor.defaultValue = 1.0;
    addParameter (stretchFactor.getParameter());

    stretchLinear.bind (stretchFactor->createForwardingParameter (kStretchLinear, nullptr));
    stretchLinear->setModifier (new qvrControllableLib::StretchLinearizerModifier (10.0, 1.0, 1.0));
    addParameter (stretchLinear.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    pitchFactor.minimum = 0.125;
    pitchFactor.maximum = 8.0;
    pitchFactor.defaultValue = 1.0;
    addParameter (pitchFactor.getParameter());

    pitchSemitones.bind (pitchFactor->createForwardingParameter (kPitchSemitones, nullptr));
    pitchSemitones->setModifier (new qvrControllableLib::LogarithmicValueModifier (2.0, 12.0, 1.0));
    for (int semitone = -12; semitone <= 12; ++semitone)
        pitchSemitones->getValueList()->addFloat (semitone);
    addParameter (pitchSemitones.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    pitchCents.bind (pitchFactor->createForwardingParameter (kPitchCents, nullptr));
    pitchCents->setModifier (new qvrControllableLib::PitchCentsModifier (2.0, 12.0, 1.0));
    addParameter (pitchCents.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    formantFactor.minimum = 0.25;
    formantFactor.maximum = 4.0;
    formantFactor.defaultValue = 1.0;
    addParameter (formantFactor.getParameter());

    meridexReadAhead.defaultValue = 0.0;
    addParameter (meridexReadAhead.getParameter(), qvrControllableLib::ParameterPersistence::transient);
}

void MeridexAudioSource::upstreamChanged (juce::AudioSource* source, AudioSourceProvider*, AudioSourceProvider*)
{
    const juce::ScopedLock sl (lock);
    upstream = source;
}

void MeridexAudioSource::mirrorSelectedMode()
{
    const int index = meridexProcMode->getValue()->getChoiceIndex();
    const bool known = index >= 0 && index < meridex::kModeCount;
    selectedMode.store (meridex::kModeTable[known ? index : 0].modeNumber, std::memory_order_relaxed);
}

bool MeridexAudioSource::isBypassing() const
{
    return bypassWhenNeutral && isNeutral (stretchFactor.read()) && isNeutral (pitchFactor.read())
           && isNeutral (1.0 / formantFactor.read());
}

int MeridexAudioSource::getEngineMode() const noexcept
{
    return (proEngine != nullptr || v3Engine != nullptr) ? engineMode : -1;
}

void MeridexAudioSource::forgetSentFactors() noexcept
{
    lastStretch = lastPitch = lastFormant = -1.0f;
}

void MeridexAudioSource::destroyEngine()
{
    meridex::CMeridexProIf::destroyInstance (&proEngine);
    meridex::CMeridexProV3If::destroyInstance (&v3Engine);
}

void MeridexAudioSource::createEngine (int modeNumber)
{
    destroyEngine();
    requestedMode = modeNumber;
    engineMode = -1;

    auto tryCreate = [this] (int number) {
        if (number >= meridex::kV3ModeBase)
            return meridex::CMeridexProV3If::createInstance (&v3Engine, kBlockSize, kChannels, sampleRate,
                                                             number - meridex::kV3ModeBase, kMinStretch);
        return meridex::CMeridexProIf::createInstance (&proEngine, kBlockSize, kChannels, sampleRate, number);
    };

    // A mode whose engine this build does not have yet falls back to
    // "Efficient V3", so that the player still stretches rather than going
    // silent or playing out of tempo.
    if (const int result = tryCreate (modeNumber); result == meridex::kNoError)
    {
        engineMode = modeNumber;
    }
    else if (result == meridex::kModeNotBuilt)
    {
        const int fallback = meridex::kModeTable[meridex::findModeIndex ("Efficient V3")].modeNumber;
        if (tryCreate (fallback) == meridex::kNoError)
            engineMode = fallback;
    }

    meridexReadAhead.write (0.0);
    forgetSentFactors();

    int worst = kBlockSize;
    for (float s : kStretchCorners)
        for (float p : kPitchCorners)
        {
            if (v3Engine != nullptr)
                worst = juce::jmax (worst, v3Engine->getMaxFramesNeeded (s, p));
            else if (proEngine != nullptr)
                worst = juce::jmax (worst, proEngine->getMaxFramesNeeded (s, p));
        }
    ensureInputCapacity (worst);
}

void MeridexAudioSource::ensureInputCapacity (int frames)
{
    // Only ever grown; in a running chain this happens in prepareToPlay.
    if (frames > input.getNumSamples())
        input.setSize (kChannels, frames, true, true, false);
}

void MeridexAudioSource::prepareToPlay (int, double newSampleRate)
{
    const juce::ScopedLock sl (lock);
    const bool rateChanged = newSampleRate != sampleRate;
    sampleRate = newSampleRate;
    if ((proEngine == nullptr && v3Engine == nullptr) || rateChanged)
        createEngine (selectedModeNumber());
    else
        resetEngine();
}

void MeridexAudioSource::releaseResources()
{
    const juce::ScopedLock sl (lock);
    destroyEngine();
    requestedMode = engineMode = -1;
    input.setSize (kChannels, 0);
}

void MeridexAudioSource::resetEngine()
{
    const juce::ScopedLock sl (lock);
    if (v3Engine != nullptr)
        v3Engine->reset();
    if (proEngine != nullptr)
        proEngine->reset();
    meridexReadAhead.write (0.0);
    forgetSentFactors();
}

void MeridexAudioSource::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    const juce::ScopedLock sl (lock);
    if (info.numSamples <= 0)
        return;

    const double stretch = stretchFactor.read();
    const double pitch = pitchFactor.read();
    const double formant = 1.0 / formantFactor.read();

    if (bypassWhenNeutral && isNeutral (stretch) && isNeutral (pitch) && isNeutral (formant))
    {
        if (upstream != nullptr)
            upstream->getNextAudioBlock (info);
        else
            info.clearActiveBufferRegion();
        return;
    }

    if (const int wanted = selectedModeNumber(); wanted != requestedMode)
        createEngine (wanted);

    if (proEngine == nullptr && v3Engine == nullptr)
    {
        info.clearActiveBufferRegion();
        return;
    }

    for (int done = 0; done < info.numSamples;)
    {
        const int n = juce::jmin (kBlockSize, info.numSamples - done);
        renderPiece (*info.buffer, info.startSample + done, n);
        done += n;
    }
}

void MeridexAudioSource::renderPiece (juce::AudioBuffer<float>& buffer, int start, int numSamples)
{
    const float stretch = (float) stretchFactor.read();
    float pitch = (float) pitchFactor.read();
    const float formant = (float) (1.0 / formantFactor.read());

    if (stretch != lastStretch || pitch != lastPitch || formant != lastFormant)
    {
        lastStretch = stretch;
        lastPitch = pitch;
        lastFormant = formant;
        // The pitch takes the engine's rounding, so that the duration, and
        // with it the tempo, stays exact.
        if (v3Engine != nullptr)
        {
            v3Engine->setFormantFactor (formant);
            v3Engine->setStretchPitch (stretch, &pitch, meridex::kMovePosition);
        }
        else
        {
            proEngine->setFormantFactor (formant);
            proEngine->setStretchPitch (stretch, &pitch, meridex::kMovePosition);
        }
    }

    const int framesNeeded = v3Engine != nullptr ? v3Engine->setOutputBlock (numSamples)
                                                 : proEngine->setOutputBlock (numSamples);
    if (framesNeeded < 0)
    {
        buffer.clear (start, numSamples);
        return;
    }
    ensureInputCapacity (framesNeeded);

    if (inputMuted || upstream == nullptr)
        input.clear (0, framesNeeded);
    else if (framesNeeded > 0)
        upstream->getNextAudioBlock (juce::AudioSourceChannelInfo (&input, 0, framesNeeded));

    const float* inputs[kChannels] = { input.getReadPointer (0), input.getReadPointer (1) };
    const int lastChannel = juce::jmin (1, buffer.getNumChannels() - 1);
    float* outputs[kChannels] = { buffer.getWritePointer (0, start), buffer.getWritePointer (lastChannel, start) };
    const int result = v3Engine != nullptr ? v3Engine->processData (inputs, framesNeeded, outputs)
                                           : proEngine->processData (inputs, framesNeeded, outputs);
    if (result != meridex::kNoError)
        buffer.clear (start, numSamples);
    // One stereo set is stretched: further channels of the block carry nothing.
    for (int c = kChannels; c < buffer.getNumChannels(); ++c)
        buffer.clear (c, start, numSamples);

    if (! inputMuted)
        meridexReadAhead.write (meridexReadAhead.read() + framesNeeded - numSamples / (double) stretch);
}

void MeridexAudioSource::saveCrossfadeState()
{
    const juce::ScopedLock sl (lock);
    if (auto* positionable = dynamic_cast<juce::PositionableAudioSource*> (upstream))
        savedPosition = positionable->getNextReadPosition() - (juce::int64) meridexReadAhead.read();
}

void MeridexAudioSource::restoreCrossfadeState()
{
    const juce::ScopedLock sl (lock);
    resetEngine();
    if (auto* positionable = dynamic_cast<juce::PositionableAudioSource*> (upstream))
        positionable->setNextReadPosition (juce::jmax ((juce::int64) 0, savedPosition));
}

int MeridexAudioSource::getFramesNeededForOneBlock()
{
    // A probe engine allocates, so the answer is kept per pair of factors and
    // computed again only when one of them moves.
    const auto stretch = (float) stretchFactor.read();
    float pitch = (float) pitchFactor.read();
    if (cachedFramesNeeded >= 0 && stretch == cachedStretch && pitch == cachedPitch)
        return cachedFramesNeeded;
    cachedStretch = stretch;
    cachedPitch = pitch;
    meridex::CMeridexProV3If* probe = nullptr;
    if (meridex::CMeridexProV3If::createInstance (&probe, kBlockSize, kChannels, 44100.0, meridex::kV3ModeEfficient,
                                                  kMinStretch)
        != meridex::kNoError)
        return cachedFramesNeeded = kBlockSize;
    probe->setStretchPitch (stretch, &pitch, meridex::kMovePosition);
    cachedFramesNeeded = juce::jmax (kBlockSize, probe->setOutputBlock (kBlockSize));
    meridex::CMeridexProV3If::destroyInstance (&probe);
    return cachedFramesNeeded;
}
} // namespace qvrControllableAudio
