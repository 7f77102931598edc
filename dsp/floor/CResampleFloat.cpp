#include "dsp/floor/CResampleFloat.h"

#include "dsp/floor/AlignedMemory.h"
#include "dsp/floor/VectorDispatch.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>

namespace meridex
{
namespace
{
// The phase between two input samples in 15 bits; a table position is a
// phase times the table step, shifted down by 15, and holds the entry in its
// upper bits and 7 bits of fraction between two entries.
constexpr int kPhaseBits = 15;
constexpr int kPhaseOne = 1 << kPhaseBits;
constexpr int kFractionBits = 7;
constexpr int kFractionMask = (1 << kFractionBits) - 1;
constexpr float kFractionScale = 1.0f / (1 << kFractionBits);

bool isUsableOutputPerInput (double outputPerInput) noexcept
{
    // false for NaN
    return outputPerInput >= CResampleFloat::kMinOutputPerInput && outputPerInput <= CResampleFloat::kMaxOutputPerInput;
}

// Floor of a position rounded to hundredths of a frame. Positions come from
// products of a rounded step, so one meant to be whole may sit a hair below
// it; counted this way it needs the same input on every call, and the number
// of frames a run produces does not wander by one between calls.
int floorHundredths (double position) noexcept
{
    const auto hundredths = static_cast<std::int64_t> (std::floor (position * 100.0 + 0.5));
    return static_cast<int> (hundredths / 100);
}

double besselI0 (double x) noexcept
{
    double sum = 1.0, term = 1.0;
    const double halfX = 0.5 * x;
    for (int k = 1; k < 500; ++k)
    {
        const double factor = halfX / k;
        term *= factor * factor;
        sum += term;
        if (term < 1.0e-21 * sum)
            break;
    }
    return sum;
}
} // namespace

int CResampleBase::createInstance (CResampleBase** instance, int type, int quality, int maxBlock, int channels,
                                   bool stereoPath) noexcept
{
    selectTier (-1);
    if (instance == nullptr)
        return kBadArgument;
    *instance = nullptr;
    if (type != kFloat || quality < kMinQuality || quality > kMaxQuality || maxBlock < 1)
        return kBadArgument;
    if (channels < kMinChannels || channels > kMaxChannels)
        return kBadChannelCount;

    auto* converter = new (std::nothrow) CResampleFloat();
    if (converter == nullptr)
        return kMemoryError;
    const int code = converter->init (quality, maxBlock, channels, stereoPath);
    if (code != kNoError)
    {
        delete converter;
        return code;
    }
    *instance = converter;
    return kNoError;
}

CResampleFloat::~CResampleFloat()
{
    release();
}

void CResampleFloat::release() noexcept
{
    freeArray (&table);
    freeArray (&differences);
    freeArray (&buffer);
    bufferSize = 0;
    channels = 0;
}

int CResampleFloat::tableStepFor (double outputPerInput) noexcept
{
    const double entriesPerSample = outputPerInput < 1.0 ? kOversampling * outputPerInput : kOversampling;
    return static_cast<int> (128.0 * entriesPerSample + 0.5);
}

// Taps on one side that fall inside the table: at most this many.
int CResampleFloat::wingFrames (int tableStep) const noexcept
{
    const int end = tableLength << kFractionBits;
    return (end + tableStep - 1) / tableStep;
}

int CResampleFloat::init (int newQuality, int newMaxBlock, int numChannels, bool useStereoPath) noexcept
{
    release();
    if (newQuality < kMinQuality || newQuality > kMaxQuality || newMaxBlock < 1)
        return kBadArgument;
    if (numChannels < kMinChannels || numChannels > kMaxChannels)
        return kBadChannelCount;

    quality = newQuality;
    tableLength = quality * kOversampling;
    zc = ((tableLength / 128) + 2) / 2;
    taps = 2 * zc;
    cutoff = quality * 0.025 * 0.03125 + 0.9;
    channels = numChannels;
    maxBlock = newMaxBlock;
    stereoPath = useStereoPath;

    // History for the widest left wing (the filter stretched for the lowest
    // outputPerInput). A right wing is never wider, and after a pass at most a
    // right wing and one frame lie beyond the read position, so history, that
    // remainder and a full block always fit.
    delay = wingFrames (tableStepFor (kMinOutputPerInput));
    bufferSize = 2 * delay + 2 + maxBlock;

    table = allocateArray<float> (tableLength);
    differences = allocateArray<float> (tableLength);
    buffer = allocateArray<float> (bufferSize * channels);
    if (table == nullptr || differences == nullptr || buffer == nullptr)
    {
        release();
        return kMemoryError;
    }

    buildTable();
    reset();
    return kNoError;
}

// h(i) = sinc (i / oversampling * cutoff) * kaiser (i) * cutoff, where
// kaiser (i) = I0 (beta sqrt (1 - (i / length)^2)) / I0 (beta): a low-pass at
// cutoff times the input's Nyquist whose samples one input sample apart sum
// to about one.
void CResampleFloat::buildTable() noexcept
{
    const double pi = 3.141592653589793238463;
    const double i0Beta = besselI0 (kKaiserBeta);
    for (int i = 0; i < tableLength; ++i)
    {
        const double x = static_cast<double> (i) / kOversampling * cutoff;
        const double sinc = i == 0 ? 1.0 : std::sin (pi * x) / (pi * x);
        const double r = static_cast<double> (i) / tableLength;
        const double kaiser = besselI0 (kKaiserBeta * std::sqrt (1.0 - r * r)) / i0Beta;
        table[i] = static_cast<float> (sinc * kaiser * cutoff);
    }
    for (int i = 0; i + 1 < tableLength; ++i)
        differences[i] = table[i + 1] - table[i];
    differences[tableLength - 1] = 0.0f;
}

void CResampleFloat::reset() noexcept
{
    if (buffer == nullptr)
        return;
    std::memset (buffer, 0, sizeof (float) * static_cast<size_t> (bufferSize * channels));
    writePosition = delay;
    timePosition = delay;
}

// Output frames whose right wing lies within the input held.
int CResampleFloat::countProducible (double step, int wing) const noexcept
{
    int n = 0;
    while (floorHundredths (timePosition + n * step) + wing + 1 <= writePosition)
        ++n;
    return n;
}

int CResampleFloat::getInputNeeded (int outputFrames, double outputPerInput, float) const noexcept
{
    if (buffer == nullptr || outputFrames <= 0 || ! isUsableOutputPerInput (outputPerInput))
        return 0;
    const double step = 1.0 / outputPerInput;
    const int wing = wingFrames (tableStepFor (outputPerInput));
    const int needed = floorHundredths (timePosition + (outputFrames - 1) * step) + wing + 1 - writePosition;
    return needed > 0 ? needed : 0;
}

int CResampleFloat::getMaxOutputFrames (int count, double outputPerInput) const noexcept
{
    if (count < 0 || ! isUsableOutputPerInput (outputPerInput))
        return 0;
    return static_cast<int> (std::ceil ((count + delay + 2) * outputPerInput)) + 1;
}

int CResampleFloat::process (const float* input, float* output, double outputPerInput, float gain, int numChannels,
                             int count) noexcept
{
    if (buffer == nullptr || output == nullptr || numChannels != channels || count < 0
        || (count > 0 && input == nullptr) || ! isUsableOutputPerInput (outputPerInput))
        return 0;

    const double step = 1.0 / outputPerInput;
    const int tableStep = tableStepFor (outputPerInput);
    const int wing = wingFrames (tableStep);
    const float scale = gain * (outputPerInput >= 1.0 ? kHeadroom : static_cast<float> (outputPerInput * kHeadroom));
    const bool useStereo = stereoPath && channels == 2;

    int produced = 0;
    int consumed = 0;
    do
    {
        const int room = bufferSize - writePosition;
        const int piece = count - consumed < room ? count - consumed : room;
        if (piece > 0)
            std::memcpy (buffer + writePosition * channels, input + consumed * channels,
                         sizeof (float) * static_cast<size_t> (piece * channels));
        writePosition += piece;
        consumed += piece;

        const int frames = countProducible (step, wing);
        float* out = output + produced * channels;
        if (useStereo)
            filterStereo (out, frames, step, tableStep, scale);
        else
            filterPerChannel (out, frames, step, tableStep, scale);
        produced += frames;

        // One product per pass rather than a sum per frame.
        timePosition += frames * step;
        moveDown();
    } while (consumed < count);

    return produced;
}

// Frames no longer reachable by a left wing leave the buffer; positions follow
// by whole frames, so the fraction of timePosition is untouched.
void CResampleFloat::moveDown() noexcept
{
    int shift = static_cast<int> (timePosition) - delay;
    if (shift <= 0)
        return;
    if (shift > writePosition)
        shift = writePosition;
    std::memmove (buffer, buffer + shift * channels,
                  sizeof (float) * static_cast<size_t> ((writePosition - shift) * channels));
    writePosition -= shift;
    timePosition -= shift;
}

// Both routines take, for each output frame at position p = i + f, a left wing
// over input i, i - 1, ... at table positions f, f + 1, ... and a right wing
// over i + 1, i + 2, ... at 1 - f, 2 - f, ..., each tap interpolated between
// two entries, and sum them in the same order per channel, so they agree bit
// for bit.
namespace
{
struct Taps
{
    int centre;     // i
    int leftStart;  // table position of the tap on i, in 1/128 entries
    int rightStart; // table position of the tap on i + 1
};

inline Taps tapsAt (double position, int tableStep) noexcept
{
    Taps taps;
    taps.centre = static_cast<int> (position);
    int phase = static_cast<int> ((position - taps.centre) * kPhaseOne);
    if (phase > kPhaseOne - 1)
        phase = kPhaseOne - 1;
    taps.leftStart = (phase * tableStep) >> kPhaseBits;
    taps.rightStart = ((kPhaseOne - phase) * tableStep) >> kPhaseBits;
    return taps;
}

inline float tapValue (const float* table, const float* differences, int at) noexcept
{
    const int entry = at >> kFractionBits;
    return table[entry] + differences[entry] * static_cast<float> (at & kFractionMask) * kFractionScale;
}
} // namespace

void CResampleFloat::filterPerChannel (float* output, int frames, double step, int tableStep,
                                       float scale) const noexcept
{
    const int end = tableLength << kFractionBits;
    for (int ch = 0; ch < channels; ++ch)
    {
        for (int k = 0; k < frames; ++k)
        {
            const Taps t = tapsAt (timePosition + k * step, tableStep);
            const float* centre = buffer + t.centre * channels + ch;
            float left = 0.0f, right = 0.0f;
            int j = 0;
            for (int at = t.leftStart; at < end; at += tableStep, ++j)
                left += tapValue (table, differences, at) * centre[-j * channels];
            j = 1;
            for (int at = t.rightStart; at < end; at += tableStep, ++j)
                right += tapValue (table, differences, at) * centre[j * channels];
            output[k * channels + ch] = (left + right) * scale;
        }
    }
}

void CResampleFloat::filterStereo (float* output, int frames, double step, int tableStep, float scale) const noexcept
{
    const int end = tableLength << kFractionBits;
    for (int k = 0; k < frames; ++k)
    {
        const Taps t = tapsAt (timePosition + k * step, tableStep);
        const float* centre = buffer + t.centre * 2;
        float left0 = 0.0f, left1 = 0.0f, right0 = 0.0f, right1 = 0.0f;
        int j = 0;
        for (int at = t.leftStart; at < end; at += tableStep, ++j)
        {
            const float h = tapValue (table, differences, at);
            left0 += h * centre[-2 * j];
            left1 += h * centre[-2 * j + 1];
        }
        j = 1;
        for (int at = t.rightStart; at < end; at += tableStep, ++j)
        {
            const float h = tapValue (table, differences, at);
            right0 += h * centre[2 * j];
            right1 += h * centre[2 * j + 1];
        }
        output[2 * k] = (left0 + right0) * scale;
        output[2 * k + 1] = (left1 + right1) * scale;
    }
}
} // namespace meridex
