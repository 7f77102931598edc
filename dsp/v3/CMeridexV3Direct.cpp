#include "dsp/v3/CMeridexV3Direct.h"

#include <cmath>
#include <cstring>

namespace meridex
{
CMeridexV3Direct::CMeridexV3Direct (int numChannels, float sampleRate, float minStretch) noexcept
    : core (numChannels, sampleRate, minStretch)
{
}

int CMeridexV3Direct::init() noexcept
{
    initialised = false;
    if (core.init() != kNoError)
        return kMemoryError;
    const int channels = core.getChannels();
    if (input.init (channels, core.getFrameSize()) != kNoError
        || output.init (channels, core.getMaxOutputPerFrame()) != kNoError)
        return kMemoryError;
    initialised = true;
    return reset();
}

int CMeridexV3Direct::reset() noexcept
{
    if (! initialised)
        return kMemoryError;
    core.reset();
    stepIndex = 0;
    inputSet = false;
    produced = -1;
    return processFirstFrame();
}

int CMeridexV3Direct::processFirstFrame() noexcept
{
    preRollArmed = true;
    preRollLeft = 0;
    return kNoError;
}

int CMeridexV3Direct::getPreFrames() const noexcept
{
    return static_cast<int> (std::lround (core.getLatency()));
}

double CMeridexV3Direct::getLatencyFrames() const noexcept
{
    return core.getLatency() - getPreFrames();
}

int CMeridexV3Direct::getMaxFramesNeeded (float stretch, float pitch) const noexcept
{
    const float r = stretch * pitch;
    if (! std::isfinite (r) || r < core.getMinStretch() || r > CMeridexCoreBase::kMaxStretchTotal)
        return -1;
    const int d = CMeridexCoreBase::repeatForRatio (r);
    return CMeridexCoreBase::analysisHopFor (core.getFrameSize(), r / static_cast<float> (d), d);
}

int CMeridexV3Direct::setStretchPitch (float* stretch, float pitch, PositionRule rule) noexcept
{
    if (stretch == nullptr)
        return kBadArgument;
    return core.setStretchPitch (stretch, &pitch, CMeridexCoreBase::kAdjustStretch, rule);
}

int CMeridexV3Direct::setStretchPitch (float stretch, float* pitch, PositionRule rule) noexcept
{
    if (pitch == nullptr)
        return kBadArgument;
    return core.setStretchPitch (&stretch, pitch, CMeridexCoreBase::kAdjustPitch, rule);
}

int CMeridexV3Direct::setInput (const float* const* inputs, int count) noexcept
{
    if (! initialised || count != core.getInputNeeded() || (count > 0 && inputs == nullptr))
        return kBadArgument;
    for (int c = 0; c < core.getChannels(); ++c)
        if (count > 0)
            std::memcpy (input[c], inputs[c], sizeof (float) * static_cast<size_t> (count));
    inputSet = true;
    stepIndex = 0;
    produced = -1;
    return kNoError;
}

int CMeridexV3Direct::processStep() noexcept
{
    if (! inputSet)
        return kNotEnoughInput;
    if (stepIndex == 0 && preRollArmed)
    {
        preRollLeft = getPreFrames();
        preRollArmed = false;
    }
    const int steps = core.getStepCount();
    const int written = core.processStep (input.getRowPointers(), nullptr, output.getRowPointers(), stepIndex);
    if (++stepIndex >= steps)
    {
        produced = written;
        inputSet = false;
        stepIndex = 0;
    }
    return kNoError;
}

int CMeridexV3Direct::getOutput (float* const* outputs) noexcept
{
    if (produced < 0)
        return kNotEnoughInput;
    int skip = preRollLeft < produced ? preRollLeft : produced;
    preRollLeft -= skip;
    const int count = produced - skip;
    if (outputs != nullptr)
        for (int c = 0; c < core.getChannels(); ++c)
            if (count > 0)
                std::memcpy (outputs[c], output[c] + skip, sizeof (float) * static_cast<size_t> (count));
    produced = -1;
    return count;
}
} // namespace meridex
