#include "dsp/v3/CFFTSplitV3.h"

#include "dsp/floor/FftWindows.h"

#include <cmath>
#include <cstring>

namespace meridex
{
namespace
{
enum Row : int
{
    kWindow = 0, // s (i) = sin (pi i / F) sqrt (1 / F)
    kTime,
    kSpectrum,
    kUpper,
    kMagnitude,
    kEnvelope,
    kRows
};
} // namespace

int CFFTSplitV3::init (int newFrameSize, int numChannels, float rate) noexcept
{
    if (newFrameSize < 64 || newFrameSize > 16384 || (newFrameSize & (newFrameSize - 1)) != 0
        || numChannels < kMinChannels || numChannels > kMaxChannels || ! (rate > 0.0f))
        return kBadArgument;
    frameSize = newFrameSize;
    hop = frameSize / 2;
    channels = numChannels;
    sampleRate = rate;

    int result = createFFT (fft.receive(), frameSize, 1, kWindowNone);
    if (result != kNoError)
        return result;
    const int codes[] = { envelope.init (frameSize), frames.init (channels, frameSize),
                          wholeSums.init (channels, frameSize), upperSums.init (channels, frameSize),
                          rows.init (kRows, frameSize) };
    for (int code : codes)
        if (code != kNoError)
            return code;

    float* window = rows[kWindow];
    const double norm = std::sqrt (1.0 / frameSize);
    for (int i = 0; i < frameSize; ++i)
        window[i] = static_cast<float> (std::sin (3.14159265358979323846 * i / frameSize) * norm);

    formantFactor = 1.0f;
    envelopeOrder = frameSize / 4 < 128 ? frameSize / 4 : 128;
    setCrossover (kDefaultCrossoverHz);
    reset();
    return kNoError;
}

void CFFTSplitV3::reset() noexcept
{
    frames.clear();
    wholeSums.clear();
    upperSums.clear();
    pending = 0;
}

int CFFTSplitV3::setFormantFactor (float factor) noexcept
{
    if (! std::isfinite (factor) || factor < 0.25f || factor > 4.0f)
        return kBadArgument;
    formantFactor = factor;
    return kNoError;
}

void CFFTSplitV3::setEnvelopeOrder (int order) noexcept
{
    const int highest = frameSize / 4;
    envelopeOrder = order < 16 ? 16 : (order > highest ? highest : order);
}

void CFFTSplitV3::setCrossover (float hz) noexcept
{
    const int bin = static_cast<int> (std::floor (hz * frameSize / sampleRate));
    splitBin = bin < 0 ? 0 : (bin > hop ? hop : bin);
}

int CFFTSplitV3::lowLimitBin() const noexcept
{
    int order = envelopeOrder;
    if (formantFactor > 1.0f)
        order = static_cast<int> (static_cast<float> (order) / formantFactor);
    return order > 0 ? frameSize / order : hop;
}

int CFFTSplitV3::process (const float* const* inputs, int count, float* const* whole, float* const* upper) noexcept
{
    if (frameSize == 0 || count <= 0 || inputs == nullptr)
        return 0;
    int written = 0;
    int consumed = 0;
    while (consumed < count)
    {
        const int take = count - consumed < hop - pending ? count - consumed : hop - pending;
        for (int c = 0; c < channels; ++c)
            std::memcpy (frames[c] + hop + pending, inputs[c] + consumed, sizeof (float) * static_cast<size_t> (take));
        pending += take;
        consumed += take;
        if (pending == hop)
        {
            processHop (whole, upper, written);
            written += hop;
            pending = 0;
        }
    }
    return written;
}

// The frame is frames[c][0 .. F): its second half fills as input arrives.
void CFFTSplitV3::processHop (float* const* whole, float* const* upper, int offset) noexcept
{
    const VectorDispatch& ops = dispatch();
    const float* window = rows[kWindow];
    float* time = rows[kTime];
    float* spectrum = rows[kSpectrum];
    const bool transform = formantFactor != 1.0f || upper != nullptr;

    for (int c = 0; c < channels; ++c)
    {
        float* frame = frames[c];
        float* sums = wholeSums[c];
        std::memcpy (time, frame, sizeof (float) * static_cast<size_t> (frameSize));
        ops.multiply (time, window, frameSize);

        if (! transform)
        {
            // F s^2 = sin^2: the transform pair would give back time * s * F.
            for (int i = 0; i < frameSize; ++i)
                sums[i] += time[i] * window[i] * static_cast<float> (frameSize);
        }
        else
        {
            fft->forward (spectrum, time);
            if (formantFactor != 1.0f)
                warpEnvelope (spectrum);
            if (upper != nullptr)
            {
                float* high = rows[kUpper];
                std::memcpy (high, spectrum, sizeof (float) * static_cast<size_t> (frameSize));
                const int ramp = frameSize / 64 < 16 ? frameSize / 64 : 16;
                high[0] = 0.0f;
                for (int k = 1; k < hop; ++k)
                {
                    float gain = 1.0f;
                    if (k <= splitBin - ramp)
                        gain = 0.0f;
                    else if (k < splitBin)
                        gain = static_cast<float> (k - (splitBin - ramp)) / static_cast<float> (ramp);
                    high[2 * k] *= gain;
                    high[2 * k + 1] *= gain;
                }
                fft->inverse (high, high);
                float* upperSum = upperSums[c];
                for (int i = 0; i < frameSize; ++i)
                    upperSum[i] += high[i] * window[i];
                std::memcpy (upper[c] + offset, upperSum, sizeof (float) * static_cast<size_t> (hop));
                std::memmove (upperSum, upperSum + hop, sizeof (float) * static_cast<size_t> (hop));
                ops.zero (upperSum + hop, hop);
            }
            fft->inverse (time, spectrum);
            for (int i = 0; i < frameSize; ++i)
                sums[i] += time[i] * window[i];
        }

        std::memcpy (whole[c] + offset, sums, sizeof (float) * static_cast<size_t> (hop));
        std::memmove (sums, sums + hop, sizeof (float) * static_cast<size_t> (hop));
        ops.zero (sums + hop, hop);
        std::memmove (frame, frame + hop, sizeof (float) * static_cast<size_t> (hop));
    }
}

// Divides the spectrum by its envelope and multiplies by the envelope read at
// k * factor, above the lowest bins, where the envelope says too little.
void CFFTSplitV3::warpEnvelope (float* spectrum) noexcept
{
    const VectorDispatch& ops = dispatch();
    float* magnitude = rows[kMagnitude];
    float* shape = rows[kEnvelope];
    ops.magnitude (magnitude, spectrum, frameSize);
    envelope.compute (magnitude, shape);

    const int first = lowLimitBin() > 1 ? lowLimitBin() : 1;
    for (int k = first; k < hop; ++k)
    {
        const int source = static_cast<int> (std::lround (k * static_cast<double> (formantFactor)));
        const float target = source <= hop ? shape[source] : 0.0f;
        const float gain = target / shape[k];
        spectrum[2 * k] *= gain;
        spectrum[2 * k + 1] *= gain;
    }
    if (first <= hop)
    {
        const int source = static_cast<int> (std::lround (hop * static_cast<double> (formantFactor)));
        spectrum[1] *= source <= hop ? shape[source] / shape[hop] : 0.0f;
    }
}
} // namespace meridex
