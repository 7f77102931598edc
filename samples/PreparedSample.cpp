#include "samples/PreparedSample.h"

#include "samples/PreparedSamplePool.h"

#include <algorithm>
#include <cmath>

PreparedSample::PreparedSample (const juce::String& sampleKey, std::unique_ptr<juce::AudioSampleBuffer> forwardBuffer,
                                std::unique_ptr<juce::AudioSampleBuffer> reverseBuffer, PreparedSamplePool* owningPool)
    : key (sampleKey), forward (std::move (forwardBuffer)), reverse (std::move (reverseBuffer)),
      forwardOverview (computeOverview (*forward)), reverseOverview (computeOverview (*reverse)), pool (owningPool)
{
    jassert (forward->getNumChannels() == reverse->getNumChannels());
    jassert (forward->getNumSamples() == reverse->getNumSamples());
    if (pool != nullptr)
        pool->addPreparedSample (key, this);
}

PreparedSample::~PreparedSample()
{
    if (pool != nullptr)
        pool->removePreparedSample (key, this);
}

std::unique_ptr<juce::AudioSampleBuffer> PreparedSample::makeReverse (const juce::AudioSampleBuffer& source)
{
    const int numChannels = source.getNumChannels();
    const int numSamples = source.getNumSamples();
    auto mirrored = std::make_unique<juce::AudioSampleBuffer> (numChannels, numSamples);
    for (int channel = 0; channel < numChannels; ++channel)
    {
        const float* in = source.getReadPointer (channel);
        float* out = mirrored->getWritePointer (channel);
        std::reverse_copy (in, in + numSamples, out);
    }
    return mirrored;
}

PreparedSample::Overview PreparedSample::computeOverview (const juce::AudioSampleBuffer& buffer)
{
    Overview overview {};
    const int numSamples = buffer.getNumSamples();
    const int numChannels = juce::jmin (buffer.getNumChannels(), 2);
    if (numSamples <= 0 || numChannels <= 0)
        return overview;

    // The step is fractional so that the 512 points spread over the whole
    // buffer; each covers a rounded step, so neighbours may overlap or leave
    // a sample out by one, which the display cannot show anyway.
    const float step = (float) numSamples / (float) overviewPoints;
    // Halves round away from zero (std::lround), not to even.
    const int length = (int) std::lround (step);
    for (int i = 0; i < overviewPoints; ++i)
    {
        const int start = (int) std::lround ((float) i * step);
        const int count = juce::jmin (length, numSamples - start);
        if (count <= 0)
            continue;

        auto range = buffer.findMinMax (0, start, count);
        if (numChannels > 1)
            range = range.getUnionWith (buffer.findMinMax (1, start, count));
        overview[(size_t) i] = { range.getStart(), range.getEnd() };
    }
    return overview;
}
