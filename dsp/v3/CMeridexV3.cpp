#include "dsp/v3/CMeridexV3.h"

#include <cmath>
#include <cstring>

namespace meridex
{
CMeridexV3::CMeridexV3 (int maximumBlock, int numChannels, double rate, float minimumStretch) noexcept
    : direct (numChannels, static_cast<float> (rate), minimumStretch), maxBlock (maximumBlock), block (maximumBlock),
      channels (numChannels), sampleRate (rate), minStretch (minimumStretch)
{
}

int CMeridexV3::init() noexcept
{
    initialised = false;
    if (direct.init() != kNoError)
        return kMemoryError;
    const int frameSize = direct.getCore().getFrameSize();
    if (split.init (frameSize / 4, channels, static_cast<float> (sampleRate)) != kNoError)
        return kMemoryError;
    const int hop = split.getHop();

    // The worst block: the smallest stretch (minStretch over the highest
    // pitch) asks for that many input frames per output frame, plus a frame
    // and the start.
    const double perOutput = CMeridexCoreBase::kMaxPitch / minStretch;
    inputCapacity = static_cast<int> (std::ceil (maxBlock * perOutput)) + 4 * frameSize + 2 * hop;
    coreCapacity = inputCapacity + frameSize + hop;
    if (coreFifo.init (channels, coreCapacity) != kNoError
        || outFifo.init (channels, maxBlock + direct.getMaxOutputFrames()) != kNoError
        || zeros.init (channels, hop) != kNoError)
        return kMemoryError;
    initialised = true;
    return reset();
}

int CMeridexV3::reset() noexcept
{
    if (! initialised)
        return kMemoryError;
    direct.reset();
    split.reset();
    coreRead = coreWrite = 0;
    outCount = 0;
    splitDropLeft = split.getLatency();
    expectedOutput = 0.0;
    delivered = 0;
    return kNoError;
}

int CMeridexV3::setStretchPitch (float* stretch, float pitch, PositionRule rule) noexcept
{
    return initialised ? direct.setStretchPitch (stretch, pitch, rule) : kMemoryError;
}

int CMeridexV3::setStretchPitch (float stretch, float* pitch, PositionRule rule) noexcept
{
    return initialised ? direct.setStretchPitch (stretch, pitch, rule) : kMemoryError;
}

int CMeridexV3::setFormantFactor (float factor) noexcept
{
    return initialised ? split.setFormantFactor (factor) : kMemoryError;
}

double CMeridexV3::getLatency() noexcept
{
    return direct.getLatencyFrames() / static_cast<double> (direct.getCore().getStretch());
}

int CMeridexV3::setOutputBlock (int numFrames) noexcept
{
    if (numFrames < 1 || numFrames > maxBlock)
        return -1;
    block = numFrames;
    return getFramesNeeded();
}

// Core input that yields outputFrames more output (and what the start still
// drops): each frame gives about synthesisHop / corrected pitch, and only the
// first synthesis of an analysis frame reads input.
int CMeridexV3::coreInputFor (int outputFrames) const noexcept
{
    const CMeridexEffV3Core& core = direct.getCore();
    const double perFrame = core.synthesisHop() / static_cast<double> (core.getStretchCorrected());
    const double wanted = outputFrames + direct.getPreRollLeft() + 2.0;
    const long long frames = static_cast<long long> (std::ceil (wanted / perFrame));
    if (core.isRepeatLocked())
        return static_cast<int> (frames * core.analysisHop());
    const int d = core.getRepeat();
    const int first = (d - core.getRepeatIndex()) % d;
    const long long reading = first < frames ? (frames - 1 - first) / d + 1 : 0;
    return static_cast<int> (reading * core.analysisHop());
}

int CMeridexV3::getFramesNeeded() noexcept
{
    const int shortfall = block - outCount;
    if (! initialised || shortfall <= 0)
        return 0;
    const int coreNeed = coreInputFor (shortfall) - (coreWrite - coreRead);
    if (coreNeed <= 0)
        return 0;
    const int hop = split.getHop();
    const int hops = (coreNeed + splitDropLeft + hop - 1) / hop;
    const int raw = hops * hop - split.getPending();
    return raw > 0 ? raw : 0;
}

int CMeridexV3::getMaxFramesNeeded (float stretch, float pitch) noexcept
{
    const float r = stretch * pitch;
    if (! std::isfinite (r) || r < minStretch || r > CMeridexCoreBase::kMaxStretchTotal
        || pitch < CMeridexCoreBase::kMinPitch || pitch > CMeridexCoreBase::kMaxPitch)
        return -1;
    const int frameSize = direct.getCore().getFrameSize();
    const int d = CMeridexCoreBase::repeatForRatio (r);
    const int ha = CMeridexCoreBase::analysisHopFor (frameSize, r / static_cast<float> (d), d);
    const int hs = static_cast<int> (ha * static_cast<double> (r / static_cast<float> (d)) + 1.0e-6);
    if (hs < 1)
        return -1;
    const double latency = CMeridexEffV3Core::latencyFor (frameSize, ha, hs, d, pitch);
    const double frames = std::ceil ((block + latency + 2.0) * pitch / hs) + 1.0;
    return static_cast<int> (std::ceil (frames / d)) * ha + 2 * split.getHop();
}

void CMeridexV3::compactCore() noexcept
{
    if (coreRead == 0)
        return;
    const int held = coreWrite - coreRead;
    for (int c = 0; c < channels; ++c)
        std::memmove (coreFifo[c], coreFifo[c] + coreRead, sizeof (float) * static_cast<size_t> (held));
    coreRead = 0;
    coreWrite = held;
}

void CMeridexV3::feed (const float* const* inputs, int count) noexcept
{
    float* targets[kMaxChannels];
    for (int c = 0; c < channels; ++c)
        targets[c] = coreFifo[c] + coreWrite;
    coreWrite += split.process (inputs, count, targets, nullptr);
    const int held = coreWrite - coreRead;
    const int drop = splitDropLeft < held ? splitDropLeft : held;
    coreRead += drop;
    splitDropLeft -= drop;
}

void CMeridexV3::runFrames (int wanted) noexcept
{
    const float* inputs[kMaxChannels];
    float* outputs[kMaxChannels];
    while (outCount < wanted)
    {
        const int need = direct.getFramesNeeded();
        if (coreWrite - coreRead < need)
            return;
        for (int c = 0; c < channels; ++c)
        {
            inputs[c] = coreFifo[c] + coreRead;
            outputs[c] = outFifo[c] + outCount;
        }
        const int written = direct.process (inputs, need, outputs);
        if (written < 0)
            return;
        coreRead += need;
        outCount += written;
    }
}

void CMeridexV3::deliver (float* const* outputs, int count) noexcept
{
    for (int c = 0; c < channels; ++c)
    {
        if (outputs != nullptr && outputs[c] != nullptr)
            std::memcpy (outputs[c], outFifo[c], sizeof (float) * static_cast<size_t> (count));
        std::memmove (outFifo[c], outFifo[c] + count, sizeof (float) * static_cast<size_t> (outCount - count));
    }
    outCount -= count;
    delivered += count;
}

int CMeridexV3::processData (const float* const* inputs, int numInputFrames, float* const* outputs) noexcept
{
    if (! initialised)
        return kMemoryError;
    if (numInputFrames < 0 || (numInputFrames > 0 && inputs == nullptr))
        return kBadArgument;
    compactCore();
    if (numInputFrames > coreCapacity - coreWrite - split.getHop())
        return kBadArgument;

    if (numInputFrames > 0)
    {
        feed (inputs, numInputFrames);
        expectedOutput += numInputFrames * static_cast<double> (direct.getCore().getStretch());
    }
    runFrames (block);
    if (outCount < block)
        return kNotEnoughInput;
    deliver (outputs, block);
    return kNoError;
}

int CMeridexV3::flushBuffer (float* const* outputs) noexcept
{
    if (! initialised)
        return kMemoryError;
    const long long remaining = std::llround (expectedOutput) - delivered;
    if (remaining <= 0)
        return kNotEnoughInput;
    const int wanted = remaining < block ? static_cast<int> (remaining) : block;

    const float* silence[kMaxChannels];
    for (int c = 0; c < channels; ++c)
        silence[c] = zeros[c];
    // Zero input runs the frames on until the block is full; the bound only
    // guards against a state that cannot make progress.
    for (int rounds = 0; outCount < wanted && rounds < (1 << 20); ++rounds)
    {
        runFrames (wanted);
        if (outCount >= wanted)
            break;
        compactCore();
        feed (silence, split.getHop());
    }
    const int count = outCount < wanted ? outCount : wanted;
    deliver (outputs, count);
    return count;
}
} // namespace meridex
