#pragma once

// Return codes of the stretch library. Every factory, setter and pass of the
// library returns one of these; 0 is success. Callers compare against the
// names, never against literals.
namespace meridex
{
enum ErrorCode : int
{
    kNoError = 0,
    kNotEnoughInput = -1,       // a pass needs more input before it can produce
    kBelowMinimumFactor = 2,    // V3 cores: factor under minStretch, nothing changed
    kMemoryError = 1000001,     // allocation or initialisation failed
    kStartRunning = 5000001,    // factors changed while the first frames are being produced
    kNeedsStereo = 5000002,     // the operation needs a stereo instance
    kBadArgument = 5000003,     // block larger than 1024, bad factor, or other bad argument
    kBadSampleRate = 5000004,   // sample rate below 8000 or above 384000
    kBadChannelCount = 5000005, // channels outside 1 to 48
};

constexpr int kMaxBlockSize = 1024;
constexpr int kMinSampleRate = 8000;
constexpr int kMaxSampleRate = 384000;
constexpr int kMinChannels = 1;
constexpr int kMaxChannels = 48;

// A short human-readable text for a code; never empty (unknown codes say so).
const char* describeError (int code) noexcept;

// Checks shared by every factory: 0 when the rate and channel count are
// acceptable, else kBadSampleRate or kBadChannelCount (rate checked first).
[[nodiscard]] int checkFormat (int sampleRate, int numChannels) noexcept;
} // namespace meridex
