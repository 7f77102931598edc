#pragma once

#include "dsp/Meridex.h"
#include "dsp/floor/CTBuffer.h"
#include "dsp/v3/CFFTSplitV3.h"
#include "dsp/v3/CMeridexV3Direct.h"

// The FIFO level of the "Efficient V3" engine, behind CMeridexProV3If: any
// number of input frames in, one block of the size set by setOutputBlock out.
// Input goes through the formant stage (CFFTSplitV3) into the core's FIFO;
// whole frames of the core run until a block is stored.
//
// Made by CMeridexProV3If::createInstance; the caller serialises all calls
// (see Meridex.h). init allocates for the worst case (the largest block at the
// smallest stretch); nothing after it allocates.
//
// Design notes. Counts are per channel:
//  1. coreFifo holds formant-stage output [coreRead, coreWrite) not yet given
//     to the core; outFifo holds outCount frames ready to leave.
//  2. splitDropLeft: output of the formant stage still to be dropped at the
//     start (its latency), so that the core sees input sample 0 first; the
//     core's own latency is dropped by CMeridexV3Direct. After reset the
//     output therefore starts at the first input sample.
//  3. expectedOutput adds count * stretch for every input frame given, and
//     delivered counts the frames handed out; flushBuffer gives what lies
//     between them, so the output of a whole input is round (n * stretch)
//     frames long.
namespace meridex
{
class CMeridexV3 final : public CMeridexProV3If
{
public:
    CMeridexV3 (int maxBlock, int numChannels, double sampleRate, float minStretch) noexcept;
    ~CMeridexV3() override = default;

    CMeridexV3 (const CMeridexV3&) = delete;
    CMeridexV3& operator= (const CMeridexV3&) = delete;

    // kNoError or kMemoryError.
    [[nodiscard]] int init() noexcept;

    int processData (const float* const* inputs, int numInputFrames, float* const* outputs) noexcept override;
    int getFramesNeeded() noexcept override;
    int setOutputBlock (int numFrames) noexcept override;
    int getMaxFramesNeeded (float stretch, float pitch) noexcept override;
    int setStretchPitch (float* stretch, float pitch, PositionRule rule) noexcept override;
    int setStretchPitch (float stretch, float* pitch, PositionRule rule) noexcept override;
    int setFormantFactor (float factor) noexcept override;
    float getFormantFactor() noexcept override { return split.getFormantFactor(); }
    int reset() noexcept override;
    int flushBuffer (float* const* outputs) noexcept override;
    int getBufferedOutput() noexcept override { return outCount; }
    int setStereoInputMode (StereoInputMode mode) noexcept override { return direct.setStereoInputMode (mode); }
    double getLatency() noexcept override;
    float getStretchInUse() noexcept override { return direct.getCore().getStretch(); }

    const CMeridexV3Direct& getDirect() const noexcept { return direct; }
    // Input frames the FIFOs can take at most in one processData.
    int getInputCapacity() const noexcept { return inputCapacity; }

private:
    void feed (const float* const* inputs, int count) noexcept;
    void runFrames (int wanted) noexcept;
    void compactCore() noexcept;
    void deliver (float* const* outputs, int count) noexcept;
    int coreInputFor (int outputFrames) const noexcept;

    CMeridexV3Direct direct;
    CFFTSplitV3 split;
    CTBuffer<float> coreFifo;
    CTBuffer<float> outFifo;
    CTBuffer<float> zeros;
    int maxBlock = 0;
    int block = 0;
    int channels = 0;
    double sampleRate = 44100.0;
    float minStretch = 0.1f;
    int inputCapacity = 0;
    int coreCapacity = 0;
    int coreRead = 0;
    int coreWrite = 0;
    int outCount = 0;
    int splitDropLeft = 0;
    double expectedOutput = 0.0;
    long long delivered = 0;
    bool initialised = false;
};
} // namespace meridex
