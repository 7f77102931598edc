#include "audio/ParameterInterpolator.h"

#include <cmath>

#include "controllable/api/Parameter.h"
#include "controllable/api/ParameterType.h"
#include "controllable/api/ParameterValue.h"

namespace qvrControllableAudio
{
ParameterInterpolator::ParameterInterpolator (juce::AudioSource* wrapped, CrossfadableSource* crossfadableOwner,
                                              int subBlock, ChainableAudioSourceProvider* provider)
    : source (wrapped), crossfadable (crossfadableOwner), owner (provider), subBlockSize (juce::jmax (1, subBlock))
{
    jassert (source != nullptr);
}

ParameterInterpolator::~ParameterInterpolator()
{
    for (auto& entry : smoothed)
        entry->parameter->removeChangeListener (this, true);
}

const ShadowValue& ParameterInterpolator::addParameter (qvrControllableAPI::ParameterDef* target, int rampSamples)
{
    static const ShadowValue invalid (false);
    if (target == nullptr)
        return invalid;
    auto type = target->getType();
    if (type == nullptr || ! type->isFloat() || type->isList())
        return invalid;

    auto entry = std::make_unique<Smoothed>();
    entry->targetReader.connect (target->getValue().get());
    if (! entry->targetReader.isConnected())
        return invalid; // a value without storage cannot be read on the audio thread
    entry->parameter = target;
    entry->rampSamples = juce::jmax (0, rampSamples);
    entry->target = entry->targetReader.get();
    entry->shadow.reset (new ShadowValue (true));
    entry->shadow->set (entry->target);

    const ShadowValue& shadow = *entry->shadow;
    smoothed.push_back (std::move (entry));
    target->addChangeListener (this, true);
    return shadow;
}

void ParameterInterpolator::jumpNext (qvrControllableAPI::ParameterDef* target)
{
    for (auto& entry : smoothed)
        if (entry->parameter.get() == target)
            entry->jumpNextChange.store (true);
}

void ParameterInterpolator::jumpAll() noexcept
{
    for (auto& entry : smoothed)
    {
        // Clear first: a change that lands after the clear is read below or
        // raises the flag again for the next block.
        entry->changed.store (false);
        entry->target = entry->targetReader.get();
        entry->shadow->set (entry->target);
        entry->step = 0.0;
    }
    interpolating = false;
}

void ParameterInterpolator::parameterChanged (qvrControllableAPI::ParameterDef* parameter)
{
    // Any thread: only flags. The audio thread owns shadows and steps, so a
    // writer never races the ramp it would restart.
    for (auto& entry : smoothed)
        if (entry->parameter.get() == parameter)
        {
            entry->changed.store (true, std::memory_order_relaxed);
            changesPending.store (true, std::memory_order_release);
        }
}

void ParameterInterpolator::prepareToPlay (int samplesPerBlockExpected, double sampleRate)
{
    source->prepareToPlay (samplesPerBlockExpected, sampleRate);
    // Playback starts at the settings, not on the way to them.
    jumpAll();
    wasInCrossfade = false;
}

void ParameterInterpolator::releaseResources()
{
    source->releaseResources();
}

void ParameterInterpolator::takeChanges (bool crossfading) noexcept
{
    // During a crossfade the flags stay up: the shadow must not move while
    // the chain renders what would have played.
    if (crossfading || ! changesPending.exchange (false, std::memory_order_acquire))
        return;

    for (auto& entry : smoothed)
    {
        if (! entry->changed.exchange (false, std::memory_order_relaxed))
            continue;
        const bool jumpRequested = entry->jumpNextChange.exchange (false);
        entry->target = entry->targetReader.get();
        const double shadow = entry->shadow->get();
        if (jumpRequested || wasInCrossfade || entry->rampSamples == 0)
        {
            entry->shadow->set (entry->target);
            entry->step = 0.0;
        }
        else
        {
            entry->step = (entry->target - shadow) / (double) entry->rampSamples;
            if (entry->target != shadow)
                interpolating = true;
        }
    }
}

bool ParameterInterpolator::advanceRamps (int numSamples) noexcept
{
    bool allLanded = true;
    for (auto& entry : smoothed)
    {
        const double shadow = entry->shadow->get();
        if (shadow == entry->target)
            continue;
        const double stepsLeft = entry->step != 0.0 ? std::round ((entry->target - shadow) / entry->step) : 0.0;
        if (stepsLeft > (double) numSamples)
        {
            entry->shadow->set (shadow + (double) numSamples * entry->step);
            allLanded = false;
        }
        else
        {
            entry->shadow->set (entry->target);
            entry->step = 0.0;
        }
    }
    return allLanded;
}

void ParameterInterpolator::callSource (const juce::AudioSourceChannelInfo& info, int start, int numSamples)
{
    source->getNextAudioBlock (juce::AudioSourceChannelInfo (info.buffer, info.startSample + start, numSamples));
}

bool ParameterInterpolator::checkInvariants() const noexcept
{
    for (const auto& entry : smoothed)
    {
        const double left = entry->target - entry->shadow->get();
        if (! interpolating && left != 0.0)
            return false;
        if (left * entry->step < 0.0)
            return false;
    }
    return true;
}

void ParameterInterpolator::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    if (info.numSamples <= 0)
        return;

    if (owner != nullptr)
    {
        auto* upstreamProvider = owner->getUpstream();
        auto* upstream = upstreamProvider != nullptr ? upstreamProvider->getAudioSource() : nullptr;
        if (upstream != nullptr)
            upstream->getNextAudioBlock (info);
        else
            info.clearActiveBufferRegion();
    }

    const bool crossfading = crossfadable != nullptr && crossfadable->inCrossfade;
    takeChanges (crossfading);
    wasInCrossfade = crossfading;

    if (crossfading || ! interpolating)
    {
        callSource (info, 0, info.numSamples);
#if JUCE_DEBUG
        jassert (checkInvariants());
#endif
        return;
    }

    int done = 0;
    while (done < info.numSamples)
    {
        const int length = juce::jmin (subBlockSize, info.numSamples - done);
        if (advanceRamps (length))
            interpolating = false;
        callSource (info, done, length);
        done += length;
        // The wrapped source may have called jumpAll.
        if (! interpolating)
        {
            if (done < info.numSamples)
                callSource (info, done, info.numSamples - done);
            break;
        }
    }
#if JUCE_DEBUG
    jassert (checkInvariants());
#endif
}
} // namespace qvrControllableAudio
