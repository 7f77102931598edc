#include "dsp/floor/CFastResample.h"

#include <cmath>
#include <cstring>

namespace meridex
{
CFastResample::CFastResample (int numChannels, int maximumBlock, Interpolation interpolation) noexcept
    : hermite (interpolation == kHermite)
{
    if (numChannels < kMinChannels || numChannels > kMaxChannels || maximumBlock < 1)
    {
        errorCode = kBadArgument;
        return;
    }
    errorCode = rows.init (numChannels, maximumBlock + kHistory);
    if (errorCode != kNoError)
        return;
    channels = numChannels;
    maxBlock = maximumBlock;
}

void CFastResample::setRatio (double newRatio) noexcept
{
    if (std::isfinite (newRatio) && newRatio >= kMinRatio && newRatio <= kMaxRatio)
        ratio = newRatio;
}

void CFastResample::reset() noexcept
{
    rows.clear();
    position = 1;
    accumulator = 0.0;
}

int CFastResample::getMaxOutput (int count) const noexcept
{
    if (count <= 0 || maxBlock == 0)
        return 0;
    const int pieces = (count + maxBlock - 1) / maxBlock;
    return static_cast<int> (std::ceil (count / ratio)) + pieces;
}

float CFastResample::interpolateHermite (float y0, float y1, float y2, float y3, float t) noexcept
{
    const float m1 = (y2 - y0) * 0.5f;
    const float m2 = (y3 - y1) * 0.5f;
    const float t2 = t * t;
    const float t3 = t2 * t;
    return (2.0f * t3 - 3.0f * t2 + 1.0f) * y1 + (t3 - 2.0f * t2 + t) * m1 + (-2.0f * t3 + 3.0f * t2) * y2
           + (t3 - t2) * m2;
}

float CFastResample::interpolateCubic (float y0, float y1, float y2, float y3, float t) noexcept
{
    const float a = y3 - y2 - y0 + y1;
    const float b = y0 - y1 - a;
    const float c = y2 - y0;
    const float t2 = t * t;
    return a * t2 * t + b * t2 + c * t + y1;
}

int CFastResample::process (const float* const* inputs, int count, float* const* outputs) noexcept
{
    if (channels == 0 || inputs == nullptr || outputs == nullptr || count <= 0)
        return 0;

    int written = 0;
    for (int offset = 0; offset < count; offset += maxBlock)
    {
        const int piece = count - offset < maxBlock ? count - offset : maxBlock;
        written += processPiece (inputs, offset, piece, outputs, written);
    }
    return written;
}

// The row holds kHistory samples of the previous piece, then this piece: an
// output may use y1 = row[position] while y3 = row[position + 2] lies in the
// row, that is position <= count. Every channel walks the same positions.
int CFastResample::processPiece (const float* const* inputs, int offset, int count, float* const* outputs,
                                 int written) noexcept
{
    int produced = 0;
    int endPosition = position;
    double endFraction = accumulator;

    for (int ch = 0; ch < channels; ++ch)
    {
        float* row = rows[ch];
        std::memcpy (row + kHistory, inputs[ch] + offset, sizeof (float) * static_cast<size_t> (count));

        float* out = outputs[ch] + written;
        int at = position;
        double fraction = accumulator;
        int n = 0;
        if (ratio == 1.0 && fraction == 0.0 && at >= 1 && at <= count)
        {
            // Unit ratio on a whole position: both interpolators return y1
            // exactly at t = 0, so a copy gives the same samples.
            n = count - at + 1;
            std::memcpy (out, row + at, sizeof (float) * static_cast<size_t> (n));
            at = count + 1;
        }
        while (at <= count)
        {
            const float t = static_cast<float> (fraction);
            const float* y = row + at - 1;
            out[n++] = hermite ? interpolateHermite (y[0], y[1], y[2], y[3], t)
                               : interpolateCubic (y[0], y[1], y[2], y[3], t);
            fraction += ratio;
            const int whole = static_cast<int> (fraction);
            at += whole;
            fraction -= whole;
        }
        produced = n;
        endPosition = at;
        endFraction = fraction;

        std::memmove (row, row + count, sizeof (float) * kHistory);
    }

    // The piece's samples are consumed: positions move down by its length.
    position = endPosition - count;
    accumulator = endFraction;
    return produced;
}
} // namespace meridex
