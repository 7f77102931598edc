#include "audio/SliceAwareResampler.h"

#include <cmath>

#include "controllable/api/Parameter.h"

namespace qvrControllableAudio
{
SliceAwareResampler::SliceAwareResampler()
{
    resamplingMode.minimum = 0;
    resamplingMode.maximum = kNumModes - 1;
    resamplingMode.defaultValue = kDefaultMode;
    addParameter (resamplingMode.getParameter());

    resamplingLengthRatio.defaultValue = 1.0;
    addParameter (resamplingLengthRatio.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (outputSamplesPerSlice.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    addParameter (outputSamplesRead.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    resamplingRatio->addChangeListener (this, true);
}

SliceAwareResampler::~SliceAwareResampler()
{
    resamplingRatio->removeChangeListener (this, true);
    if (sampleLength.get() != nullptr)
        sampleLength->removeChangeListener (this, true);
}

void SliceAwareResampler::setSampleLength (qvrControllableAPI::ParameterDef* totalLength)
{
    if (sampleLength.get() != nullptr)
        sampleLength->removeChangeListener (this, true);
    sampleLength.bind (totalLength);
    if (totalLength != nullptr)
        totalLength->addChangeListener (this, true);
    updateDerivedValues();
}

void SliceAwareResampler::parameterChanged (qvrControllableAPI::ParameterDef*)
{
    updateDerivedValues();
}

void SliceAwareResampler::updateDerivedValues()
{
    const double ratio = getEffectiveRatio();
    const double lengthRatio = 1.0 / ratio;
    if (resamplingLengthRatio.read() != lengthRatio)
        resamplingLengthRatio.write (lengthRatio);
    const int length = sampleLength.getRaw() != nullptr ? sampleLength.read() : 0;
    // One slice until the sequencer divides the sample.
    const int perSlice = (int) std::lround (juce::jmax (0, length) / ratio);
    if (outputSamplesPerSlice.read() != perSlice)
        outputSamplesPerSlice.write (perSlice);
}

void SliceAwareResampler::restartSliceCount() noexcept
{
    outputSamplesRead.store (0);
}

void SliceAwareResampler::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    if (info.numSamples <= 0)
        return;
    outputSamplesRead.getRaw()->fetch_add (info.numSamples, std::memory_order_relaxed);
    if (getEffectiveRatio() != 1.0)
    {
        engineInUse = true;
        Resampler::getNextAudioBlock (info);
        return;
    }

    const juce::ScopedLock sl (getLock());
    if (engineInUse)
    {
        // What the engine still held belongs to another rate; a later
        // change of rate starts clean.
        if (auto* engine = getEngine())
            engine->flushBuffers();
        engineInUse = false;
    }
    if (auto* upstream = getUpstreamSource())
        upstream->getNextAudioBlock (info);
    else
        info.clearActiveBufferRegion();
}
} // namespace qvrControllableAudio
