#pragma once

#include "dsp/v3/CMeridexCoreBase.h"

// The frame loop of a V3 engine for a caller that supplies exactly the input
// asked for, with no FIFOs: per frame setInput (getFramesNeeded() frames),
// processStep() getStepCount() times, getOutput. The output starts at the
// first input sample after reset: the start's pre-roll (getPreFrames()) never
// reaches getOutput.
//
// One thread; no call allocates. Every entry returns kNoError or a library
// error code unless noted.
namespace meridex
{
class CMeridexV3DirectIf
{
public:
    virtual ~CMeridexV3DirectIf() = default;

    // Arms the start: the next frames' output drops the pre-roll. reset does
    // this too.
    virtual int processFirstFrame() noexcept = 0;
    // Output frames the start drops, for the factors in use.
    virtual int getPreFrames() const noexcept = 0;
    // count must equal getFramesNeeded(), else kBadArgument.
    virtual int setInput (const float* const* inputs, int count) noexcept = 0;
    // One step of the frame; kNotEnoughInput when no input was set.
    virtual int processStep() noexcept = 0;
    // Copies the frame's output (after the pre-roll) and returns its frame
    // count (0 during the pre-roll), or kNotEnoughInput if no frame completed.
    virtual int getOutput (float* const* outputs) noexcept = 0;
    virtual int getStepCount() const noexcept = 0;
    virtual int getFramesNeeded() const noexcept = 0;
    // What remains of the latency after the pre-roll, in output frames.
    virtual double getLatencyFrames() const noexcept = 0;
    // Input frames one frame reads at these factors (-1 if refused).
    virtual int getMaxFramesNeeded (float stretch, float pitch) const noexcept = 0;
    virtual int setStretchPitch (float* stretch, float pitch, PositionRule rule) noexcept = 0;
    virtual int setStretchPitch (float stretch, float* pitch, PositionRule rule) noexcept = 0;
    virtual int reset() noexcept = 0;
    virtual int setStereoInputMode (StereoInputMode mode) noexcept = 0;
    // Upper bound of what getOutput writes per frame.
    virtual int getMaxOutputFrames() const noexcept = 0;

    // One frame: setInput, every step, getOutput. Any -1 ends it with -1.
    int process (const float* const* inputs, int count, float* const* outputs) noexcept
    {
        int result = setInput (inputs, count);
        if (result != kNoError)
            return result;
        const int steps = getStepCount();
        for (int i = 0; i < steps; ++i)
            if ((result = processStep()) != kNoError)
                return result;
        return getOutput (outputs);
    }
};
} // namespace meridex
