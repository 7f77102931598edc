#include "engine/ResamplingModeValueConverter.h"

using qvrControllableAPI::ErrorCode;
using qvrControllableAPI::kOk;

namespace
{
const char* const resamplingModeTexts[] = { "Vari-Speed", "Sliced", "Looped", "Pitch-Speed" };
} // namespace

ErrorCode ResamplingModeValueConverter::intFromString (const juce::String& in, int& out)
{
    out = kLooped;
    for (int mode = kVariSpeed; mode <= kPitchSpeed; ++mode)
        if (in == resamplingModeTexts[mode])
            out = mode;
    return kOk;
}

ErrorCode ResamplingModeValueConverter::stringFromInt (const int& in, juce::String& out)
{
    const bool known = in == kVariSpeed || in == kSliced || in == kPitchSpeed;
    out = resamplingModeTexts[known ? in : (int) kLooped];
    return kOk;
}
