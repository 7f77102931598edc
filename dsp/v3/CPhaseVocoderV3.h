#pragma once

#include "dsp/floor/CScopedPtr.h"
#include "dsp/floor/CTBuffer.h"
#include "dsp/MeridexErrors.h"
#include "dsp/floor/CqvrfFFT_If.h"

#include <cstdint>

// The peak-locked phase vocoder of the V3 cores: analysis frames of N samples
// taken every analysis hop, resynthesised every synthesis hop, with identity
// phase locking around spectral peaks and per-peak attack handling.
//
// Owned by one core (CMeridexEffV3Core), which calls it from its own thread
// only. init allocates everything for frame size N and up to `channels`
// channels; every other call works in that memory and never allocates, locks
// or throws.
//
// Order of use: init, then for every frame the 5 stages of each channel in
// turn through processStep (step = 5 * channel + stage). A repeated frame (the
// same analysis synthesised again) runs stages 3 and 4 of every channel only.
// setHops and the other setters take effect at the next stage 0; the core calls
// them between frames.
//
// Design notes.
// Stages per channel: 0 shift the input in, window in zero-phase order and
// transform (channel 0 also the time-ramp transform); 1 magnitude, and on
// channel 0 phase, phase increment and magnitude history; 2 peak picking
// (channel 0); 3 attack classification and phase propagation (channel 0, first
// visit of a frame), then the rotation of this channel's spectrum; 4 inverse
// transform, overlap-add, one synthesis hop out.
// The sources follow the stages: CPhaseVocoderV3.cpp holds set-up, the step
// machine and the synthesis (stages 0, 1, 3's rotation and 4); ...Windows.cpp
// the hops and window tables, ...Peaks.cpp stage 2, ...Classification.cpp the
// attack classes, ...Masks.cpp the aux path and band masks.
// Invariants:
//  1. Every decision about phases is taken on channel 0; other channels are
//     rotated by the same per-bin factors, so the stereo picture holds.
//  2. olaSum holds the sum of analysis x synthesis window products laid down
//     at exactly the positions the frames were added; dividing by it makes
//     the overlap-add exact whatever the hops were (start, hop changes).
//  3. synthesisPhase holds, for every bin, the phase that bin had in the last
//     synthesised frame of channel 0, so a bin that becomes a peak continues
//     from what was heard.
//  4. Bins at or above upperBin are never written: a pitch rise in the rate
//     converter that follows cannot alias.
//  5. While `bypass` is set (ratio exactly 1 since reset) the synthesis
//     spectrum is the analysis spectrum, and the output equals the input
//     delayed.
//  6. The aux path (on while processStep gets a non-null aux) lives in the
//     output's own coordinates: the hop appended at the aux frame's centre in
//     frame m lands at the same accumulator position as frame m's centre, so
//     it comes out N/2 output samples later, together with that centre. It
//     goes through a sine window of 2h samples twice (before the transform
//     and after the inverse), and sin^2 at hop h sums to one, so aux joins
//     the output after the division by olaSum, at unit gain; dividing it by
//     the analysis x synthesis sum would scale it by the inverse of that
//     sum's level.
//     Complementary masks pick, per bin, aux or the vocoder: from lowerBin
//     up, bins whose peak is steady and not fading out come from aux.
namespace meridex
{
// The state of a spectral peak, stored per bin (the class of the bin's peak).
enum QvrTransientState_t : std::uint8_t
{
    kTransientSteady = 0,         // ordinary phase-locked treatment
    kTransientBeforeAttack = 1,   // the frame already sees an attack: magnitude held
    kTransientAttack = 2,         // phases reset to the input's
    kTransientSteadyChanging = 3, // strong change while compressing time; as 0
};

class CPhaseVocoderV3
{
public:
    static constexpr int kStagesPerChannel = 5;
    static constexpr int kFirstRepeatStage = 3;
    // Frames of magnitude history: enough for (N / hop) / 4 + 1 at hop N/64.
    static constexpr int kHistoryRows = 18;
    // Threshold below which a squared magnitude difference is ignored.
    static constexpr float kDifferenceFloor = 1.0e-14f;

    CPhaseVocoderV3() noexcept = default;
    ~CPhaseVocoderV3() = default;

    CPhaseVocoderV3 (const CPhaseVocoderV3&) = delete;
    CPhaseVocoderV3& operator= (const CPhaseVocoderV3&) = delete;

    // Allocates for frame size N (a power of two, 256 .. 32768) and 1 .. 48
    // channels, then sets the hops. Returns kNoError, kBadArgument or
    // kMemoryError.
    [[nodiscard]] int init (int frameSize, int analysisHop, int synthesisHop, float ratio, int channels) noexcept;

    // Clears frames, accumulators, phases, history and classes; the next
    // setHops counts as the first.
    void reset() noexcept;

    // Hops for the coming frames; ratio is the vocoder's share of the stretch
    // (the exact synthesis hop over analysisHop, which synthesisHop may only
    // approach). Rebuilds windows when the ratio crosses 1.5 (analysis) or the
    // synthesis window rule applies. Resets the frame hop to synthesisHop.
    void setHops (int frameSize, int analysisHop, int synthesisHop, float ratio) noexcept;

    // The whole synthesis hop of the coming frame (1 .. N/2): what its stage
    // 4 writes and shifts, so the next frame lies that far after it. Phases
    // advance by the distance from the last frame over the analysis hop, so
    // the pitch stays exact while hops of two lengths keep the mean ratio
    // exact. Windows and attack classes keep following the ratio of setHops.
    void setFrameHop (int hop) noexcept;

    // Bins from `bin` up are left empty (exclusive limit, at most N/2 + 1).
    void setUpperBin (int bin) noexcept;
    // First bin that may come from the aux input (aux path only); 0 .. N/2 + 1,
    // where N/2 + 1 leaves every bin to the vocoder.
    void setLowerBin (int bin) noexcept { lowerBin = bin < 0 ? 0 : (bin > bins ? bins : bin); }
    // Every bin a peak (used for strong frame repeats).
    void setPeakMode (bool allBins) noexcept { peakMode = allBins; }

    // One step. input: analysisHop new samples per channel (read at stage 0);
    // aux: null (path off) or getFrameHop() samples per channel at the output
    // time scale, read at stage 1 (stage 3 of a repeat, which has no stage 1;
    // a null channel reads as silence), the same pointers for every step of a
    // frame; output: getFrameHop() samples per channel (written at stage 4).
    // A negative step -(c + 1) only shifts channel c's input into its frame
    // (a repeat that still consumes input).
    void processStep (const float* const* input, const float* const* aux, float* const* output, int step) noexcept;

    // External attack marker, in samples from the centre of the next frame.
    void setTransientPosition (float samples) noexcept;
    bool transientInReach() const noexcept;

    int getFrameSize() const noexcept { return frameSize; }
    int getAnalysisHop() const noexcept { return analysisHop; }
    int getSynthesisHop() const noexcept { return synthesisHop; }
    int getFrameHop() const noexcept { return frameHop; }
    float getRatio() const noexcept { return ratio; }
    bool isBypassed() const noexcept { return bypass; }
    float getAttackGain() const noexcept { return attackGain; }
    int getUpperBin() const noexcept { return upperBin; }

    // Inspection of the last analysed frame, for tests and tools.
    int getPeakCount() const noexcept { return peakCount; }
    const int* getPeaks() const noexcept { return peaks; }
    QvrTransientState_t getBinClass (int bin) const noexcept { return classOfPeak[bin]; }
    int getAttackOffset() const noexcept { return attackOffset; }
    const float* getAnalysisWindow() const noexcept { return windows[kAnalysis]; }
    const float* getSynthesisWindow() const noexcept { return windows[kSynthesis]; }
    bool isSynthesisWindowAsymmetric() const noexcept { return synthesisAsymmetric; }
    // Whether the last frame run with aux took this bin from aux.
    bool isBinFromAux (int bin) const noexcept;

private:
    enum WindowRow : int
    {
        kAnalysis = 0,       // h^3 or h^4
        kAnalysisScaled,     // analysis / N: the forward transform's scale folded in
        kAnalysisRampScaled, // analysis * ramp (-1 .. 1) / N
        kSynthesis,
        kProduct,   // analysis * synthesis: what one frame adds to the sum
        kAux,       // sine over h samples each side of the centre, 0 elsewhere
        kAuxScaled, // aux / N
        kWindowRows
    };

    void stageInput (const float* const* input, int channel) noexcept;
    void stagePolar (int channel) noexcept;
    void stagePeaks() noexcept;
    void stageClassify() noexcept;
    void stagePropagate() noexcept;
    void stageApply (int channel) noexcept;
    void stageOutput (float* const* output, bool auxOn, int channel) noexcept;
    void shiftInput (const float* input, int channel) noexcept;
    void stageAuxInput (const float* const* aux, int channel) noexcept;
    void resetMasks() noexcept;
    void routeSteadyBins() noexcept;
    void applyMasks (int channel) noexcept;
    void addAuxFrame (int channel) noexcept;

    void buildAnalysisWindow (bool cubed) noexcept;
    void buildSymmetricSynthesis() noexcept;
    void buildAsymmetricSynthesis() noexcept;
    void buildProduct() noexcept;
    void buildAuxFalling (int hop) noexcept;
    void buildAuxRising() noexcept;
    int findAttackOffset() noexcept;

    const VectorDispatch* ops = nullptr;
    CScopedPtr<CqvrfFFT_If> fft;

    int frameSize = 0; // N, also the FFT size
    int half = 0;      // N / 2
    int bins = 0;      // N / 2 + 1
    int channels = 0;
    int analysisHop = 0;
    int synthesisHop = 0;
    int frameHop = 0;      // this frame's hop: what stage 4 writes and shifts
    int lastHop = 0;       // what the last frame shifted: this frame's distance from it, 0 after reset
    int auxFallingHop = 0; // h of the aux window's half after the centre
    int auxRisingHop = 0;  // h of its half before the centre: the last frame's falling one
    float ratio = 1.0f;
    float previousFrameRatio = 1.0f;
    int upperBin = 0;
    int lowerBin = 0;
    bool peakMode = false;
    bool bypass = true;
    bool hopsSetSinceReset = false;
    bool analysisCubed = false;
    bool synthesisAsymmetric = false;
    bool firstVisit = true;
    float attackGain = 1.0f;
    int attackOffset = 0;
    float transientPosition = 0.0f;
    float transientWrapped = 0.0f;

    CTBuffer<float> frames; // [channels][2N] time frame from frameOffsets[c], newest sample last
    int frameOffsets[kMaxChannels] = {};
    CTBuffer<float> spectra;          // [channels][N] packed analysis spectrum
    CTBuffer<float> accumulators;     // [channels][2N] overlap-add
    CTBuffer<float> magnitudes;       // [channels][bins]
    CTBuffer<float> held;             // [channels][bins] magnitude held before an attack
    CTBuffer<float> history;          // [kHistoryRows][bins] channel 0 magnitudes, row 0 newest
    CTBuffer<float> windows;          // [kWindowRows][N]
    CTBuffer<float> work;             // scratch rows, see the .cpp
    CTBuffer<float> binRows;          // per-bin float rows, see the .cpp
    CTBuffer<int> intRows;            // per-bin int rows, see the .cpp
    CTBuffer<std::uint8_t> classRows; // class, previous class, peak flag, previous peak flag
    CTBuffer<double> peakSums;        // per-peak sums of the classification, and each peak's centroid
    CTBuffer<float> auxFrames;        // [channels][2N] aux samples, the newest hop from N/2
    CTBuffer<float> auxAccumulators;  // [channels][2N] overlap-add of the aux path
    CTBuffer<float> auxSpectra;       // [channels][N] packed aux spectrum
    CTBuffer<float> masks;            // [2][N] packed per-bin factors: aux (M1), vocoder (M2)

    float* olaSum = nullptr; // [2N]
    QvrTransientState_t* classOfPeak = nullptr;
    QvrTransientState_t* classOfPeakPrevious = nullptr;
    int* peaks = nullptr;
    int peakCount = 0;
};
} // namespace meridex
