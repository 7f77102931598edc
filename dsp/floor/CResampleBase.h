#pragma once

#include "dsp/MeridexErrors.h"

// The interface of the stretch library's band-limited rate converters, all
// interleaved, and their factory. A converter belongs to one engine; init
// allocates for the worst case, and process, reset and getInputNeeded never
// allocate.
//
// The factor these converters take is outputPerInput: output frames per input
// frame (output rate / input rate). Above 1 the output has more frames (the
// pitch of a played-back result goes down), below 1 fewer. It is the inverse
// of what "ratio" means next door (CFastResample, Resampler: input samples per
// output sample), hence its own name.
namespace meridex
{
class CResampleBase
{
public:
    enum Type : int
    {
        kFloat = 0,
        kInteger = 1, // the fixed-point twin: not built, refused
    };

    static constexpr int kMinQuality = 1;
    static constexpr int kMaxQuality = 120;
    // The quality every engine uses.
    static constexpr int kEngineQuality = 3;

    // Makes a converter for blocks of up to maxBlock input frames (longer
    // blocks are taken in pieces). stereoPath asks for the two-channel routine
    // when channels is 2; it gives the same result as the per-channel one.
    // Returns kNoError; kBadArgument for a null instance, a type other than
    // kFloat, a quality outside 1 .. 120 or maxBlock below 1;
    // kBadChannelCount; or kMemoryError. On failure *instance is null.
    [[nodiscard]] static int createInstance (CResampleBase** instance, int type, int quality, int maxBlock,
                                             int channels, bool stereoPath) noexcept;

    // Converts count interleaved input frames of `channels` (which must match
    // creation) at outputPerInput (1/16 .. 16) and gain; returns the frames
    // written to output, which must hold getMaxOutputFrames (count,
    // outputPerInput) frames. Out of range arguments write nothing and return 0.
    virtual int process (const float* input, float* output, double outputPerInput, float gain, int channels,
                         int count) noexcept = 0;

    // Back to the state after init: zero history, nothing held.
    virtual void reset() noexcept = 0;

    [[nodiscard]] virtual int init (int quality, int maxBlock, int channels, bool stereoPath) noexcept = 0;

    // Input frames that the next process at this outputPerInput needs to write
    // at least outputFrames frames (more may come when outputPerInput is above
    // 1); never below 0.
    virtual int getInputNeeded (int outputFrames, double outputPerInput, float gain) const noexcept = 0;

    virtual ~CResampleBase() = default;

protected:
    // Fills the filter table for the quality given to init.
    virtual void buildTable() noexcept = 0;

public:
    // An upper bound of what process (count frames, outputPerInput) writes.
    // Declared after buildTable to keep the slot order of the interface.
    virtual int getMaxOutputFrames (int count, double outputPerInput) const noexcept = 0;

protected:
    CResampleBase() = default;
    CResampleBase (const CResampleBase&) = delete;
    CResampleBase& operator= (const CResampleBase&) = delete;
};
} // namespace meridex
