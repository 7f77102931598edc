#pragma once

#include <vector>

// Offline stretch of a whole buffer through one engine of the library, for the
// command line and for tests: any thread, allocates, never throws.
namespace meridex
{
// The mode every build has ("Efficient V3"), and the one used unless asked.
inline constexpr const char* kDefaultOfflineMode = "Efficient V3";

// Stretches numFrames frames of numChannels channels (in[c][i]) by timeFactor
// (output duration / input duration) and shifts the pitch by pitchSemitones,
// with the formants moved by formantFactor on top of the pitch shift (1: they
// follow the pitch, as in the player's formant parameter). out receives
// exactly round (timeFactor * numFrames) frames per channel, starting at the
// first input sample. modeText names a row of kModeTable; the engine is
// created through that row's factory, so a mode this build lacks gets the
// factory's own answer (kModeNotBuilt).
//
// Returns kNoError, or a library code: kBadArgument (null input, numFrames
// below 0, a factor that is not finite or positive, a pitch outside 1/8 .. 8,
// a mode text not in the table or a mode not built), kBelowMinimumFactor
// (timeFactor * pitch below 0.1), kBadSampleRate, kBadChannelCount,
// kMemoryError. On failure out is cleared. With numFrames 0 (in may then be
// null) nothing is processed, so the call only asks the library whether it
// takes these factors, this mode and this format.
[[nodiscard]] int stretchOffline (const float* const* in, int numChannels, int numFrames, double sampleRate,
                                  double timeFactor, double pitchSemitones, double formantFactor,
                                  std::vector<std::vector<float>>& out, const char* modeText = kDefaultOfflineMode);
} // namespace meridex
