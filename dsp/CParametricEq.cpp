#include "dsp/CParametricEq.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <random>
#include <type_traits>
#include <utility>

#if defined(__SSE2__) || defined(_M_X64) || (defined(_M_IX86_FP) && _M_IX86_FP >= 2)
#include <emmintrin.h>
#define QVR_PARAMEQ_SSE2 1
#else
#define QVR_PARAMEQ_SSE2 0
#endif

namespace qvrParamEQ
{
namespace
{
// 2*pi rounded to float. The coefficients are computed in single precision
// throughout, with every intermediate rounded to float.
constexpr float kTwoPi = 6.2831855f;

// The cut-off used for the coefficients never reaches Nyquist. At 44100 Hz the
// top of the frequency range (20000 Hz) is below this and nothing changes; at
// lower rates a cut-off past Nyquist would put w beyond pi, where sin(w) turns
// negative and the second-order sections get a pole outside the unit circle.
constexpr float kMaxCutoffFraction = 0.49f;

// 10 / ln 10: converts the natural log of a power ratio into dB.
constexpr double kPowerToDb = 4.3429448190325175;

// Floor of the squared magnitudes in getResponseDb. A zero of the response
// (a notch at its centre) gives about -300 dB instead of -inf, and rounding
// that drives the numerator slightly negative cannot produce NaN.
constexpr double kMinPower = 1.0e-30;

constexpr double kTwoPiDouble = 6.283185307179586;

constexpr float kMinimum[kNumParameters] = { kMinFrequencyHz, kMinQ, kMinGainDb };
constexpr float kMaximum[kNumParameters] = { kMaxFrequencyHz, kMaxQ, kMaxGainDb };

struct Kernel
{
    float b0, b1, b2, a1, a2;
};

constexpr int kNoiseMask = CParametricEq::kNoiseTableSize - 1;

/*  One sample of transposed direct form II, a1 and a2 already negated.

    z1 is updated as (z2 + b1*x) + a1*y: the terms that do not depend on y
    are summed first, so the serial chain from one sample to the next is one
    add (y), one multiply and one add, rather than two adds after the
    multiply.

    Every path of process goes through this one function, so all of them
    round alike and the output does not depend on how blocks or channels are
    grouped.
*/
inline float tick (const Kernel& k, float x, float& z1, float& z2) noexcept
{
    const float y = z1 + k.b0 * x;
    z1 = (z2 + k.b1 * x) + k.a1 * y;
    z2 = k.a2 * y + k.b2 * x;
    return y;
}

// With kWithNoise, noise[i & mask] is added to the input, i counting from 0
// in every call and the same value for every channel.
template <bool kWithNoise>
inline float inputAt (const float* in, const float* noise, int i) noexcept
{
    if constexpr (kWithNoise)
        return in[i] + noise[i & kNoiseMask];
    else
        return in[i];
}

/*  Two channels in one loop, four samples per turn. Each channel's recursion
    is a serial chain; interleaving two independent chains lets the processor
    overlap them, so a stereo pair costs little more than one channel. The
    state is in plain locals (not arrays) so that it stays in registers.
*/
template <bool kWithNoise>
void filterPair (const Kernel& kernel, const float* noise, const float* inA, const float* inB, float* outA, float* outB,
                 float& z1A, float& z2A, float& z1B, float& z2B, int numSamples) noexcept
{
    const Kernel k = kernel;
    float s1A = z1A, s2A = z2A, s1B = z1B, s2B = z2B;

    auto step = [&] (int i) noexcept {
        const float xA = inputAt<kWithNoise> (inA, noise, i);
        const float xB = inputAt<kWithNoise> (inB, noise, i);
        const float yA = tick (k, xA, s1A, s2A);
        const float yB = tick (k, xB, s1B, s2B);
        outA[i] = yA;
        outB[i] = yB;
    };

    int i = 0;
    for (; i + 4 <= numSamples; i += 4)
    {
        step (i);
        step (i + 1);
        step (i + 2);
        step (i + 3);
    }
    for (; i < numSamples; ++i)
        step (i);

    z1A = s1A;
    z2A = s2A;
    z1B = s1B;
    z2B = s2B;
}

// The last channel of an odd count, with the same loop shape.
template <bool kWithNoise>
void filterSingle (const Kernel& kernel, const float* noise, const float* in, float* out, float& z1State,
                   float& z2State, int numSamples) noexcept
{
    const Kernel k = kernel;
    float z1 = z1State, z2 = z2State;

    auto step = [&] (int i) noexcept { out[i] = tick (k, inputAt<kWithNoise> (in, noise, i), z1, z2); };

    int i = 0;
    for (; i + 4 <= numSamples; i += 4)
    {
        step (i);
        step (i + 1);
        step (i + 2);
        step (i + 3);
    }
    for (; i < numSamples; ++i)
        step (i);

    z1State = z1;
    z2State = z2;
}

template <bool kWithNoise>
void filterChannels (const Kernel& kernel, const float* noise, const float* const* inputs, float* const* outputs,
                     float* z1, float* z2, int numChannels, int numSamples) noexcept
{
    int ch = 0;
    for (; ch + 2 <= numChannels; ch += 2)
        filterPair<kWithNoise> (kernel, noise, inputs[ch], inputs[ch + 1], outputs[ch], outputs[ch + 1], z1[ch], z2[ch],
                                z1[ch + 1], z2[ch + 1], numSamples);
    if (ch < numChannels)
        filterSingle<kWithNoise> (kernel, noise, inputs[ch], outputs[ch], z1[ch], z2[ch], numSamples);
}

/*  The cascade: one active (not bypassed) stage as the sample-by-sample loops
    see it. The state pointers refer to the stage's own z1States / z2States,
    read once before the block and written once after it.
*/
struct CascadeStage
{
    Kernel kernel;
    const float* noise;
    float* z1;
    float* z2;
    bool noiseOn;
};

// At most this many stages share one sample loop; a longer cascade runs in
// groups of it, each group over the whole block, which is the same as stage
// by stage because each group is a run of consecutive stages.
constexpr int kMaxCascadeGroup = 8;

// Which stages add noise, fixed per instantiation so that the common cases
// (all or none) carry no test per stage and sample.
enum class CascadeNoise
{
    none,
    all,
    some
};

template <CascadeNoise kNoise>
inline bool stageAddsNoise (const CascadeStage& stage) noexcept
{
    if constexpr (kNoise == CascadeNoise::none)
        return false;
    else if constexpr (kNoise == CascadeNoise::all)
        return true;
    else
        return stage.noiseOn;
}

/*  One channel through kStages stages, sample by sample. Each stage does per
    sample exactly what filterSingle does (noise added to its input first, then
    tick), so the bits agree with running the stages one after another.
*/
template <int kStages, CascadeNoise kNoise>
void cascadeSingle (const CascadeStage* stages, float* data, int channel, int numSamples) noexcept
{
    Kernel k[kStages];
    float z1[kStages], z2[kStages];
    for (int s = 0; s < kStages; ++s)
    {
        k[s] = stages[s].kernel;
        z1[s] = stages[s].z1[channel];
        z2[s] = stages[s].z2[channel];
    }

    for (int i = 0; i < numSamples; ++i)
    {
        float x = data[i];
        for (int s = 0; s < kStages; ++s)
        {
            if (stageAddsNoise<kNoise> (stages[s]))
                x = x + stages[s].noise[i & kNoiseMask];
            x = tick (k[s], x, z1[s], z2[s]);
        }
        data[i] = x;
    }

    for (int s = 0; s < kStages; ++s)
    {
        stages[s].z1[channel] = z1[s];
        stages[s].z2[channel] = z2[s];
    }
}

#if QVR_PARAMEQ_SSE2
/*  Two channels in the two low lanes of one SSE2 register, kStages stages
    sample by sample. The lanes do what tick does, operation for operation in
    the same order (packed single-precision adds and multiplies round as the
    scalar ones do), and both lanes add the same noise value, as process adds
    the same value to every channel. The two high lanes start at zero and
    carry only values that are never stored.
*/
template <int kStages, CascadeNoise kNoise>
void cascadePair (const CascadeStage* stages, float* dataA, float* dataB, int channelA, int numSamples) noexcept
{
    const int channelB = channelA + 1;
    __m128 b0[kStages], b1[kStages], b2[kStages], a1[kStages], a2[kStages], z1[kStages], z2[kStages];
    for (int s = 0; s < kStages; ++s)
    {
        const Kernel& k = stages[s].kernel;
        b0[s] = _mm_set1_ps (k.b0);
        b1[s] = _mm_set1_ps (k.b1);
        b2[s] = _mm_set1_ps (k.b2);
        a1[s] = _mm_set1_ps (k.a1);
        a2[s] = _mm_set1_ps (k.a2);
        z1[s] = _mm_setr_ps (stages[s].z1[channelA], stages[s].z1[channelB], 0.0f, 0.0f);
        z2[s] = _mm_setr_ps (stages[s].z2[channelA], stages[s].z2[channelB], 0.0f, 0.0f);
    }

    for (int i = 0; i < numSamples; ++i)
    {
        __m128 x = _mm_unpacklo_ps (_mm_load_ss (dataA + i), _mm_load_ss (dataB + i));
        for (int s = 0; s < kStages; ++s)
        {
            if (stageAddsNoise<kNoise> (stages[s]))
                x = _mm_add_ps (x, _mm_set1_ps (stages[s].noise[i & kNoiseMask]));
            // tick, lane-wise: y = z1 + b0*x; z1 = (z2 + b1*x) + a1*y;
            // z2 = a2*y + b2*x.
            const __m128 y = _mm_add_ps (z1[s], _mm_mul_ps (b0[s], x));
            z1[s] = _mm_add_ps (_mm_add_ps (z2[s], _mm_mul_ps (b1[s], x)), _mm_mul_ps (a1[s], y));
            z2[s] = _mm_add_ps (_mm_mul_ps (a2[s], y), _mm_mul_ps (b2[s], x));
            x = y;
        }
        _mm_store_ss (dataA + i, x);
        _mm_store_ss (dataB + i, _mm_shuffle_ps (x, x, _MM_SHUFFLE (1, 1, 1, 1)));
    }

    alignas (16) float lanes[4];
    for (int s = 0; s < kStages; ++s)
    {
        _mm_store_ps (lanes, z1[s]);
        stages[s].z1[channelA] = lanes[0];
        stages[s].z1[channelB] = lanes[1];
        _mm_store_ps (lanes, z2[s]);
        stages[s].z2[channelA] = lanes[0];
        stages[s].z2[channelB] = lanes[1];
    }
}
/*  One stage over samples [from, to) of a channel pair, with the stage's own
    state read and written back: the per-sample operations of filterPair
    (noise added to the input first, then tick), the noise index counting
    from the start of the call. The skewed loop below runs the first and last
    few samples of each stage through this, so those samples round exactly
    as the stage on its own rounds them.
*/
template <CascadeNoise kNoise>
void stageSpan (const CascadeStage& stage, float* dataA, float* dataB, int channelA, int from, int to) noexcept
{
    const int channelB = channelA + 1;
    const Kernel k = stage.kernel;
    float z1A = stage.z1[channelA], z2A = stage.z2[channelA];
    float z1B = stage.z1[channelB], z2B = stage.z2[channelB];
    for (int i = from; i < to; ++i)
    {
        float xA = dataA[i], xB = dataB[i];
        if (stageAddsNoise<kNoise> (stage))
        {
            const float n = stage.noise[i & kNoiseMask];
            xA = xA + n;
            xB = xB + n;
        }
        dataA[i] = tick (k, xA, z1A, z2A);
        dataB[i] = tick (k, xB, z1B, z2B);
    }
    stage.z1[channelA] = z1A;
    stage.z2[channelA] = z2A;
    stage.z1[channelB] = z1B;
    stage.z2[channelB] = z2B;
}

// Adding -0 leaves every float as it is, +0 and -0 included (adding +0 would
// turn -0 into +0), so a stage without noise can share the noise add of a
// register with one that has it.
struct NoiseTable
{
    float values[CParametricEq::kNoiseTableSize];
};

constexpr NoiseTable makeSilentNoise() noexcept
{
    NoiseTable table {};
    for (float& value : table.values)
        value = -0.0f;
    return table;
}

alignas (16) constexpr NoiseTable kNoNoise = makeSilentNoise();

// Calls f with std::integral_constant<int, 0> ... <kCount - 1>, written out:
// with every array index a constant the compiler keeps the per-register
// arrays of the skewed loop in registers, which a loop it may leave rolled
// does not guarantee (rolled, each turn went through the stack).
template <int kCount, typename F, int... kIndex>
inline void forEachRegisterOf (F&& f, std::integer_sequence<int, kIndex...>) noexcept
{
    (f (std::integral_constant<int, kIndex> {}), ...);
}

template <int kCount, typename F>
inline void forEachRegister (F&& f) noexcept
{
    forEachRegisterOf<kCount> (f, std::make_integer_sequence<int, kCount> {});
}

/*  Two stages per register, kStages stages, a channel pair: register p holds
    stage 2p on channels A and B in lanes 0 and 1 and stage 2p + 1 on A and B
    in lanes 2 and 3. Stage s works one sample behind stage s - 1, so at turn
    t it filters sample t - s, and its input is what stage s - 1 gave one turn
    earlier: every register's next input is a shuffle of the previous turn's
    outputs, and all registers of a turn are independent of each other. Each
    lane does what tick does, operation for operation in the same order, so
    the bits are those of the stages one after another, at half the
    operations of one stage per register.

    The skew leaves a triangle at each end of the block: before the first
    turn (t = kStages - 1) stage s runs alone over samples [0, kStages-1-s),
    in stage order and in place, so that data[j] then holds the output of
    the last stage done for sample j, which is the input of the next; after
    the last turn (t = numSamples - 1) the pipeline's outputs go back to data
    and stage s runs alone over [numSamples - s, numSamples), again in stage
    order. With an odd kStages the upper lanes of the last register stand
    for no stage: zero coefficients and state, never stored.

    Requires numSamples >= kStages, so that there is at least one turn.
*/
template <int kStages, CascadeNoise kNoise>
void cascadePairSkewed (const CascadeStage* stages, float* dataA, float* dataB, int channelA, int numSamples) noexcept
{
    static_assert (kStages >= 2, "one stage has nothing to overlap with");
    constexpr int kRegisters = (kStages + 1) / 2;
    const int channelB = channelA + 1;

    for (int s = 0; s + 1 < kStages; ++s)
        stageSpan<kNoise> (stages[s], dataA, dataB, channelA, 0, kStages - 1 - s);

    __m128 b0[kRegisters], b1[kRegisters], b2[kRegisters], a1[kRegisters], a2[kRegisters];
    __m128 z1[kRegisters], z2[kRegisters], previous[kRegisters];
    const float* noiseLow[kRegisters];
    const float* noiseHigh[kRegisters];
    const int first = kStages - 1;

    // The input of stage s on the first turn: data[first - s] after the
    // leading triangle (raw input for s = 0, read in the loop), zero for the
    // stage that does not exist.
    auto inputOf = [&] (int s, const float* data) noexcept { return s < kStages ? data[first - s] : 0.0f; };
    auto noiseOf = [&] (int s) noexcept {
        if (s >= kStages)
            return kNoNoise.values;
        return stageAddsNoise<kNoise> (stages[s]) ? stages[s].noise : kNoNoise.values;
    };

    for (int p = 0; p < kRegisters; ++p)
    {
        const int low = 2 * p, high = 2 * p + 1;
        const Kernel kl = stages[low].kernel;
        const Kernel kh = high < kStages ? stages[high].kernel : Kernel { 0.0f, 0.0f, 0.0f, 0.0f, 0.0f };
        b0[p] = _mm_setr_ps (kl.b0, kl.b0, kh.b0, kh.b0);
        b1[p] = _mm_setr_ps (kl.b1, kl.b1, kh.b1, kh.b1);
        b2[p] = _mm_setr_ps (kl.b2, kl.b2, kh.b2, kh.b2);
        a1[p] = _mm_setr_ps (kl.a1, kl.a1, kh.a1, kh.a1);
        a2[p] = _mm_setr_ps (kl.a2, kl.a2, kh.a2, kh.a2);
        const bool real = high < kStages;
        z1[p] = _mm_setr_ps (stages[low].z1[channelA], stages[low].z1[channelB],
                             real ? stages[high].z1[channelA] : 0.0f, real ? stages[high].z1[channelB] : 0.0f);
        z2[p] = _mm_setr_ps (stages[low].z2[channelA], stages[low].z2[channelB],
                             real ? stages[high].z2[channelA] : 0.0f, real ? stages[high].z2[channelB] : 0.0f);
        noiseLow[p] = noiseOf (low);
        noiseHigh[p] = noiseOf (high);
        // As if the previous turn had given register p the inputs of stages
        // 2p + 1 (lanes 0, 1) and 2p + 2 (lanes 2, 3), which is where the
        // shuffles below take them from.
        previous[p] = _mm_setr_ps (inputOf (high, dataA), inputOf (high, dataB), inputOf (high + 1, dataA),
                                   inputOf (high + 1, dataB));
    }

    for (int t = first; t < numSamples; ++t)
    {
        const __m128 in = _mm_unpacklo_ps (_mm_load_ss (dataA + t), _mm_load_ss (dataB + t));
        __m128 x[kRegisters];
        x[0] = _mm_shuffle_ps (in, previous[0], _MM_SHUFFLE (1, 0, 1, 0));
        forEachRegister<kRegisters> ([&] (auto index) noexcept {
            constexpr int p = decltype (index)::value;
            if constexpr (p > 0)
                x[p] = _mm_shuffle_ps (previous[p - 1], previous[p], _MM_SHUFFLE (1, 0, 3, 2));
        });

        forEachRegister<kRegisters> ([&] (auto index) noexcept {
            constexpr int p = decltype (index)::value;
            if constexpr (kNoise != CascadeNoise::none)
            {
                // Stage 2p is at sample t - 2p, stage 2p + 1 at t - 2p - 1;
                // the mask keeps the index of a missing stage (-1) inside
                // the table.
                const __m128 n = _mm_unpacklo_ps (_mm_load_ss (noiseLow[p] + ((t - 2 * p) & kNoiseMask)),
                                                  _mm_load_ss (noiseHigh[p] + ((t - 2 * p - 1) & kNoiseMask)));
                x[p] = _mm_add_ps (x[p], _mm_shuffle_ps (n, n, _MM_SHUFFLE (1, 1, 0, 0)));
            }
            // tick, lane-wise: y = z1 + b0*x; z1 = (z2 + b1*x) + a1*y;
            // z2 = a2*y + b2*x.
            const __m128 y = _mm_add_ps (z1[p], _mm_mul_ps (b0[p], x[p]));
            z1[p] = _mm_add_ps (_mm_add_ps (z2[p], _mm_mul_ps (b1[p], x[p])), _mm_mul_ps (a1[p], y));
            z2[p] = _mm_add_ps (_mm_mul_ps (a2[p], y), _mm_mul_ps (b2[p], x[p]));
            previous[p] = y;
        });

        // The last stage finished sample t - (kStages - 1): lanes 2, 3 of the
        // last register for an even count, lanes 0, 1 for an odd one.
        const __m128 last = previous[kRegisters - 1];
        const int done = t - first;
        if constexpr (kStages % 2 == 0)
        {
            _mm_store_ss (dataA + done, _mm_shuffle_ps (last, last, _MM_SHUFFLE (2, 2, 2, 2)));
            _mm_store_ss (dataB + done, _mm_shuffle_ps (last, last, _MM_SHUFFLE (3, 3, 3, 3)));
        }
        else
        {
            _mm_store_ss (dataA + done, last);
            _mm_store_ss (dataB + done, _mm_shuffle_ps (last, last, _MM_SHUFFLE (1, 1, 1, 1)));
        }
    }

    // Stage s has finished sample numSamples - 1 - s; all but the last stage
    // leave that output in data, where the trailing triangle reads it.
    alignas (16) float lanes[4];
    for (int p = 0; p < kRegisters; ++p)
    {
        const int low = 2 * p, high = 2 * p + 1;
        _mm_store_ps (lanes, previous[p]);
        if (low + 1 < kStages)
        {
            dataA[numSamples - 1 - low] = lanes[0];
            dataB[numSamples - 1 - low] = lanes[1];
        }
        if (high + 1 < kStages)
        {
            dataA[numSamples - 1 - high] = lanes[2];
            dataB[numSamples - 1 - high] = lanes[3];
        }
        _mm_store_ps (lanes, z1[p]);
        stages[low].z1[channelA] = lanes[0];
        stages[low].z1[channelB] = lanes[1];
        if (high < kStages)
        {
            stages[high].z1[channelA] = lanes[2];
            stages[high].z1[channelB] = lanes[3];
        }
        _mm_store_ps (lanes, z2[p]);
        stages[low].z2[channelA] = lanes[0];
        stages[low].z2[channelB] = lanes[1];
        if (high < kStages)
        {
            stages[high].z2[channelA] = lanes[2];
            stages[high].z2[channelB] = lanes[3];
        }
    }

    for (int s = 1; s < kStages; ++s)
        stageSpan<kNoise> (stages[s], dataA, dataB, channelA, numSamples - s, numSamples);
}
#endif

// Every channel of data through the same kStages stages; channels are
// independent, so the order in which pairs and singles run does not matter.
template <int kStages, CascadeNoise kNoise>
void cascadeChannels (const CascadeStage* stages, float* const* data, int numChannels, int numSamples) noexcept
{
    int ch = 0;
#if QVR_PARAMEQ_SSE2
    for (; ch + 2 <= numChannels; ch += 2)
    {
        // The skewed loop's two triangles run about kStages * kStages
        // stage-samples one stage at a time; from twice kStages samples on,
        // the overlapped turns are at least half the block.
        if constexpr (kStages >= 2)
            if (numSamples >= 2 * kStages)
            {
                cascadePairSkewed<kStages, kNoise> (stages, data[ch], data[ch + 1], ch, numSamples);
                continue;
            }
        cascadePair<kStages, kNoise> (stages, data[ch], data[ch + 1], ch, numSamples);
    }
#endif
    for (; ch < numChannels; ++ch)
        cascadeSingle<kStages, kNoise> (stages, data[ch], ch, numSamples);
}

template <CascadeNoise kNoise>
void cascadeGroup (const CascadeStage* stages, int count, float* const* data, int numChannels, int numSamples) noexcept
{
    static_assert (kMaxCascadeGroup == 8, "one case per group size");
    switch (count)
    {
        case 1: cascadeChannels<1, kNoise> (stages, data, numChannels, numSamples); break;
        case 2: cascadeChannels<2, kNoise> (stages, data, numChannels, numSamples); break;
        case 3: cascadeChannels<3, kNoise> (stages, data, numChannels, numSamples); break;
        case 4: cascadeChannels<4, kNoise> (stages, data, numChannels, numSamples); break;
        case 5: cascadeChannels<5, kNoise> (stages, data, numChannels, numSamples); break;
        case 6: cascadeChannels<6, kNoise> (stages, data, numChannels, numSamples); break;
        case 7: cascadeChannels<7, kNoise> (stages, data, numChannels, numSamples); break;
        case 8: cascadeChannels<8, kNoise> (stages, data, numChannels, numSamples); break;
        default: break;
    }
}

void runCascadeGroup (const CascadeStage* stages, int count, float* const* data, int numChannels,
                      int numSamples) noexcept
{
    int withNoise = 0;
    for (int s = 0; s < count; ++s)
        withNoise += stages[s].noiseOn ? 1 : 0;

    if (withNoise == 0)
        cascadeGroup<CascadeNoise::none> (stages, count, data, numChannels, numSamples);
    else if (withNoise == count)
        cascadeGroup<CascadeNoise::all> (stages, count, data, numChannels, numSamples);
    else
        cascadeGroup<CascadeNoise::some> (stages, count, data, numChannels, numSamples);
}
} // namespace

int CParametricEqIf::createInstance (CParametricEqIf** instance, float sampleRate, int numChannels) noexcept
{
    if (instance == nullptr)
        return kInvalidArgument;

    *instance = nullptr;

    // The rate divides every w; zero, negative or non-finite rates would fill
    // the coefficients with inf or NaN.
    if (numChannels < 1 || ! (sampleRate > 0.0f) || ! std::isfinite (sampleRate))
        return kInvalidArgument;

    try
    {
        *instance = new CParametricEq (sampleRate, numChannels);
    }
    catch (const std::bad_alloc&)
    {
        return meridex::kMemoryError;
    }
    return meridex::kNoError;
}

CParametricEq::CParametricEq (float rate, int channels)
    : sampleRate (rate), numChannels (channels), z1States (static_cast<size_t> (channels), 0.0f),
      z2States (static_cast<size_t> (channels), 0.0f)
{
    fillNoiseTable();
}

void CParametricEq::fillNoiseTable() noexcept
{
    // Each entry is the sum of two uniform 15-bit integers shifted down by
    // their maximum and scaled to 1e-20: a triangular spread over
    // [-2e-20, 0]. That is far above the smallest normal float (about 1e-38)
    // and far below anything audible. A private generator with a fixed seed
    // gives the same table on every platform and in every instance, and
    // leaves the process-wide rand() state alone.
    std::minstd_rand generator (1u);
    auto uniform15 = [&generator]() noexcept { return static_cast<int> (generator() >> 16); };

    for (float& value : noise)
    {
        const int sum = uniform15() + uniform15() - 65534;
        value = static_cast<float> (sum) * 1.0e-20f / 32767.0f;
    }
}

int CParametricEq::process (const float* const* inputs, float* const* outputs, int numSamples) noexcept
{
    if (inputs == nullptr || outputs == nullptr || numSamples < 1)
        return kInvalidArgument;

    for (int ch = 0; ch < numChannels; ++ch)
        if (inputs[ch] == nullptr || outputs[ch] == nullptr)
            return kInvalidArgument;

    if (dirty)
        rebuildCoefficients();

    if (bypass)
    {
        for (int ch = 0; ch < numChannels; ++ch)
            if (inputs[ch] != outputs[ch])
                std::memcpy (outputs[ch], inputs[ch], static_cast<size_t> (numSamples) * sizeof (float));
        return meridex::kNoError;
    }

    const Kernel kernel { coefficients.b0, coefficients.b1, coefficients.b2, coefficients.a1, coefficients.a2 };
    if (noiseOn)
        filterChannels<true> (kernel, noise, inputs, outputs, z1States.data(), z2States.data(), numChannels,
                              numSamples);
    else
        filterChannels<false> (kernel, noise, inputs, outputs, z1States.data(), z2States.data(), numChannels,
                               numSamples);
    return meridex::kNoError;
}

int CParametricEq::processCascade (CParametricEq* const* stages, int numStages, float* const* channels,
                                   int numSamples) noexcept
{
    if (channels == nullptr || numSamples < 1 || numStages < 0 || (numStages > 0 && stages == nullptr))
        return kInvalidArgument;

    int numChannels = 0;
    bool sameChannels = true;
    for (int i = 0; i < numStages; ++i)
        if (const CParametricEq* stage = stages[i])
        {
            if (numChannels == 0)
                numChannels = stage->numChannels;
            sameChannels = sameChannels && stage->numChannels == numChannels;
        }

    // The widest channel count any stage reads; process would refuse a null
    // pointer among them before touching anything, and so does this.
    int widest = 0;
    for (int i = 0; i < numStages; ++i)
        if (stages[i] != nullptr)
            widest = std::max (widest, stages[i]->numChannels);
    for (int ch = 0; ch < widest; ++ch)
        if (channels[ch] == nullptr)
            return kInvalidArgument;

    if (! sameChannels)
    {
        for (int i = 0; i < numStages; ++i)
            if (stages[i] != nullptr)
                (void) stages[i]->process (channels, channels, numSamples);
        return meridex::kNoError;
    }

    CascadeStage group[kMaxCascadeGroup];
    int count = 0;
    for (int i = 0; i < numStages; ++i)
    {
        CParametricEq* stage = stages[i];
        if (stage == nullptr)
            continue;
        // As process does: rebuild first, so that a bypassed stage still
        // leaves its coefficients current.
        if (stage->dirty)
            stage->rebuildCoefficients();
        if (stage->bypass)
            continue;

        const Coefficients& c = stage->coefficients;
        group[count++] = CascadeStage { Kernel { c.b0, c.b1, c.b2, c.a1, c.a2 }, stage->noise, stage->z1States.data(),
                                        stage->z2States.data(), stage->noiseOn };
        if (count == kMaxCascadeGroup)
        {
            runCascadeGroup (group, count, channels, numChannels, numSamples);
            count = 0;
        }
    }
    if (count > 0)
        runCascadeGroup (group, count, channels, numChannels, numSamples);
    return meridex::kNoError;
}

int CParametricEq::setType (int newType) noexcept
{
    if (newType < 0 || newType >= kNumFilterTypes)
        return kInvalidArgument;

    type = newType;
    dirty = true;
    return meridex::kNoError;
}

int CParametricEq::setParameter (int index, float value) noexcept
{
    if (index < 0 || index >= kNumParameters)
        return kInvalidArgument;

    // Written so that NaN, which fails every comparison, is refused too.
    if (! (value >= kMinimum[index] && value <= kMaximum[index]))
        return kInvalidArgument;

    params[index] = value;
    dirty = true;
    return meridex::kNoError;
}

float CParametricEq::getParameter (int index) const noexcept
{
    if (index < 0 || index >= kNumParameters)
        return 0.0f;
    return params[index];
}

float CParametricEq::getResponseDb (float frequencyHz) noexcept
{
    if (dirty)
        rebuildCoefficients();

    // |b0 + b1 z^-1 + b2 z^-2|^2 on the unit circle written with
    // s = sin^2(w/2), for the numerator and for the denominator (1, a1, a2).
    // Evaluated in double from the float coefficients the filter runs with,
    // so the curve is that of the running filter: in float, the cancellation
    // in the first two terms costs a tenth of a dB and more where a high-pass
    // is deep in its stop band.
    const double w = kTwoPiDouble * static_cast<double> (frequencyHz) / static_cast<double> (sampleRate);
    const double sinHalf = std::sin (0.5 * w);
    const double s = sinHalf * sinHalf;

    auto power = [s] (double c0, double c1, double c2) noexcept {
        const double sum = c0 + c1 + c2;
        const double value = sum * sum - 4.0 * s * (c1 * (c0 + c2) + 4.0 * c0 * c2) + 16.0 * s * s * c0 * c2;
        return std::max (value, kMinPower);
    };

    const double numerator = power (coefficients.b0, coefficients.b1, coefficients.b2);
    const double denominator = power (1.0, -static_cast<double> (coefficients.a1),
                                      -static_cast<double> (coefficients.a2));
    return static_cast<float> (kPowerToDb * (std::log (numerator) - std::log (denominator)));
}

void CParametricEq::reset() noexcept
{
    std::fill (z1States.begin(), z1States.end(), 0.0f);
    std::fill (z2States.begin(), z2States.end(), 0.0f);
    dirty = true;
}

void CParametricEq::rebuildCoefficients() noexcept
{
    const float frequency = std::min (params[kFrequency], kMaxCutoffFraction * sampleRate);
    const float q = params[kQ];
    const float gainDb = params[kGain];

    const float w = kTwoPi * frequency / sampleRate;
    const float c = std::cos (w);
    const float s = std::sin (w);
    const float alpha = s / (2.0f * q);
    const float n = 1.0f / (1.0f + alpha);

    // Denominator terms as in 1 + a1 z^-1 + a2 z^-2; negated at the end.
    float b0 = 1.0f, b1 = 0.0f, b2 = 0.0f, a1 = 0.0f, a2 = 0.0f;

    switch (type)
    {
        case kLowPass1:
        {
            // One pole at exp(-w) and a zero at -0.12, scaled so that DC
            // passes at exactly 0 dB: (b0 + b1) / (1 - x) = 1.12 b0 / (1 - x).
            const float x = std::exp (-w);
            b0 = (1.0f - x) / 1.12f;
            b1 = 0.12f * b0;
            a1 = -x;
            break;
        }
        case kLowPass2:
            b0 = n * (1.0f - c) / 2.0f;
            b1 = n * (1.0f - c);
            b2 = b0;
            a1 = -2.0f * c * n;
            a2 = n * (1.0f - alpha);
            break;
        case kHighPass1:
        {
            const float x = std::exp (-w);
            b0 = (1.0f + x) / 2.0f;
            b1 = -b0;
            a1 = -x;
            break;
        }
        case kHighPass2:
            b0 = n * (1.0f + c) / 2.0f;
            b1 = -n * (1.0f + c);
            b2 = b0;
            a1 = -2.0f * c * n;
            a2 = n * (1.0f - alpha);
            break;
        case kBandPass2:
            b0 = n * alpha;
            b1 = 0.0f;
            b2 = -n * alpha;
            a1 = -2.0f * c * n;
            a2 = n * (1.0f - alpha);
            break;
        case kLowShelf1:
        case kHighShelf1:
        {
            // A pole at exp(-w1) and a zero at exp(-w2): whichever corner is
            // lower decides the direction of the shelf, and the two sit
            // |gain| dB apart on the frequency axis.
            const float g = std::pow (10.0f, -std::fabs (gainDb) / 20.0f);
            const float w1 = gainDb > 0.0f ? w * g : w;
            const float w2 = gainDb > 0.0f ? w : w * g;
            const float y = std::exp (-w2);
            const float pole = std::exp (-w1);
            a1 = -pole;

            if (type == kLowShelf1)
            {
                // The numerator is (-1 + y z^-1): the magnitude of a low
                // shelf with the top end near 0 dB, and the output inverted
                // in polarity.
                b0 = -1.0f;
                b1 = y;
            }
            else
            {
                // Scaled by e so that DC passes at exactly 0 dB; the top end
                // moves by about |gain| dB, downwards for a positive gain.
                const float e = (1.0f - pole) / (y - 1.0f);
                b0 = e * -1.0f;
                b1 = e * y;
            }
            break;
        }
        case kLowShelf2:
        case kHighShelf2:
        {
            const float a = std::pow (10.0f, gainDb / 40.0f);
            const float bw = 2.0f * std::sqrt (a) * alpha;
            const float p = a + 1.0f;
            const float m = a - 1.0f;

            if (type == kLowShelf2)
            {
                const float norm = 1.0f / (p + m * c + bw);
                b0 = a * (p - m * c + bw) * norm;
                b1 = 2.0f * a * (m - p * c) * norm;
                b2 = a * (p - m * c - bw) * norm;
                a1 = -2.0f * (m + p * c) * norm;
                a2 = (p + m * c - bw) * norm;
            }
            else
            {
                const float norm = 1.0f / (p - m * c + bw);
                b0 = a * (p + m * c + bw) * norm;
                b1 = -2.0f * a * (m + p * c) * norm;
                b2 = a * (p + m * c - bw) * norm;
                a1 = 2.0f * (m - p * c) * norm;
                a2 = (p - m * c - bw) * norm;
            }
            break;
        }
        case kPeak2:
        {
            const float a = std::pow (10.0f, gainDb / 40.0f);
            const float alphaOverA = alpha / a;
            const float norm = 1.0f / (1.0f + alphaOverA);
            b0 = norm * (1.0f + alpha * a);
            b1 = -2.0f * c * norm;
            b2 = norm * (1.0f - alpha * a);
            a1 = b1;
            a2 = norm * (1.0f - alphaOverA);
            break;
        }
        case kNotch2:
            b0 = n;
            b1 = -2.0f * c * n;
            b2 = n;
            a1 = -2.0f * c * n;
            a2 = n * (1.0f - alpha);
            break;
        case kAllPass1:
        {
            const float x = std::exp (-w);
            b0 = x;
            b1 = -1.0f;
            a1 = -x;
            break;
        }
        case kAllPass2:
            b0 = n * (1.0f - alpha);
            b1 = -2.0f * c * n;
            b2 = n * (1.0f + alpha);
            a1 = -2.0f * c * n;
            a2 = n * (1.0f - alpha);
            break;
        default:
            // setType admits only the numbers above; a pass-through keeps the
            // output sane should that ever break.
            break;
    }

    coefficients.b0 = b0;
    coefficients.b1 = b1;
    coefficients.b2 = b2;
    coefficients.a1 = -a1;
    coefficients.a2 = -a2;
    dirty = false;
}
} // namespace qvrParamEQ
