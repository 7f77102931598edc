#pragma once

#include "dsp/Meridex.h"
#include "dsp/MeridexErrors.h"

#include <cstdint>

// What every V3 core shares: the factors and their inverses, the frame size
// chosen by the sample rate, the hops, the step machine's counters, the frame
// repeat, the positions of the drift correction, and the stereo encoding.
//
// A core is owned by one driver (CMeridexV3Direct, or the Pro core) and called
// from one thread. init allocates for the worst case; nothing else allocates.
//
// Order of use: construct, init, setStretchPitch, then frames: for each frame
// getInputNeeded() samples are handed to step 0, and processStep runs for
// step = 0 .. getStepCount() - 1; the last step returns the number of output
// samples. Factors may be set between frames.
//
// Design notes. Positions are doubles in output samples:
//  1. resampledPosition grows by the frame's hop / pitch each frame: where the
//     output should be; outputPosition by the frame's hop / stretchCorrected:
//     what the converter was asked for. targetPosition is an offset the
//     output is to move by (a change of latency under kKeepPosition).
//  2. drift = targetPosition + outputPosition - resampledPosition. When its
//     whole part is not 0 the converter runs slightly fast or slow, by at
//     most drift / max (1.25 |drift|, N/2), until it is; positions therefore
//     never wander by more than N/2.
//  3. repeat d >= 1; when d > 1, repeatIndex counts the syntheses of the
//     current analysis frame, and only the first (repeatIndex 0) reads input
//     (unless the repeat is locked, when every frame does).
//  4. The exact synthesis hop ha * r / d is rarely whole. Under kAdjustStretch
//     each frame takes the whole part of synthesisFraction + exact hop and
//     keeps the rest in synthesisFraction (0 <= it < 1, 0.5 after reset), so
//     the hops done after k frames sum to round (k * exact hop) and the
//     timing never drifts from the stretch asked for. Under kAdjustPitch
//     every hop is the same whole number and the pitch takes the rounding.
namespace meridex
{
class CMeridexCoreBase
{
public:
    // Which factor takes the rounding of the hops.
    enum AdjustMode : int
    {
        kAdjustStretch = 0,
        kAdjustPitch = 1,
    };

    enum RepeatLock : int
    {
        kRepeatFree = 0,
        kRepeatLocked = 1,
    };

    enum RepeatRequest : int
    {
        kRepeatAsNeeded = 0,
        kRepeatRequested = 1,
    };

    // init's answer when a buffer cannot be allocated.
    static constexpr int kInitFailed = 1;
    static constexpr float kRepeatLimit = 6.0f;
    // Above this the vocoder ratio r / d must not exceed 4.
    static constexpr float kMaxRepeatedRatio = 4.0f;
    static constexpr float kMinPitch = 0.125f;
    static constexpr float kMaxPitch = 8.0f;
    static constexpr float kMaxStretchTotal = 64.0f;
    // The converter's speed change by the drift correction stays within these.
    static constexpr double kMinCorrection = 0.5;
    static constexpr double kMaxCorrection = 2.0;

    CMeridexCoreBase (int numChannels, float rate, float minimumStretch) noexcept;
    virtual ~CMeridexCoreBase() = default;

    CMeridexCoreBase (const CMeridexCoreBase&) = delete;
    CMeridexCoreBase& operator= (const CMeridexCoreBase&) = delete;

    // Frame size N for a sample rate: 2048 below 32000 Hz, doubling at
    // 32000, 64000, 128000 and 256000 Hz (4096 at 44100 and 48000 Hz).
    static int frameSizeForRate (double sampleRate) noexcept;

    // Returns kNoError or kInitFailed.
    [[nodiscard]] virtual int init() noexcept = 0;
    virtual void reset() noexcept = 0;

    // r = stretch * pitch. Returns kBelowMinimumFactor (nothing changed) for r
    // below minStretch, kBadArgument for factors that are not finite, a pitch
    // outside kMinPitch .. kMaxPitch or r above kMaxStretchTotal. With
    // kAdjustStretch the synthesis hop alternates between two whole numbers
    // whose mean is exact, and *stretch is left as asked (unless the hop
    // reaches its limit of N/2). With kAdjustPitch the hop is one whole
    // number and the ratio's rounding goes into *pitch.
    [[nodiscard]] virtual int setStretchPitch (float* stretch, float* pitch, AdjustMode adjust,
                                               PositionRule rule) noexcept = 0;

    // Refused with kBadArgument while a frame repeat is in use.
    [[nodiscard]] virtual int setRepeatMode (RepeatLock lock, RepeatRequest request) noexcept;

    // Steps of the coming (or running) frame: 5 per channel, 2 for a repeat.
    virtual int getStepCount() const noexcept = 0;
    int getStepsLeft() const noexcept { return stepsLeft; }

    // One step; input holds getInputNeeded() samples per channel (read at
    // step 0), aux is null or appliedSynthesis() samples per channel (this
    // frame's own hop, read at step 0; the caller moves on by as many after
    // the frame), output must
    // hold getMaxOutputPerFrame() samples per channel. Returns the samples
    // written on the frame's last step, else 0.
    virtual int processStep (const float* const* input, const float* const* aux, float* const* output,
                             int stepIndex) noexcept = 0;

    int analysisHop() const noexcept { return analysisHopSize; }
    // The smaller of the frames' synthesis hops (the whole part of the exact one).
    int synthesisHop() const noexcept { return synthesisHopSize; }
    double synthesisHopExact() const noexcept { return exactSynthesisHop; }
    // The hop of the frame running, or of the last one.
    int appliedSynthesis() const noexcept { return appliedSynthesisHop; }
    virtual int getInputNeeded() const noexcept = 0;
    // Output samples, counted from the first frame, at which input sample 0
    // comes out, for the factors in use.
    virtual double getLatency() const noexcept = 0;
    virtual int getMaxOutputPerFrame() const noexcept = 0;

    // Stereo and multichannel encoding in place, count samples per channel.
    void encode (float* const* buffers, int count) const noexcept;
    void decode (float* const* buffers, int count) const noexcept;
    int setStereoInputMode (StereoInputMode mode) noexcept;

    virtual void setTransientPosition (float samples) noexcept = 0;
    virtual bool transientInReach() const noexcept = 0;

    float getStretchTotal() const noexcept { return stretchTotal; }
    float getPitch() const noexcept { return pitch; }
    float getStretch() const noexcept { return stretch; }
    float getStretchCorrected() const noexcept { return stretchCorrected; }
    int getRepeat() const noexcept { return repeat; }
    int getRepeatIndex() const noexcept { return repeatIndex; }
    bool isRepeatLocked() const noexcept { return repeatLocked; }
    int getFrameSize() const noexcept { return frameSize; }
    int getChannels() const noexcept { return channels; }
    float getSampleRate() const noexcept { return sampleRate; }
    float getMinStretch() const noexcept { return minStretch; }
    double getDrift() const noexcept { return targetPosition + outputPosition - resampledPosition; }

    // The frame repeat d for a total ratio r: 1 up to the repeat limit, else
    // the smallest d >= 2 with r / d <= 4 and r / d not a whole number.
    static int repeatForRatio (float r) noexcept;
    // Analysis hop for the vocoder's ratio (after the repeat) at frame size N.
    static int analysisHopFor (int frameSize, float vocoderRatio, int repeat) noexcept;

protected:
    // Resets positions, counters and flags to the state after init.
    void resetBase() noexcept;
    // Sets stretchCorrected from the drift and moves the positions by one frame.
    void correctDrift() noexcept;
    // The coming frame's whole synthesis hop; carries the rest to the next.
    int takeSynthesisHop() noexcept;

    float stretchTotal = 1.0f; // r after the repeat and rounding: what is done
    float stretch = 1.0f;
    float pitch = 1.0f;
    float stretchCorrected = 1.0f; // the pitch handed to the converter
    float inversePitch = 1.0f;
    float inverseStretch = 1.0f;

    float minStretch = 0.1f;
    float sampleRate = 44100.0f;
    int channels = 0;
    float repeatLimit = kRepeatLimit;

    int analysisHopSize = 0;
    int synthesisHopSize = 0;
    double exactSynthesisHop = 0.0;
    double synthesisFraction = 0.5;
    int appliedAnalysisHop = 0;
    int appliedSynthesisHop = 0;
    int frameSize = 0;

    int step = 0;
    int stepsLeft = 0;
    int firstStep = 0;

    int startDelay = 0;
    double inputPosition = 0.0;
    double outputPosition = 0.0;
    double targetPosition = 0.0;
    double resampledPosition = 0.0;

    int repeat = 1;
    int repeatIndex = 0;
    bool repeatLocked = false;
    bool repeatRequested = false;

    bool firstFrame = true;
    bool started = false;
    bool bypassEncoding = false;
};
} // namespace meridex
