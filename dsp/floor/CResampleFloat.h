#pragma once

#include "dsp/floor/CResampleBase.h"

// Band-limited conversion by a Kaiser-windowed sinc held as a table of
// `oversampling` entries per input sample, read with linear interpolation.
//
// Factor: outputPerInput, output frames per input frame (see CResampleBase).
//
// Timing: output frame k lies at input time k / outputPerInput from the first
// input frame, so the output is aligned with the input and carries no delay; the
// price is a look-ahead. Frames before the first input read as zeros, and an
// output frame is written only once the input reaches its right wing, so the
// first call needs about a wing of input more than the rest (getInputNeeded
// says how much). The converter holds back what it could not use yet.
//
// Gain: the table passes DC at one; it is scaled by the caller's gain times
// 0.99, and with outputPerInput below 1 also by outputPerInput, because the
// filter is then stretched by 1 / outputPerInput to cut below the new Nyquist
// and its sum grows by as much.
namespace meridex
{
class CResampleFloat final : public CResampleBase
{
public:
    static constexpr int kOversampling = 256;
    static constexpr double kKaiserBeta = 9.0;
    static constexpr double kMinOutputPerInput = 1.0 / 16.0;
    static constexpr double kMaxOutputPerInput = 16.0;
    static constexpr float kHeadroom = 0.99f;

    CResampleFloat() noexcept = default;
    ~CResampleFloat() override;

    int process (const float* input, float* output, double outputPerInput, float gain, int channels,
                 int count) noexcept override;
    void reset() noexcept override;
    [[nodiscard]] int init (int quality, int maxBlock, int channels, bool stereoPath) noexcept override;
    int getInputNeeded (int outputFrames, double outputPerInput, float gain) const noexcept override;
    int getMaxOutputFrames (int count, double outputPerInput) const noexcept override;

    int getTableLength() const noexcept { return tableLength; }
    int getZeroCrossings() const noexcept { return zc; }
    int getTaps() const noexcept { return taps; }
    double getCutoff() const noexcept { return cutoff; }
    const float* getTable() const noexcept { return table; }

    // The table step for an outputPerInput: table positions per input sample,
    // in 1/128 of an entry; 32768 from 1 up.
    static int tableStepFor (double outputPerInput) noexcept;

protected:
    void buildTable() noexcept override;

private:
    void release() noexcept;
    int wingFrames (int tableStep) const noexcept;
    int countProducible (double step, int wing) const noexcept;
    void filterPerChannel (float* output, int frames, double step, int tableStep, float scale) const noexcept;
    void filterStereo (float* output, int frames, double step, int tableStep, float scale) const noexcept;
    void moveDown() noexcept;

    int quality = 0;
    int tableLength = 0; // quality * 256 entries: quality input samples per wing
    int zc = 0;          // zero crossings per side for outputPerInput from 1 up
    int taps = 0;        // 2 * zc
    double cutoff = 0.0; // of the table, in units of the input's Nyquist
    float* table = nullptr;
    float* differences = nullptr; // table[i + 1] - table[i], 0 at the end

    int channels = 0;
    int maxBlock = 0;
    bool stereoPath = false;

    // The interleaved input held: frames 0 .. writePosition - 1 of bufferSize.
    // timePosition is where the next output frame lies among them; `delay`
    // frames before it are always kept, enough for the widest left wing.
    float* buffer = nullptr;
    int bufferSize = 0;
    int writePosition = 0;
    int delay = 0;
    double timePosition = 0.0;
};
} // namespace meridex
