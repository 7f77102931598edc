#pragma once

#include "dsp/MeridexErrors.h"

// The public interface of the stretch library: the two engine interfaces, their
// factories, and the table of modes the player offers.
//
// Stretch factor is output duration / input duration, pitch factor output
// frequency / input frequency. Every engine time-scales at r = stretch * pitch
// and then converts the rate by the pitch, which restores the duration and
// shifts the pitch.
//
// Thread safety: an engine is not thread-safe. The caller serialises every
// call into one instance (the stretch source holds its lock around them).
// Creation and destruction allocate and free; no other entry does. No entry
// throws. Every entry returns kNoError or a code of MeridexErrors.h unless
// noted.
namespace meridex
{
// Whether a change of factors keeps the output position (the drift correction
// takes the change of latency up over time) or lets it jump.
enum PositionRule : int
{
    kMovePosition = 0,
    kKeepPosition = 1,
};

// Two channels: encoded into a sum-like and a difference-like pair, so that
// the phase decisions taken on the first fit both sides; or taken as they are.
enum StereoInputMode : int
{
    kStereoEncoded = 0,
    kStereoIndependent = 1,
};

enum class MeridexFamily : int
{
    kPro = 0, // CMeridexProIf
    kV3 = 1,  // CMeridexProV3If
};

struct MeridexMode
{
    const char* text; // shown to the user, in list order
    int modeNumber;   // what the stretch source stores; V3 modes are 10 and up
    MeridexFamily family;
    int libraryMode; // the mode argument of the family's factory
};

constexpr int kModeCount = 5;
constexpr int kV3ModeBase = 10;

inline constexpr MeridexMode kModeTable[kModeCount] = {
    { "Pro V3", 10, MeridexFamily::kV3, 0 },    { "Efficient V3", 11, MeridexFamily::kV3, 1 },
    { "Pro", 0, MeridexFamily::kPro, 0 },       { "Efficient", 2, MeridexFamily::kPro, 2 },
    { "Transient", 1, MeridexFamily::kPro, 1 },
};

// Factory modes of CMeridexProV3If.
enum V3Mode : int
{
    kV3ModePro = 0,
    kV3ModeEfficient = 1,
    kV3ModeMobile = 2, // also any number other than 0, 1 and 3
    kV3ModeSolo = 3,
};

// The answer of a factory for a mode whose engine is not in this build yet.
constexpr int kModeNotBuilt = kBadArgument;

// Index in kModeTable of a mode text, or -1.
int findModeIndex (const char* text) noexcept;

// Whether a factory of this build can create the mode of kModeTable[index].
bool isModeBuilt (int index) noexcept;

// The first generation's engines ("Pro", "Efficient", "Transient").
class CMeridexProIf
{
public:
    virtual ~CMeridexProIf() = default;
    // Consumes numInputFrames from channel pointers and writes one output
    // block; kNotEnoughInput while the block is not complete yet.
    virtual int processData (const float* const* inputs, int numInputFrames, float* const* outputs) noexcept = 0;
    virtual int getFramesNeeded() noexcept = 0;
    virtual int setOutputBlock (int numFrames) noexcept = 0;
    virtual int getMaxFramesNeeded (float stretch, float pitch) noexcept = 0;
    virtual int setStretchPitch (float* stretch, float pitch, PositionRule rule) noexcept = 0;
    virtual int setStretchPitch (float stretch, float* pitch, PositionRule rule) noexcept = 0;
    virtual int reset() noexcept = 0;
    virtual int flushBuffer (float* const* outputs) noexcept = 0;
    virtual int getBufferedOutput() noexcept = 0;
    virtual int setStereoInputMode (StereoInputMode mode) noexcept = 0;
    virtual int setFormantFactor (float factor) noexcept = 0;
    virtual int setEnvelopeOrder (int order) noexcept = 0;
    virtual double getLatency() noexcept = 0;

    // Modes 0 to 5. None is built yet: every mode answers kModeNotBuilt.
    [[nodiscard]] static int createInstance (CMeridexProIf** instance, int maxBlock, int channels, double sampleRate,
                                             int mode) noexcept;
    static void destroyInstance (CMeridexProIf** instance) noexcept;
};

// The V3 engines ("Pro V3", "Efficient V3").
//
// Use: createInstance; setFormantFactor and setStretchPitch; then per block
// n = setOutputBlock (frames) (or getFramesNeeded()), processData with n input
// frames, which writes the block. After reset, output starts at the first
// input sample. At the end of the input, flushBuffer until it returns
// kNotEnoughInput.
class CMeridexProV3If
{
public:
    virtual ~CMeridexProV3If() = default;

    // Consumes numInputFrames (any number the FIFO can hold: getFramesNeeded()
    // is what the next block needs) and writes one output block of the size
    // set by setOutputBlock. kNotEnoughInput (nothing written) while the block
    // is not complete; kBadArgument for a negative count or more than the
    // FIFO holds.
    virtual int processData (const float* const* inputs, int numInputFrames, float* const* outputs) noexcept = 0;
    // Input frames the next processData needs to complete a block; never below 0.
    virtual int getFramesNeeded() noexcept = 0;
    // Sets the output block (1 .. the maximum given at creation) and returns
    // getFramesNeeded(); -1 for a block outside that range.
    virtual int setOutputBlock (int numFrames) noexcept = 0;
    // Worst case of getFramesNeeded() for these factors at the block in use,
    // start included; -1 for factors that would be refused.
    virtual int getMaxFramesNeeded (float stretch, float pitch) noexcept = 0;
    // The stretch takes the rounding of the hops: pitch stays exact.
    virtual int setStretchPitch (float* stretch, float pitch, PositionRule rule) noexcept = 0;
    // The pitch takes the rounding: stretch stays exact.
    virtual int setStretchPitch (float stretch, float* pitch, PositionRule rule) noexcept = 0;
    // Formant factor as the library takes it: the spectral envelope at bin k
    // becomes the one at k * factor, so formants move by 1 / factor before the
    // pitch shift. 1 leaves them to move with the pitch.
    virtual int setFormantFactor (float factor) noexcept = 0;
    virtual float getFormantFactor() noexcept = 0;
    virtual int reset() noexcept = 0;
    // After the end of input: writes up to one block of what remains and
    // returns the frames written (the caller pads the block), or
    // kNotEnoughInput when nothing remains.
    virtual int flushBuffer (float* const* outputs) noexcept = 0;
    // Output frames stored and ready.
    virtual int getBufferedOutput() noexcept = 0;
    // kNeedsStereo unless the instance has 2 channels.
    virtual int setStereoInputMode (StereoInputMode mode) noexcept = 0;
    // Input frames between input and output that remain after the start's
    // compensation (a fraction of a frame).
    virtual double getLatency() noexcept = 0;
    // The stretch factor in use, after rounding.
    virtual float getStretchInUse() noexcept = 0;

    // maxBlock 1 .. 1024, channels 1 .. 48, sampleRate 8000 .. 384000,
    // minStretch the smallest r accepted (the program passes 0.1; at least
    // 1/64). Mode 1 ("Efficient V3") is built; the others answer
    // kModeNotBuilt. *instance is null on any failure.
    [[nodiscard]] static int createInstance (CMeridexProV3If** instance, int maxBlock, int channels, double sampleRate,
                                             int mode, float minStretch) noexcept;
    static void destroyInstance (CMeridexProV3If** instance) noexcept;
};
} // namespace meridex
