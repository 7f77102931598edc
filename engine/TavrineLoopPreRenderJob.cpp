#include "engine/TavrineLoopPreRenderJob.h"

#include <cmath>

#include "samples/SampleKey.h"
#include "samples/SamplePoolManager.h"

TavrineLoopPreRenderJob::TavrineLoopPreRenderJob (TavrineLoopPreRenderChain& renderChain) : chain (&renderChain)
{
    callback = relay.get();
}

void TavrineLoopPreRenderJob::setClient (SamplePreparationCallback* client)
{
    relay->setClient (client);
}

TavrineLoopPreRenderJob::~TavrineLoopPreRenderJob() = default;

juce::String TavrineLoopPreRenderJob::getRenderSignature()
{
    return chain->getRenderSignature();
}

void TavrineLoopPreRenderJob::setSource (const juce::String& url, PreparedSample::Ptr sourceSample)
{
    chain->setSource (url, std::move (sourceSample));
}

bool TavrineLoopPreRenderJob::isRenderNeeded() const
{
    auto& stretch = chain->getStretchSource();
    if (std::abs (stretch.stretchFactor.read() - 1.0) > kFactorTolerance)
        return true;
    // The pad pitch counts in whole semitones, as the pad steps.
    if ((int) chain->pitchSemitonesXy.read() != 0 || std::abs (chain->pitchSemitonesFine.read()) > kFactorTolerance)
        return true;
    if (std::abs (chain->formantFactorXy.read() - 1.0) > kFactorTolerance)
        return true;
    return chain->hasSliceAwayFromDefault();
}

int TavrineLoopPreRenderJob::run (SamplePoolManager& pool)
{
    const auto source = chain->getSourceSample();
    if (source == nullptr)
    {
        sample = nullptr;
        return kResultNoSourceSample;
    }

    const auto key = SampleKey::make (chain->getSourceUrl(), chain->getRenderSignature());
    if (auto cached = pool.getSample (key); cached != nullptr)
    {
        sample = cached;
        return kResultDone;
    }

    sample = isRenderNeeded() ? render (key, pool) : source;
    chain->releaseSourceSample();
    return kResultDone;
}

PreparedSample::Ptr TavrineLoopPreRenderJob::render (const juce::String& key, PreparedSamplePool& pool)
{
    auto& memory = chain->getMemorySource();
    const double factor = chain->getStretchSource().stretchFactor.read();
    const int length = (int) std::lround (factor * (double) memory.totalLength.read());
    if (length <= 0)
        return chain->getSourceSample();

    // A loop that wraps would feed the stretcher its own start again; the
    // render wants the sample once, then silence.
    const bool savedLooping = memory.sourceLooping.read();
    memory.sourceLooping.write (false);
    chain->getStretchSource().setInputMuted (false);

    auto forward = std::make_unique<juce::AudioSampleBuffer> (kRenderChannels, length);
    forward->clear();

    memory.setNextReadPosition (0);
    if (auto* timeline = chain->getTimeline())
        timeline->setPosition (0.0);
    chain->prepareToPlay (kRenderBlockSize, kRenderSampleRate);
    for (int start = 0; start < length; start += kRenderBlockSize)
        chain->getNextAudioBlock (
            juce::AudioSourceChannelInfo (forward.get(), start, juce::jmin (kRenderBlockSize, length - start)));
    chain->releaseResources();

    applyFades (*forward);
    auto reverse = PreparedSample::makeReverse (*forward);
    PreparedSample::Ptr rendered (new PreparedSample (key, std::move (forward), std::move (reverse), &pool));

    memory.sourceLooping.write (savedLooping);
    ++numRenders;
    return rendered;
}

void TavrineLoopPreRenderJob::applyFades (juce::AudioSampleBuffer& buffer)
{
    const int length = buffer.getNumSamples();
    const int fadeIn = juce::jmin (kFadeInLength, length);
    const int fadeOut = juce::jmin (kFadeLength, length);
    for (int channel = 0; channel < buffer.getNumChannels(); ++channel)
    {
        buffer.applyGainRamp (channel, 0, fadeIn, 0.0f, 1.0f);
        buffer.applyGainRamp (channel, length - fadeOut, fadeOut, 1.0f, 0.0f);
    }
}
