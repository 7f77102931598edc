#include "audio/GainAudioSource.h"

#include "controllable/api/ParameterType.h"
#include "controllable/lib/ValueModifiers.h"

namespace qvrControllableAudio
{
GainAudioSource::GainAudioSource()
{
    gain.minimum = 0.0;
    gain.maximum = 2.0;
    gain.defaultValue = 1.0;

    // A view on `gain`, 20 log10 (gain), limited to -80..6 dB for what is
    // written through it; reading silence still gives about -320 dB.
    auto view = gain->createForwardingParameter (kGainDb, nullptr);
    view->setModifier (new qvrControllableLib::LogarithmicValueModifier (10.0, 20.0, 1.0));
    for (auto role : { qvrControllableAPI::kRoleMinimum, qvrControllableAPI::kRoleMaximum })
    {
        auto forwarded = role == qvrControllableAPI::kRoleMinimum ? view->getMinimum() : view->getMaximum();
        view->replaceValue (forwarded.get(), view->getType()->createValue (view.get(), role).get());
    }
    gainDb.bind (view);
    gainDb.minimum = -80.0;
    gainDb.maximum = 6.0;

    gainRamp.minimum = 0;
    gainRamp.maximum = 7000;
    gainRamp.defaultValue = 50;

    detectClipping.defaultValue = false;
    clipping.defaultValue = false;

    clipReleaseSamples.minimum = 0;
    clipReleaseSamples.maximum = 2646000;
    clipReleaseSamples.defaultValue = 44100;

    addParameter (gain.getParameter());
    // The view has no value of its own and the flag is a reading, not a
    // setting: neither belongs in saved state.
    addParameter (gainDb.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (gainRamp.getParameter());
    addParameter (detectClipping.getParameter());
    addParameter (clipping.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (clipReleaseSamples.getParameter());

    clippingWriter.connect (clipping->getValue().get());
    targetGain = currentGain = gain.read();
}

GainAudioSource::~GainAudioSource() = default;

void GainAudioSource::prepareToPlay (int, double)
{
    jump = true;
}

void GainAudioSource::releaseResources() {}

void GainAudioSource::saveCrossfadeState()
{
    inCrossfade = true;
}

void GainAudioSource::restoreCrossfadeState()
{
    inCrossfade = false;
    jump = true;
    rampLength = 0;
}

void GainAudioSource::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    if (info.numSamples <= 0)
        return;
    applyGain (info);
    if (detectClipping.read())
        watchPeak (info);
#if JUCE_DEBUG
    jassert (checkInvariants());
#endif
}

bool GainAudioSource::checkInvariants() const noexcept
{
    return (rampLength == 0 || currentGain != targetGain) && holdRemaining >= 0;
}

void GainAudioSource::applyGain (const juce::AudioSourceChannelInfo& info)
{
    const double newTarget = gain.read();
    if (newTarget != targetGain)
    {
        // A change during a ramp starts a new one from where the gain is now.
        targetGain = newTarget;
        rampLength = gainRamp.read();
    }
    if (jump)
    {
        jump = false;
        rampLength = 0;
    }

    auto& buffer = *info.buffer;
    int rampSamples = 0;
    if (rampLength > 0)
    {
        rampSamples = juce::jmin (info.numSamples, rampLength);
        const double endGain = rampSamples < rampLength
                                   ? currentGain
                                         + (double) rampSamples / (double) rampLength * (targetGain - currentGain)
                                   : targetGain;
        buffer.applyGainRamp (info.startSample, rampSamples, (float) currentGain, (float) endGain);
        currentGain = endGain;
        if (currentGain == targetGain)
            rampLength = 0;
    }
    else
    {
        currentGain = targetGain;
    }

    if (rampSamples < info.numSamples)
        buffer.applyGain (info.startSample + rampSamples, info.numSamples - rampSamples, (float) currentGain);
}

void GainAudioSource::watchPeak (const juce::AudioSourceChannelInfo& info)
{
    float peak = 0.0f;
    for (int channel = 0; channel < info.buffer->getNumChannels(); ++channel)
        peak = juce::jmax (peak, info.buffer->getMagnitude (channel, info.startSample, info.numSamples));

    if (peak > 1.0f && ! clipping.read())
    {
        holdRemaining = clipReleaseSamples.read();
        clippingWriter.setNotifying (true);
        return;
    }
    if (holdRemaining > 0)
    {
        holdRemaining -= info.numSamples;
        if (holdRemaining <= 0)
        {
            holdRemaining = 0;
            clippingWriter.setNotifying (false);
        }
    }
}
} // namespace qvrControllableAudio
