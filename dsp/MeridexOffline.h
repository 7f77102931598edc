#pragma once

#include <vector>

// Offline stretch of a whole buffer through the "Efficient V3" engine, for the
// command line and for tests: any thread, allocates, never throws.
namespace meridex
{
// Stretches numFrames frames of numChannels channels (in[c][i]) by timeFactor
// (output duration / input duration) and shifts the pitch by pitchSemitones,
// with the formants moved by formantFactor on top of the pitch shift (1: they
// follow the pitch, as in the player's formant parameter). out receives
// exactly round (timeFactor * numFrames) frames per channel, starting at the
// first input sample. Returns kNoError, or a library code: kBadArgument (null
// input, numFrames below 0, a factor that is not finite or positive, a pitch
// outside 1/8 .. 8), kBelowMinimumFactor (timeFactor * pitch below 0.1),
// kBadSampleRate, kBadChannelCount, kMemoryError. On failure out is cleared.
[[nodiscard]] int stretchOffline (const float* const* in, int numChannels, int numFrames, double sampleRate, double timeFactor,
                                  double pitchSemitones, double formantFactor, std::vector<std::vector<float>>& out);
} // namespace meridex
