#include "dsp/MeridexOffline.h"

#include "dsp/Meridex.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace meridex
{
namespace
{
constexpr int kOfflineBlock = kMaxBlockSize;
constexpr float kOfflineMinStretch = 0.1f;

// Owns an engine of either family; destroyed through the family's function.
template <typename Engine>
struct EngineHolder
{
    Engine* engine = nullptr;
    ~EngineHolder() { Engine::destroyInstance (&engine); }
};

int createEngine (EngineHolder<CMeridexProV3If>& holder, const MeridexMode& mode, int numChannels,
                  double sampleRate) noexcept
{
    return CMeridexProV3If::createInstance (&holder.engine, kOfflineBlock, numChannels, sampleRate, mode.libraryMode,
                                            kOfflineMinStretch);
}

int createEngine (EngineHolder<CMeridexProIf>& holder, const MeridexMode& mode, int numChannels,
                  double sampleRate) noexcept
{
    return CMeridexProIf::createInstance (&holder.engine, kOfflineBlock, numChannels, sampleRate, mode.libraryMode);
}

// Appends up to `count` frames of block to out, first skipping what is left
// of `skip`; returns the frames appended.
long long append (std::vector<std::vector<float>>& out, const std::vector<std::vector<float>>& block, int count,
                  long long& skip, long long written, long long total)
{
    int from = 0;
    if (skip > 0)
    {
        from = static_cast<int> (std::min<long long> (skip, count));
        skip -= from;
    }
    const long long room = total - written;
    const int take = static_cast<int> (std::min<long long> (count - from, room));
    for (size_t c = 0; c < out.size() && take > 0; ++c)
        std::copy (block[c].begin() + from, block[c].begin() + from + take, out[c].begin() + written);
    return take > 0 ? take : 0;
}

// Creates the engine of `mode`, sets the factors and runs the whole input
// through it. Both families share the calls used here and their contract:
// output starts at the first input sample after a fresh start, flushBuffer
// drains the end. May throw std::bad_alloc; the caller catches it.
template <typename Engine>
int run (const MeridexMode& mode, const float* const* in, int numChannels, int numFrames, double sampleRate,
         double timeFactor, double pitchSemitones, double formantFactor, std::vector<std::vector<float>>& out)
{
    EngineHolder<Engine> holder;
    int result = createEngine (holder, mode, numChannels, sampleRate);
    if (result != kNoError)
        return result;
    Engine& engine = *holder.engine;

    // The player sends its formant parameter inverted; so does this.
    if ((result = engine.setFormantFactor (static_cast<float> (1.0 / formantFactor))) != kNoError)
        return result;
    // The pitch stays exact and so does the stretch: the synthesis hops
    // alternate so that their mean is exact. The length is made exact at the
    // end.
    float stretch = static_cast<float> (timeFactor);
    const float pitch = static_cast<float> (std::pow (2.0, pitchSemitones / 12.0));
    if ((result = engine.setStretchPitch (&stretch, pitch, kMovePosition)) != kNoError)
        return result;

    const long long total = std::llround (timeFactor * numFrames);
    out.assign (static_cast<size_t> (numChannels), std::vector<float> (static_cast<size_t> (total), 0.0f));
    if (total == 0)
        return kNoError;

    std::vector<std::vector<float>> blockData (static_cast<size_t> (numChannels),
                                               std::vector<float> (kOfflineBlock, 0.0f));
    std::vector<float*> blockPointers (static_cast<size_t> (numChannels));
    std::vector<const float*> inputPointers (static_cast<size_t> (numChannels));
    for (int c = 0; c < numChannels; ++c)
        blockPointers[static_cast<size_t> (c)] = blockData[static_cast<size_t> (c)].data();

    // The engine starts its output at the first input sample; whatever
    // latency it still reports is pulled and dropped here.
    long long skip = std::max (0LL, std::llround (engine.getLatency() * stretch));
    long long written = 0;
    int fed = 0;
    engine.setOutputBlock (kOfflineBlock);
    while (fed < numFrames && written < total)
    {
        const int needed = engine.getFramesNeeded();
        const int count = std::min (needed, numFrames - fed);
        for (int c = 0; c < numChannels; ++c)
            inputPointers[static_cast<size_t> (c)] = in[c] + fed;
        const int status = engine.processData (inputPointers.data(), count, blockPointers.data());
        fed += count;
        if (status == kNoError)
            written += append (out, blockData, kOfflineBlock, skip, written, total);
        else if (status != kNotEnoughInput)
            return status;
        if (needed == 0 && status != kNoError)
            break;
    }
    while (written < total)
    {
        const int flushed = engine.flushBuffer (blockPointers.data());
        if (flushed <= 0)
            break;
        written += append (out, blockData, flushed, skip, written, total);
    }
    return kNoError;
}
} // namespace

int stretchOffline (const float* const* in, int numChannels, int numFrames, double sampleRate, double timeFactor,
                    double pitchSemitones, double formantFactor, std::vector<std::vector<float>>& out,
                    const char* modeText)
{
    out.clear();
    if (numChannels < kMinChannels || numChannels > kMaxChannels)
        return kBadChannelCount;
    if (! (sampleRate >= kMinSampleRate && sampleRate <= kMaxSampleRate))
        return kBadSampleRate;
    if (numFrames < 0 || (numFrames > 0 && in == nullptr) || ! std::isfinite (timeFactor) || timeFactor <= 0.0
        || ! std::isfinite (pitchSemitones) || ! std::isfinite (formantFactor) || formantFactor <= 0.0)
        return kBadArgument;
    // An unknown text gets what a factory answers for an unknown mode number.
    const int modeIndex = findModeIndex (modeText);
    if (modeIndex < 0)
        return kBadArgument;
    const MeridexMode& mode = kModeTable[modeIndex];

    int result = kMemoryError;
    try
    {
        if (mode.family == MeridexFamily::kV3)
            result = run<CMeridexProV3If> (mode, in, numChannels, numFrames, sampleRate, timeFactor, pitchSemitones,
                                           formantFactor, out);
        else
            result = run<CMeridexProIf> (mode, in, numChannels, numFrames, sampleRate, timeFactor, pitchSemitones,
                                         formantFactor, out);
    }
    catch (const std::bad_alloc&)
    {
        result = kMemoryError;
    }
    if (result != kNoError)
        out.clear();
    return result;
}
} // namespace meridex
