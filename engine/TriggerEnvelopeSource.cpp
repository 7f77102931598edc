#include "engine/TriggerEnvelopeSource.h"

#include <utility>

#include "controllable/api/Parameter.h"
#include "engine/TavrineLoop.h"

TriggerEnvelopeSource::TriggerEnvelopeSource (TavrineLoop& owner) : loop (owner)
{
    envelopeAttack.minimum = 0;
    envelopeAttack.maximum = kMaxEnvelopeSamples;
    envelopeAttack.defaultValue = 16;
    addParameter (envelopeAttack.getParameter());

    envelopeRelease.minimum = 0;
    envelopeRelease.maximum = kMaxEnvelopeSamples;
    envelopeRelease.defaultValue = 0;
    addParameter (envelopeRelease.getParameter());

    attackLength = envelopeAttack.read();
    tail.clear();
    loop.trigger->addChangeListener (this, true);
}

TriggerEnvelopeSource::~TriggerEnvelopeSource()
{
    detach();
}

void TriggerEnvelopeSource::detach()
{
    if (std::exchange (attached, false))
        loop.trigger->removeChangeListener (this, true);
}

void TriggerEnvelopeSource::prepareToPlay (int, double)
{
    attackLength = juce::jmax (0, envelopeAttack.read());
}
void TriggerEnvelopeSource::releaseResources() {}

bool TriggerEnvelopeSource::checkInvariants() const noexcept
{
    return releaseStart >= -1 && tailRemaining >= 0 && tailRemaining <= tailLength && tailLength <= kTailSamples
           && tail.getNumSamples() == kTailSamples && level >= 0.0f && level <= 1.0f;
}

void TriggerEnvelopeSource::parameterChanged (qvrControllableAPI::ParameterDef*)
{
    if (loop.trigger.read())
        triggerOn();
    else
        triggerOff();
}

void TriggerEnvelopeSource::triggerOn()
{
    attackLength = juce::jmax (0, envelopeAttack.read());
    if (releaseStart >= 0 && loop.playing.read())
        renderTail();
    else
        tailRemaining = tailLength = 0;
    // A fade the chain was running when the loop stopped belongs to the
    // last note; the new one starts clean.
    if (! loop.playing.read())
        loop.cancelCrossfade();

    loop.restartAtBegin();
    releaseStart = -1;
    loop.clearReleaseRequest();
    if (loop.enterTriggerGroup (true))
        loop.playing.write (true);
    jassert (checkInvariants());
}

void TriggerEnvelopeSource::triggerOff()
{
    releaseLength = juce::jmax (0, envelopeRelease.read());
    loop.enterTriggerGroup (false);
    loop.requestRelease();
    beginRelease (loop.samplesPlayedInLoop.read());
}

void TriggerEnvelopeSource::beginRelease (int samplesPlayed) noexcept
{
    releaseStart = juce::jmax (0, samplesPlayed);
    target = level;
}

void TriggerEnvelopeSource::renderTail()
{
    auto* upstream = getUpstreamSource();
    // What the release had left to play, but no more than the tail holds.
    const int elapsed = juce::jmax (0, loop.samplesPlayedInLoop.read() - releaseStart);
    const int remaining = releaseLength - elapsed;
    const int n = juce::jmin (kTailSamples, remaining);
    if (upstream == nullptr || n <= 0 || level <= 0.0f)
    {
        tailRemaining = tailLength = 0;
        return;
    }
    const juce::AudioSourceChannelInfo info (&tail, 0, n);
    info.clearActiveBufferRegion();
    upstream->getNextAudioBlock (info);
    ramp (info, 0, n, level, 0.0f);
    tailLength = tailRemaining = n;
}

void TriggerEnvelopeSource::finishRelease()
{
    level = 0.0f;
    releaseStart = -1;
    // A crossfade's look-ahead renders what would play; it must not end the
    // note for real.
    if (inCrossfade)
        return;
    loop.playing.write (false);
    loop.restartAtBegin();
}

void TriggerEnvelopeSource::ramp (const juce::AudioSourceChannelInfo& info, int offset, int length, float from,
                                  float to) noexcept
{
    if (length <= 0)
        return;
    // Gain of sample i is from + (to - from) * i / length: it depends on the
    // sample's place in the ramp alone, so any cut of the blocks gives the
    // same samples.
    const float step = (to - from) / (float) length;
    for (int c = 0; c < info.buffer->getNumChannels(); ++c)
    {
        auto* d = info.buffer->getWritePointer (c, info.startSample + offset);
        for (int i = 0; i < length; ++i)
            d[i] *= from + step * (float) i;
    }
}

void TriggerEnvelopeSource::mixTail (const juce::AudioSourceChannelInfo& info) noexcept
{
    const int n = juce::jmin (tailRemaining, info.numSamples);
    if (n <= 0)
        return;
    const int from = tailLength - tailRemaining;
    for (int c = 0; c < juce::jmin (info.buffer->getNumChannels(), tail.getNumChannels()); ++c)
        info.buffer->addFrom (c, info.startSample, tail, c, from, n);
    tailRemaining -= n;
}

void TriggerEnvelopeSource::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    const int n = info.numSamples;
    if (n <= 0)
        return;
    if (auto* upstream = getUpstreamSource())
        upstream->getNextAudioBlock (info);
    else
        info.clearActiveBufferRegion();

    if (const float fixed = offlineGain.load (std::memory_order_relaxed); fixed >= 0.0f)
    {
        for (int c = 0; c < info.buffer->getNumChannels(); ++c)
            info.buffer->applyGain (c, info.startSample, n, fixed);
        return;
    }

    if (! loop.playing.read())
    {
        info.clearActiveBufferRegion();
        mixTail (info);
        return;
    }

    const int played = loop.samplesPlayedInLoop.read();
    if (releaseStart >= 0)
    {
        const int elapsed = juce::jmax (0, played - releaseStart);
        if (releaseLength <= 0)
        {
            info.clearActiveBufferRegion();
            finishRelease();
        }
        else
        {
            const int len = juce::jlimit (0, n, releaseLength - elapsed);
            const float to =
                juce::jmax (0.0f, (1.0f - (float) (elapsed + len) / (float) releaseLength)) * target;
            ramp (info, 0, len, level, to);
            if (len < n)
                info.buffer->clear (info.startSample + len, n - len);
            level = to;
            if (elapsed + n >= releaseLength)
                finishRelease();
        }
    }
    else if (played < attackLength)
    {
        const int m = juce::jmin (n, attackLength - played);
        const float from = (float) played / (float) attackLength;
        const float to = (float) (played + m) / (float) attackLength;
        ramp (info, 0, m, from, to);
        level = m < n ? 1.0f : to;
    }
    else
    {
        level = 1.0f;
    }
    mixTail (info);
    jassert (checkInvariants());
}

void TriggerEnvelopeSource::saveCrossfadeState()
{
    inCrossfade = true;
    saved = { level, target, releaseStart, tailRemaining };
}

void TriggerEnvelopeSource::restoreCrossfadeState()
{
    level = saved.level;
    target = saved.target;
    releaseStart = saved.releaseStart;
    tailRemaining = saved.tailRemaining;
    inCrossfade = false;
}
