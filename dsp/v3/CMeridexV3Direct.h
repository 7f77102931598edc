#pragma once

#include "dsp/floor/CTBuffer.h"
#include "dsp/v3/CMeridexEffV3Core.h"
#include "dsp/v3/CMeridexV3DirectIf.h"

// Drives a CMeridexEffV3Core frame by frame for a caller that supplies input
// itself (see CMeridexV3DirectIf). Owns the core and one frame of input and
// output. Created and init-ed outside processing; one thread.
//
// Design notes. preRollLeft counts output frames still to drop at the start:
// it is armed by reset, set from the core's latency when the first frame
// begins, and runs down in getOutput. `produced` is the output of the last
// completed frame, or -1 while none is waiting.
namespace meridex
{
class CMeridexV3Direct final : public CMeridexV3DirectIf
{
public:
    CMeridexV3Direct (int numChannels, float sampleRate, float minStretch) noexcept;
    ~CMeridexV3Direct() override = default;

    CMeridexV3Direct (const CMeridexV3Direct&) = delete;
    CMeridexV3Direct& operator= (const CMeridexV3Direct&) = delete;

    // kNoError or kMemoryError.
    [[nodiscard]] int init() noexcept;

    int processFirstFrame() noexcept override;
    int getPreFrames() const noexcept override;
    int setInput (const float* const* inputs, int count) noexcept override;
    int processStep() noexcept override;
    int getOutput (float* const* outputs) noexcept override;
    int getStepCount() const noexcept override { return core.getStepCount(); }
    int getFramesNeeded() const noexcept override { return core.getInputNeeded(); }
    double getLatencyFrames() const noexcept override;
    int getMaxFramesNeeded (float stretch, float pitch) const noexcept override;
    int setStretchPitch (float* stretch, float pitch, PositionRule rule) noexcept override;
    int setStretchPitch (float stretch, float* pitch, PositionRule rule) noexcept override;
    int reset() noexcept override;
    int setStereoInputMode (StereoInputMode mode) noexcept override { return core.setStereoInputMode (mode); }
    int getMaxOutputFrames() const noexcept override { return core.getMaxOutputPerFrame(); }

    // Output frames the start still drops.
    int getPreRollLeft() const noexcept { return preRollArmed ? getPreFrames() : preRollLeft; }
    const CMeridexEffV3Core& getCore() const noexcept { return core; }
    CMeridexEffV3Core& getCore() noexcept { return core; }

private:
    CMeridexEffV3Core core;
    CTBuffer<float> input;
    CTBuffer<float> output;
    int stepIndex = 0;
    bool inputSet = false;
    int produced = -1;
    int preRollLeft = 0;
    bool preRollArmed = true;
    bool initialised = false;
};
} // namespace meridex
