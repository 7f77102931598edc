#include "dsp/Meridex.h"

#include "dsp/floor/VectorDispatch.h"
#include "dsp/v3/CMeridexV3.h"

#include <cmath>
#include <cstring>
#include <new>

namespace meridex
{
namespace
{
// The smallest minStretch a factory accepts: below it the synthesis hop at
// the shortest analysis hop would vanish, and the FIFOs would have to hold
// more than 500 input frames per output frame.
constexpr float kLowestMinStretch = 1.0f / 64.0f;

int checkCreation (int maxBlock, int channels, double sampleRate) noexcept
{
    selectTier (-1);
    if (! (sampleRate >= kMinSampleRate && sampleRate <= kMaxSampleRate))
        return kBadSampleRate;
    if (channels < kMinChannels || channels > kMaxChannels)
        return kBadChannelCount;
    if (maxBlock < 1 || maxBlock > kMaxBlockSize)
        return kBadArgument;
    return kNoError;
}
} // namespace

int findModeIndex (const char* text) noexcept
{
    if (text == nullptr)
        return -1;
    for (int i = 0; i < kModeCount; ++i)
        if (std::strcmp (kModeTable[i].text, text) == 0)
            return i;
    return -1;
}

bool isModeBuilt (int index) noexcept
{
    return index >= 0 && index < kModeCount && kModeTable[index].family == MeridexFamily::kV3
           && kModeTable[index].libraryMode == kV3ModeEfficient;
}

int CMeridexProIf::createInstance (CMeridexProIf** instance, int maxBlock, int channels, double sampleRate,
                                   int mode) noexcept
{
    if (instance == nullptr)
        return kBadArgument;
    *instance = nullptr;
    const int check = checkCreation (maxBlock, channels, sampleRate);
    if (check != kNoError)
        return check;
    if (mode < 0 || mode > 5)
        return kBadArgument;
    return kModeNotBuilt;
}

void CMeridexProIf::destroyInstance (CMeridexProIf** instance) noexcept
{
    if (instance == nullptr)
        return;
    delete *instance;
    *instance = nullptr;
}

int CMeridexProV3If::createInstance (CMeridexProV3If** instance, int maxBlock, int channels, double sampleRate,
                                     int mode, float minStretch) noexcept
{
    if (instance == nullptr)
        return kBadArgument;
    *instance = nullptr;
    const int check = checkCreation (maxBlock, channels, sampleRate);
    if (check != kNoError)
        return check;
    if (! std::isfinite (minStretch) || minStretch < kLowestMinStretch)
        return kBadArgument;
    if (mode != kV3ModeEfficient)
        return kModeNotBuilt;

    try
    {
        CMeridexV3* engine = new CMeridexV3 (maxBlock, channels, sampleRate, minStretch);
        if (engine->init() != kNoError)
        {
            delete engine;
            return kMemoryError;
        }
        *instance = engine;
        return kNoError;
    }
    catch (const std::bad_alloc&)
    {
        return kMemoryError;
    }
}

void CMeridexProV3If::destroyInstance (CMeridexProV3If** instance) noexcept
{
    if (instance == nullptr)
        return;
    delete *instance;
    *instance = nullptr;
}
} // namespace meridex
