#pragma once

#include "dsp/floor/CTBuffer.h"

// A light rate converter for the stretch cores: one four-point interpolation
// per output sample, Hermite (Catmull-Rom tangents) or a plain cubic. It reads
// `count` input samples per channel and writes about count / ratio.
//
// ratio is input samples per output sample (the read position's step per
// output sample; 2 halves the length and raises the pitch an octave), as for
// the player's Resampler. The sinc converters (CResampleBase) take the inverse
// and call it outputPerInput.
//
// Timing: the last three input samples of each block are kept as history, so
// that an interpolation can reach across the block boundary; the first output
// reads the second of three zero history samples, so the output lags the
// input by getLatency() = 2 input samples. At a ratio of 1 the output is the
// input delayed by exactly that much.
//
// Owned by one core; created (allocating) outside processing; process and
// reset never allocate. Inputs and outputs are arrays of channel pointers.
namespace meridex
{
class CFastResample
{
public:
    enum Interpolation : int
    {
        kCubic = 0,
        kHermite = 1,
    };

    static constexpr int kHistory = 3;
    static constexpr double kMinRatio = 1.0 / 64.0;
    static constexpr double kMaxRatio = 64.0;

    // channels 1 .. 48 and maxBlock >= 1, else getErrorCode() is kBadArgument
    // (or kMemoryError) and process does nothing.
    CFastResample (int channels, int maxBlock, Interpolation interpolation) noexcept;
    ~CFastResample() = default;

    CFastResample (const CFastResample&) = delete;
    CFastResample& operator= (const CFastResample&) = delete;

    int getErrorCode() const noexcept { return errorCode; }

    // Input samples per output sample. Values outside kMinRatio .. kMaxRatio,
    // or not finite, are ignored.
    void setRatio (double newRatio) noexcept;
    double getRatio() const noexcept { return ratio; }

    // Consumes count samples of each input channel and returns the number of
    // samples written to each output channel, at most getMaxOutput (count).
    // Blocks longer than the maximum are taken in pieces.
    int process (const float* const* inputs, int count, float* const* outputs) noexcept;

    // Clears the history and the read position.
    void reset() noexcept;

    int getMaxOutput (int count) const noexcept;
    static constexpr double getLatency() noexcept { return 2.0; }

    // The interpolators, for points y0 .. y3 one sample apart and t in [0, 1)
    // between y1 and y2.
    static float interpolateHermite (float y0, float y1, float y2, float y3, float t) noexcept;
    static float interpolateCubic (float y0, float y1, float y2, float y3, float t) noexcept;

private:
    int processPiece (const float* const* inputs, int offset, int count, float* const* outputs, int written) noexcept;

    CTBuffer<float> rows; // per channel: kHistory samples, then the block
    int channels = 0;
    int maxBlock = 0;
    bool hermite = false;
    double ratio = 1.0;
    int errorCode = kNoError;

    // Read position of the next output in the row: `position` indexes y1 and
    // `accumulator` is the phase past it, in [0, 1). The phase is carried in
    // double and only the whole steps leave it, so a long run does not drift.
    int position = 1;
    double accumulator = 0.0;
};
} // namespace meridex
