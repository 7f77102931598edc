#pragma once

#include "dsp/floor/CFastResample.h"
#include "dsp/floor/CScopedPtr.h"
#include "dsp/floor/CTBuffer.h"
#include "dsp/v3/CMeridexCoreBase.h"
#include "dsp/v3/CPhaseVocoderV3.h"

// The "Efficient V3" core: the stereo-encoded input is time-scaled by the
// phase vocoder at r = stretch * pitch (with a frame repeat above r = 6), then
// the rate converter (four-point Hermite) reads it at the pitch, which
// restores the duration and shifts the pitch.
//
// Owned by CMeridexV3Direct (or later the Pro core, which feeds `aux`); one
// thread; see CMeridexCoreBase for the order of calls. init allocates; the
// rest never allocates, locks or throws.
//
// Timing: the vocoder's frame starts filled with N/2 zeros (startDelay), so
// the first frames are a pre-roll whose centres lie before input sample 0.
// getLatency() says at which output sample input sample 0 comes out; the
// driver drops that many samples at the start.
//
// aux (the Pro core's upper band, at the output time scale) is read at step 0
// of every frame, repeats included: appliedSynthesis() samples per channel,
// at most N/2, so the caller advances its read position by appliedSynthesis()
// after each frame. It is encoded like the input, since the vocoder joins it
// to its own output before the decoding. Its first sample comes out with the
// centre of the frame that read it.
namespace meridex
{
class CMeridexEffV3Core final : public CMeridexCoreBase
{
public:
    CMeridexEffV3Core (int numChannels, float rate, float minimumStretch) noexcept;
    ~CMeridexEffV3Core() override = default;

    [[nodiscard]] int init() noexcept override;
    void reset() noexcept override;
    [[nodiscard]] int setStretchPitch (float* stretch, float* pitch, AdjustMode adjust,
                                       PositionRule rule) noexcept override;
    int getStepCount() const noexcept override;
    int processStep (const float* const* input, const float* const* aux, float* const* output,
                     int stepIndex) noexcept override;
    int getInputNeeded() const noexcept override;
    double getLatency() const noexcept override;
    int getMaxOutputPerFrame() const noexcept override;
    void setTransientPosition (float samples) noexcept override { vocoder.setTransientPosition (samples); }
    // First bin that aux may give (the bin of the Pro core's crossover).
    void setLowerBin (int bin) noexcept { vocoder.setLowerBin (bin); }
    bool transientInReach() const noexcept override { return vocoder.transientInReach(); }

    const CPhaseVocoderV3& getVocoder() const noexcept { return vocoder; }

    // Latency in output samples for given hops, repeat and pitch; the
    // synthesis hop may be the exact (fractional) one.
    static double latencyFor (int frameSize, int analysisHop, double synthesisHop, int repeat, float pitch) noexcept;

private:
    void applyToVocoder() noexcept;

    CPhaseVocoderV3 vocoder;
    CScopedPtr<CFastResample> converter;
    CTBuffer<float> encoded;     // [channels][N] the frame's input, encoded
    CTBuffer<float> synthesized; // [channels][N] one synthesis hop, then decoded
    CTBuffer<float> auxEncoded;  // [channels][N/2] the frame's hop of aux, encoded
    bool auxInFrame = false;     // the running frame was given aux at step 0
    int upperBin = 0;
    bool peakMode = false;
    bool vocoderPending = false; // factors set during a frame: applied at the next
    bool initialised = false;
};
} // namespace meridex
