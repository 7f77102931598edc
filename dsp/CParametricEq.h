#pragma once

#include "dsp/CParametricEqIf.h"

#include <vector>

namespace qvrParamEQ
{
/*  The equaliser section behind CParametricEqIf: one biquad in transposed
    direct form II with a state pair per channel.

    Made only by CParametricEqIf::createInstance, which catches the one
    allocation (the channel states) so that nothing throws past the library.

    Invariants:
    1. When dirty is false, coefficients were built from the current type,
       parameters and sample rate.
    2. The parameters are always inside their ranges: setParameter stores only
       accepted values, and creation starts from in-range defaults.
    3. coefficients.a1 and a2 are the negated denominator terms, so the
       recursion adds them.
    4. z1States and z2States hold exactly numChannels entries from creation
       to destruction; no call after creation allocates.
*/
class CParametricEq final : public CParametricEqIf
{
public:
    ~CParametricEq() override = default;

    int process (const float* const* inputs, float* const* outputs, int numSamples) noexcept override;
    int setType (int newType) noexcept override;
    int getType() const noexcept override { return type; }
    int setParameter (int index, float value) noexcept override;
    float getParameter (int index) const noexcept override;
    float getResponseDb (float frequencyHz) noexcept override;
    void setNoise (bool on) noexcept override { noiseOn = on; }
    bool getNoise() const noexcept override { return noiseOn; }
    void setBypass (bool on) noexcept override { bypass = on; }
    bool getBypass() const noexcept override { return bypass; }
    void reset() noexcept override;

    // A power of two, so that the running sample index wraps with a mask.
    static constexpr int kNoiseTableSize = 512;

    /*  Filters numSamples frames of channels in place through stages[0],
        stages[1], ... in turn, with exactly the result of calling
        process (channels, channels, numSamples) on each stage in that order:
        the same operations per stage in the same order, only interleaved
        sample by sample so that the stages' recursions overlap instead of each
        stage waiting on its own over the whole block. Null entries are
        skipped, as are bypassed stages (in place, bypass leaves the data
        alone); dirty coefficients are rebuilt and the noise of each stage is
        added as process adds it. Every non-null stage reads the number of
        channels it was made with; when the stages differ in that, they run
        one after another through process. Returns kInvalidArgument for a
        null channel array or pointer or numSamples below 1, having changed
        nothing. Audio thread; neither allocates, locks nor throws.
    */
    static int processCascade (CParametricEq* const* stages, int numStages, float* const* channels,
                               int numSamples) noexcept;

private:
    friend class CParametricEqIf;

    // Throws std::bad_alloc; createInstance catches it.
    CParametricEq (float rate, int channels);

    struct Coefficients
    {
        float b0 = 1.0f, b1 = 0.0f, b2 = 0.0f, a1 = 0.0f, a2 = 0.0f;
    };

    void rebuildCoefficients() noexcept;
    void fillNoiseTable() noexcept;

    float sampleRate;
    int numChannels;
    float params[kNumParameters] = { 1000.0f, 1.0f, 0.0f };
    Coefficients coefficients;
    // The two state floats of each channel, indexed by channel.
    std::vector<float> z1States, z2States;
    float noise[kNoiseTableSize] = {};
    bool dirty = true;
    bool noiseOn = true;
    bool bypass = false;
    int type = kLowPass2;
};
} // namespace qvrParamEQ
