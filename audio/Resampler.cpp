#include "audio/Resampler.h"

#include <cmath>

#include "controllable/api/Parameter.h"
#include "controllable/lib/ValueModifiers.h"

namespace qvrControllableAudio
{
namespace
{
// What the engine pulls: the upstream's audio, without passing on prepare or
// release (see the class comment).
class UpstreamForwarder : public juce::AudioSource
{
public:
    explicit UpstreamForwarder (juce::AudioSource* upstreamSource) : upstream (upstreamSource) {}
    void prepareToPlay (int, double) override {}
    void releaseResources() override {}
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override { upstream->getNextAudioBlock (info); }

private:
    juce::AudioSource* upstream;
};

// JUCE's engine keeps (needed + 8) samples of room, with needed =
// round(n * ratio) + 3 for n output samples: a margin of 11, plus one for
// the rounding of the division below.
constexpr int kEngineMargin = 12;
} // namespace

Resampler::Resampler() : FilteringAudioSourceWrapper (nullptr, this)
{
    resamplingRatio.minimum = kMinimumRatio;
    resamplingRatio.maximum = kMaximumRatio;
    resamplingRatio.defaultValue = 1.0;
    for (double step : { 0.25, 1.0 / 3.0, 0.5, 2.0 / 3.0, 1.0, 1.5, 2.0, 3.0, 4.0 })
        resamplingRatio.choices.add (step);

    // log32 (ratio); its range follows the ratio's through the modifier.
    auto view = resamplingRatio->createForwardingParameter (kResamplingLinear, nullptr);
    view->setModifier (new qvrControllableLib::LogarithmicValueModifier (32.0, 1.0, 1.0));
    resamplingLinear.bind (view);

    addParameter (resamplingRatio.getParameter());
    addParameter (resamplingLinear.getParameter(), qvrControllableLib::ParameterPersistence::transient);
}

Resampler::~Resampler() = default;

double Resampler::getEffectiveRatio() const noexcept
{
    const double ratio = resamplingRatio.read();
    // Automation writes past the range check; a ratio outside would need
    // more input than the engine was prepared for.
    if (! std::isfinite (ratio))
        return 1.0;
    return juce::jlimit (kMinimumRatio, kMaximumRatio, ratio);
}

int Resampler::getMaxPieceSamples (double ratio) const
{
    return juce::jmax (1, (int) ((double) (engineBufferSamples - kEngineMargin) / ratio));
}

int Resampler::prepareEngine (juce::ResamplingAudioSource& target, double ratio) const
{
    // JUCE sizes the buffer as round(block * ratio) + 32 input samples.
    const int block = juce::roundToInt ((double) kEngineInputSamples / ratio);
    target.setResamplingRatio (ratio);
    target.prepareToPlay (block, preparedRate);
    return juce::roundToInt (block * ratio) + 32;
}

bool Resampler::hasEngine() const
{
    const juce::ScopedLock sl (lock);
    return engine != nullptr;
}

void Resampler::upstreamChanged (juce::AudioSource* source, AudioSourceProvider*, AudioSourceProvider*)
{
    std::unique_ptr<juce::ResamplingAudioSource> retired;
    if (source == nullptr)
    {
        const juce::ScopedLock sl (lock);
        std::swap (retired, engine);
        engineUpstream = nullptr;
        engineBufferSamples = 0;
        setFilterSource (nullptr);
        return; // the old engine goes here, outside the lock
    }
    if (source == engineUpstream)
        return;

    double ratio = 1.0;
    {
        const juce::ScopedLock sl (lock);
        if (engine != nullptr)
            ratio = engine->getResamplingRatio();
    }
    auto fresh = std::make_unique<juce::ResamplingAudioSource> (new UpstreamForwarder (source), true, kNumChannels);
    const int bufferSamples = prepareEngine (*fresh, ratio);
    {
        const juce::ScopedLock sl (lock);
        std::swap (engine, fresh);
        engineUpstream = source;
        engineBufferSamples = bufferSamples;
        setFilterSource (engine.get());
    }
    // `fresh` now holds the old engine, destroyed here outside the lock.
}

void Resampler::prepareToPlay (int, double sampleRate)
{
    const juce::ScopedLock sl (lock);
    if (sampleRate > 0.0)
        preparedRate = sampleRate;
    if (engine != nullptr)
        engineBufferSamples = prepareEngine (*engine, getEffectiveRatio());
}

void Resampler::releaseResources()
{
    const juce::ScopedLock sl (lock);
    if (engine != nullptr)
        engine->releaseResources();
    // The engine's buffer is gone: nothing renders until the next prepare.
    engineBufferSamples = 0;
}

void Resampler::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    if (info.numSamples <= 0)
        return;
    const juce::ScopedLock sl (lock);
    if (engine == nullptr || engineBufferSamples <= kEngineMargin)
    {
        info.clearActiveBufferRegion();
        return;
    }

    const double ratio = getEffectiveRatio();
    engine->setResamplingRatio (ratio);
    const int maxPiece = getMaxPieceSamples (ratio);
    juce::AudioSourceChannelInfo piece (info.buffer, info.startSample, 0);
    for (int remaining = info.numSamples; remaining > 0; remaining -= piece.numSamples)
    {
        piece.startSample += piece.numSamples;
        piece.numSamples = juce::jmin (maxPiece, remaining);
        engine->getNextAudioBlock (piece);
    }
}
} // namespace qvrControllableAudio
