#pragma once

#include "dsp/MeridexErrors.h"

namespace qvrParamEQ
{
// Return code of every refused call of the equaliser: a parameter outside its
// range, an unknown type or parameter index, a null buffer, an empty block, or
// a bad format at creation. The refused call changes nothing. Success is
// meridex::kNoError; a failed allocation at creation is meridex::kMemoryError.
constexpr int kInvalidArgument = 2;

// Indices of setParameter / getParameter.
enum ParameterIndex : int
{
    kFrequency = 0, // Hz, 10 to 20000, 1000 at creation
    kQ = 1,         // 0.1 to 24, 1 at creation
    kGain = 2,      // dB, -24 to 24, 0 at creation; used by the shelves and the peak
    kNumParameters = 3
};

constexpr float kMinFrequencyHz = 10.0f;
constexpr float kMaxFrequencyHz = 20000.0f;
constexpr float kMinQ = 0.1f;
constexpr float kMaxQ = 24.0f;
constexpr float kMinGainDb = -24.0f;
constexpr float kMaxGainDb = 24.0f;

// Filter types by the number given to setType. The suffix is the order.
enum FilterType : int
{
    kLowPass1 = 0,
    kLowPass2 = 1,
    kHighPass1 = 2,
    kHighPass2 = 3,
    kBandPass2 = 4, // constant 0 dB peak gain, bandwidth set by q
    kLowShelf1 = 5,
    kLowShelf2 = 6,
    kHighShelf1 = 7,
    kHighShelf2 = 8,
    kPeak2 = 9,
    kNotch2 = 10,
    kAllPass1 = 11,
    kAllPass2 = 12,
    kNumFilterTypes = 13
};

/*  One second-order (or first-order) filter section for any number of
    channels, processed frame-wise on non-interleaved buffers. Owners that need
    steeper slopes cascade several instances (ParamEqSource runs six in place).

    Ownership: createInstance hands out an instance that the caller owns and
    deletes through this interface.

    Threads: the instance has no locking of its own. Every call, including the
    setters and getResponseDb, must come from one thread at a time; in the
    player that is the audio thread of the owning source. A curve drawn on
    another thread needs its own instance with the same settings.

    Real-time: only createInstance allocates. process, the setters and
    getResponseDb neither allocate, lock nor throw.

    Changing the type or a parameter only marks the coefficients stale; they
    are rebuilt at the next process or getResponseDb, so a burst of changes
    costs one rebuild. The filter state is kept across such changes: the owner
    smooths frequency and q in small steps and calls reset where it hides a
    change behind a crossfade.
*/
class CParametricEqIf
{
public:
    virtual ~CParametricEqIf() = default;

    /** Filters numSamples frames from inputs[ch] into outputs[ch] for every
        channel. In-place use (inputs[ch] == outputs[ch]) is allowed; other
        buffers must not overlap. Returns kInvalidArgument for null pointers or
        numSamples below 1. Audio thread.
    */
    [[nodiscard]] virtual int process (const float* const* inputs, float* const* outputs, int numSamples) noexcept = 0;

    /** Selects a FilterType. Unknown numbers return kInvalidArgument and keep
        the current type.
    */
    [[nodiscard]] virtual int setType (int type) noexcept = 0;
    virtual int getType() const noexcept = 0;

    /** Sets one of ParameterIndex. A value outside the parameter's range (NaN
        included) or an unknown index returns kInvalidArgument and keeps the
        old value.
    */
    [[nodiscard]] virtual int setParameter (int index, float value) noexcept = 0;
    /** The stored value, or 0 for an unknown index. */
    virtual float getParameter (int index) const noexcept = 0;

    /** Power response in dB of the current settings at frequencyHz, as the
        filter computes it. A zero of the response (a notch at its centre)
        gives a large negative finite number.
    */
    virtual float getResponseDb (float frequencyHz) noexcept = 0;

    /** Adds a table of noise around -1e-20 to the input, which keeps the
        recursion out of denormal numbers on silence. On at creation.
    */
    virtual void setNoise (bool on) noexcept = 0;
    virtual bool getNoise() const noexcept = 0;

    /** A bypassed filter copies input to output (nothing when they are the
        same buffer) and leaves its state untouched. Off at creation.
    */
    virtual void setBypass (bool on) noexcept = 0;
    virtual bool getBypass() const noexcept = 0;

    /** Clears the state of every channel. */
    virtual void reset() noexcept = 0;

    /** Creates a filter for numChannels channels at sampleRate. On success
        *instance receives the new filter; on failure it is set to null and the
        code is kInvalidArgument (numChannels below 1, a sample rate that is
        not a positive finite number, or instance null) or
        meridex::kMemoryError.
    */
    [[nodiscard]] static int createInstance (CParametricEqIf** instance, float sampleRate, int numChannels) noexcept;

protected:
    CParametricEqIf() = default;
    CParametricEqIf (const CParametricEqIf&) = delete;
    CParametricEqIf& operator= (const CParametricEqIf&) = delete;
};
} // namespace qvrParamEQ
