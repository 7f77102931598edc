#include "dsp/floor/CqvrfFFTBase.h"

#include "dsp/floor/AlignedMemory.h"
#include "dsp/floor/FftWindows.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace meridex
{
namespace
{
bool isPowerOfTwo (std::int64_t n) noexcept
{
    return n > 0 && (n & (n - 1)) == 0;
}

constexpr double kTwoPi = 6.283185307179586476925;
} // namespace

CqvrfFFTBase::~CqvrfFFTBase()
{
    free();
}

int CqvrfFFTBase::init (int newFrameSize, int zeroPadFactor, int windowType) noexcept
{
    free();

    const std::int64_t size = static_cast<std::int64_t> (newFrameSize) * zeroPadFactor;
    if (newFrameSize < 1 || zeroPadFactor < 1 || ! isPowerOfTwo (size) || size < kMinSize || size > kMaxSize
        || ! isValidWindowType (windowType))
    {
        errorCode = kBadArgument;
        return errorCode;
    }

    frameSize = newFrameSize;
    fftSize = static_cast<int> (size);
    windowed = windowType != kWindowNone;

    work = allocateArray<float> (fftSize);
    bufferA = allocateArray<float> (fftSize);
    bufferB = allocateArray<float> (fftSize);
    if (windowed)
        window = allocateArray<float> (frameSize);

    if (work == nullptr || bufferA == nullptr || bufferB == nullptr || (windowed && window == nullptr)
        || buildPlan() != kNoError)
    {
        free();
        errorCode = kMemoryError;
        return errorCode;
    }

    if (windowed)
        fillWindow (window, frameSize, windowType);
    errorCode = kNoError;
    return errorCode;
}

// Passes of the size-M complex transform: radix 4 from the full length down,
// strides growing by 4, and one radix-2 pass when log2 M is odd. M is at least
// 32, so the first pass has at least 8 butterflies (two vectors of p) and every
// later pass a stride of at least 4 (one vector of q).
int CqvrfFFTBase::buildPlan() noexcept
{
    const int half = fftSize / 2;
    plan = floor_detail::FftPlan();
    plan.size = fftSize;
    plan.half = half;

    int twiddleFloats = 0;
    for (int length = half, stride = 1; length >= 2; stride *= 4)
    {
        floor_detail::FftStage& stage = plan.stages[plan.stageCount++];
        stage.length = length;
        stage.stride = stride;
        stage.radix = length >= 4 ? 4 : 2;
        if (stage.radix == 4 && length > 4)
            twiddleFloats += (stride == 1 ? 6 : 24) * (length / 4);
        length /= stage.radix;
    }

    twiddles = allocateArray<float> (twiddleFloats);
    postTable = allocateArray<float> (half); // cosines, then sines, half / 2 each
    if (twiddles == nullptr || postTable == nullptr)
        return kMemoryError;

    // Twiddles in double, rounded once: every tier reads the same values.
    float* unit = twiddles;
    for (int i = 0; i < plan.stageCount; ++i)
    {
        floor_detail::FftStage& stage = plan.stages[i];
        if (stage.radix != 4 || stage.length == 4)
            continue;
        stage.twiddles = unit;
        const int m = stage.length / 4;
        const int lanesPerP = stage.stride == 1 ? 1 : 4;
        const int pPerUnit = stage.stride == 1 ? 4 : 1;
        for (int p0 = 0; p0 < m; p0 += pPerUnit, unit += 24)
        {
            for (int j = 1; j <= 3; ++j)
            {
                for (int lane = 0; lane < 4; ++lane)
                {
                    const int p = p0 + (lanesPerP == 1 ? lane : 0);
                    const double angle = kTwoPi * static_cast<double> (j * p) / stage.length;
                    unit[(j - 1) * 8 + lane] = static_cast<float> (std::cos (angle));
                    unit[(j - 1) * 8 + 4 + lane] = static_cast<float> (-std::sin (angle));
                }
            }
        }
    }

    const int quarter = half / 2;
    float* cosines = postTable;
    float* sines = postTable + quarter;
    for (int k = 1; k <= quarter; ++k)
    {
        const double angle = kTwoPi * k / fftSize;
        cosines[k - 1] = static_cast<float> (std::cos (angle));
        sines[k - 1] = static_cast<float> (std::sin (angle));
    }
    // Bin N/4 is its own mirror: exact values make both of its writes agree.
    cosines[quarter - 1] = 0.0f;
    sines[quarter - 1] = 1.0f;

    plan.postCos = cosines;
    plan.postSin = sines;
    plan.bufferA = bufferA;
    plan.bufferB = bufferB;
    return kNoError;
}

void CqvrfFFTBase::free() noexcept
{
    freeArray (&work);
    freeArray (&window);
    freeArray (&bufferA);
    freeArray (&bufferB);
    freeArray (&twiddles);
    freeArray (&postTable);
    plan = floor_detail::FftPlan();
    frameSize = 0;
    fftSize = 0;
    windowed = false;
}

void CqvrfFFTBase::forward (float* out, const float* in) noexcept
{
    if (fftSize == 0 || out == nullptr || in == nullptr)
        return;

    const float* source = in;
    if (windowed || frameSize < fftSize)
    {
        if (windowed)
            kernels.multiplyInto (work, in, window, frameSize);
        else
            std::memcpy (work, in, static_cast<size_t> (frameSize) * sizeof (float));
        std::memset (work + frameSize, 0, static_cast<size_t> (fftSize - frameSize) * sizeof (float));
        source = work;
    }
    kernels.forward (plan, source, out);
}

void CqvrfFFTBase::inverse (float* out, const float* in) noexcept
{
    if (fftSize == 0 || out == nullptr || in == nullptr)
        return;
    kernels.inverse (plan, in, out);
}
} // namespace meridex
