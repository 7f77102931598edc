#include "dsp/MeridexErrors.h"

namespace meridex
{
const char* describeError (int code) noexcept
{
    switch (code)
    {
        case kNoError: return "success";
        case kNotEnoughInput: return "not enough input";
        case kBelowMinimumFactor: return "factor below the minimum";
        case kMemoryError: return "memory or initialisation failed";
        case kStartRunning: return "factors changed while the first frames are being produced";
        case kNeedsStereo: return "operation needs a stereo instance";
        case kBadArgument: return "bad argument";
        case kBadSampleRate: return "sample rate outside 8000 to 384000";
        case kBadChannelCount: return "channel count outside 1 to 48";
        default: return "unknown error";
    }
}

int checkFormat (int sampleRate, int numChannels) noexcept
{
    if (sampleRate < kMinSampleRate || sampleRate > kMaxSampleRate)
        return kBadSampleRate;
    if (numChannels < kMinChannels || numChannels > kMaxChannels)
        return kBadChannelCount;
    return kNoError;
}
} // namespace meridex
