#pragma once

#include "dsp/floor/CScopedPtr.h"
#include "dsp/floor/CTBuffer.h"
#include "dsp/floor/CqvrfFFT_If.h"
#include "dsp/v3/CSpectralEnvelopeV3.h"

// Formant change of the V3 engines, and the band split the Pro V3 path will
// use: frames of F samples every F/2 under a sine window s(i) = sin (pi i / F)
// sqrt (1 / F) on both sides, so that analysis, transform and synthesis give
// back sin^2, which sums to one at a hop of F/2.
//
// Two outputs: the whole band with the formant change, and optionally the
// upper band (bins up to the split bin zeroed, with a short linear ramp
// ending at it). With a formant factor of 1 the whole band is the windowed
// input overlap-added in the time domain, with no transform.
//
// Timing: output sample t is input sample t - F/2 (getLatency()); output
// appears in whole hops of F/2.
//
// Owned by one engine; init allocates; the rest never allocates. One thread.
namespace meridex
{
class CFFTSplitV3
{
public:
    static constexpr float kDefaultCrossoverHz = 1500.0f;

    CFFTSplitV3() noexcept = default;
    ~CFFTSplitV3() = default;

    CFFTSplitV3 (const CFFTSplitV3&) = delete;
    CFFTSplitV3& operator= (const CFFTSplitV3&) = delete;

    // frameSize F: a power of two, 64 .. 16384. kNoError, kBadArgument or
    // kMemoryError.
    [[nodiscard]] int init (int frameSize, int numChannels, float rate) noexcept;
    void reset() noexcept;

    // The envelope at bin k becomes the envelope at round (k * factor) (0
    // above the top): formants move by 1 / factor. Refused (kBadArgument)
    // unless finite and 0.25 .. 4.
    [[nodiscard]] int setFormantFactor (float factor) noexcept;
    float getFormantFactor() const noexcept { return formantFactor; }
    // 16 .. F/4; bins below F / order (order divided by the factor when it is
    // above 1) are left as they are.
    void setEnvelopeOrder (int order) noexcept;
    int getEnvelopeOrder() const noexcept { return envelopeOrder; }
    void setCrossover (float hz) noexcept;
    int getSplitBin() const noexcept { return splitBin; }

    int getHop() const noexcept { return hop; }
    int getLatency() const noexcept { return hop; }
    // Input samples held towards the next hop.
    int getPending() const noexcept { return pending; }

    // Consumes count samples per channel and writes every completed hop:
    // returns the samples written to whole (and upper, if not null), a
    // multiple of the hop, at most count + getPending() rounded down.
    int process (const float* const* inputs, int count, float* const* whole, float* const* upper) noexcept;

private:
    void processHop (float* const* whole, float* const* upper, int offset) noexcept;
    void warpEnvelope (float* spectrum) noexcept;
    int lowLimitBin() const noexcept;

    CScopedPtr<CqvrfFFT_If> fft;
    CSpectralEnvelopeV3 envelope;
    CTBuffer<float> frames;    // [channels][F] last F input samples
    CTBuffer<float> wholeSums; // [channels][F] overlap-add
    CTBuffer<float> upperSums; // [channels][F]
    CTBuffer<float> rows;      // window, work rows, see the .cpp
    int frameSize = 0;
    int hop = 0;
    int channels = 0;
    float sampleRate = 44100.0f;
    int pending = 0;
    float formantFactor = 1.0f;
    int envelopeOrder = 128;
    int splitBin = 0;
};
} // namespace meridex
