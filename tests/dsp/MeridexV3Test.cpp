// The V3 engines' public interface and FIFO: factories and refusals, the
// start's alignment, block-size invariance, the end of input, no allocation.

#include "dsp/Meridex.h"
#include "tests/support/AllocationCounter.h"
#include "tests/dsp/support/V3TestSignals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace
{
using namespace meridex;
using namespace tavrine::dsptest;
using tavrine::test::ScopedAllocationCount;

struct Engine
{
    CMeridexProV3If* engine = nullptr;
    explicit Engine (int channels = 2, int maxBlock = 1024, double rate = kRate)
    {
        EXPECT_EQ (CMeridexProV3If::createInstance (&engine, maxBlock, channels, rate, kV3ModeEfficient, 0.1f),
                   kNoError);
    }
    ~Engine() { CMeridexProV3If::destroyInstance (&engine); }
    CMeridexProV3If* operator->() const { return engine; }
    // Sets both factors; the stretch takes the rounding of the hops.
    int set (float stretch, float pitch = 1.0f, PositionRule rule = kMovePosition)
    {
        return engine->setStretchPitch (&stretch, pitch, rule);
    }
};

// Pulls `frames` output frames in blocks of `block`, feeding exactly what the
// engine asks for (zeros past the end of the input), as the stretch source does.
Channels pull (CMeridexProV3If& engine, const Channels& input, int frames, int block)
{
    const size_t channels = input.size(), length = input[0].size();
    Channels out (channels), scratch (channels), blockData (channels, std::vector<float> (static_cast<size_t> (block)));
    std::vector<const float*> ins (channels);
    std::vector<float*> outs;
    for (auto& c : blockData)
        outs.push_back (c.data());
    for (size_t fed = 0; static_cast<int> (out[0].size()) < frames;)
    {
        const int needed = engine.setOutputBlock (block);
        const size_t available = std::min (static_cast<size_t> (needed), length - std::min (fed, length));
        for (size_t c = 0; c < channels; ++c)
        {
            scratch[c].assign (static_cast<size_t> (needed), 0.0f);
            std::copy_n (input[c].begin() + static_cast<long> (std::min (fed, length)), available, scratch[c].begin());
            ins[c] = scratch[c].data();
        }
        fed += static_cast<size_t> (needed);
        EXPECT_EQ (engine.processData (ins.data(), needed, outs.data()), kNoError) << "asked for " << needed;
        for (size_t c = 0; c < channels; ++c)
            out[c].insert (out[c].end(), blockData[c].begin(), blockData[c].end());
    }
    for (auto& c : out)
        c.resize (static_cast<size_t> (frames));
    return out;
}

TEST (V3Factory, BuildsEfficientV3AndRefusesWhatIsNotBuilt)
{
    CMeridexProV3If* engine = reinterpret_cast<CMeridexProV3If*> (&engine);
    EXPECT_EQ (CMeridexProV3If::createInstance (&engine, 128, 2, kRate, kV3ModePro, 0.1f), kModeNotBuilt);
    EXPECT_EQ (engine, nullptr);
    EXPECT_EQ (CMeridexProV3If::createInstance (&engine, 128, 2, kRate, 7, 0.1f), kModeNotBuilt);
    EXPECT_EQ (CMeridexProV3If::createInstance (&engine, 128, 2, 7999.0, kV3ModeEfficient, 0.1f), kBadSampleRate);
    EXPECT_EQ (CMeridexProV3If::createInstance (&engine, 128, 49, kRate, kV3ModeEfficient, 0.1f), kBadChannelCount);
    EXPECT_EQ (CMeridexProV3If::createInstance (&engine, 1025, 2, kRate, kV3ModeEfficient, 0.1f), kBadArgument);
    EXPECT_EQ (CMeridexProV3If::createInstance (&engine, 128, 2, kRate, kV3ModeEfficient, 0.0f), kBadArgument);
    EXPECT_EQ (CMeridexProV3If::createInstance (nullptr, 128, 2, kRate, kV3ModeEfficient, 0.1f), kBadArgument);
    EXPECT_EQ (engine, nullptr);

    CMeridexProIf* pro = nullptr;
    EXPECT_EQ (CMeridexProIf::createInstance (&pro, 128, 2, kRate, 0), kModeNotBuilt);
    EXPECT_EQ (pro, nullptr);
    CMeridexProV3If::destroyInstance (&engine); // a null pointer is ignored

    const int index = findModeIndex ("Efficient V3");
    ASSERT_EQ (index, 1);
    EXPECT_EQ (kModeTable[index].modeNumber, 11);
    EXPECT_TRUE (isModeBuilt (index));
    EXPECT_FALSE (isModeBuilt (findModeIndex ("Pro V3")));
    EXPECT_EQ (findModeIndex ("Pro V4"), -1);
}

TEST (V3Factory, RefusesFactorsAndLeavesThemAsTheyWere)
{
    Engine engine;
    float stretch = 0.05f;
    EXPECT_EQ (engine->setStretchPitch (&stretch, 1.0f, kMovePosition), kBelowMinimumFactor);
    EXPECT_FLOAT_EQ (engine->getStretchInUse(), 1.0f);
    stretch = 2.0f;
    EXPECT_EQ (engine->setStretchPitch (&stretch, 9.0f, kMovePosition), kBadArgument);
    EXPECT_EQ (engine->setFormantFactor (0.1f), kBadArgument);
    EXPECT_EQ (engine->setOutputBlock (0), -1);
    EXPECT_EQ (engine->setOutputBlock (1025), -1);
    EXPECT_GE (engine->setOutputBlock (1024), 0);

    Engine mono (1);
    EXPECT_EQ (mono->setStereoInputMode (kStereoIndependent), kNeedsStereo);
    EXPECT_EQ (engine->setStereoInputMode (kStereoIndependent), kNoError);
}

// After a reset the output starts at the first input sample: with neutral
// factors it is the input itself, and a click stretched by 2 lands at twice
// its time, also after a reset in the middle of a stream.
TEST (V3Fifo, ResetThenPullingStartsAtTheFirstInputSample)
{
    Engine engine;
    const Channels input = noise (6000, 0.5f, 3);
    const Channels out = pull (*engine.engine, input, 5000, 128);
    for (size_t i = 0; i < 5000; ++i)
        ASSERT_NEAR (out[0][i], input[0][i], 1.0e-5f) << i;

    ASSERT_EQ (engine.set (2.0f), kNoError);
    ASSERT_EQ (engine->reset(), kNoError);
    const Channels clicks = clickTrain (8000, { 3000 }, 0.9f);
    const Channels stretchedClicks = pull (*engine.engine, clicks, 9000, 128);
    const auto& y = stretchedClicks[1];
    const auto peak = std::max_element (y.begin(), y.end(),
                                        [] (float a, float b) { return std::fabs (a) < std::fabs (b); });
    EXPECT_EQ (peak - y.begin(), 6000);
}

TEST (V3Fifo, GivesTheSameOutputWhateverBlockSizeTheCallerUses)
{
    Channels input = noise (20000, 0.2f, 19);
    input[0][9000] = input[1][9000] = 0.9f; // an attack as well
    Channels reference;
    for (int block : { 1024, 1, 7, 64, 512 })
    {
        Engine engine;
        ASSERT_EQ (engine.set (1.37f, 1.12f), kNoError);
        const Channels out = pull (*engine.engine, input, 12000, block);
        if (reference.empty())
            reference = out;
        EXPECT_TRUE (out == reference) << "block " << block;
    }
}

TEST (V3Fifo, FlushDeliversExactlyWhatRemainsOfTheStretchedInput)
{
    Engine engine;
    ASSERT_EQ (engine.set (1.5f), kNoError);
    const Channels input = noise (5000, 0.3f, 9);
    const float* ins[] = { input[0].data(), input[1].data() };
    std::vector<float> a (1024), b (1024);
    float* outs[] = { a.data(), b.data() };
    engine->setOutputBlock (1024);
    int delivered = engine->processData (ins, 5000, outs) == kNoError ? 1024 : 0;
    while (engine->processData (ins, 0, outs) == kNoError)
        delivered += 1024;
    for (int flushed; (flushed = engine->flushBuffer (outs)) > 0;)
        delivered += flushed;
    EXPECT_EQ (delivered, static_cast<int> (std::lround (5000 * engine->getStretchInUse())));
    EXPECT_EQ (engine->flushBuffer (outs), kNotEnoughInput);
}

TEST (V3Fifo, ProcessingNeverAllocatesOnceCreated)
{
    Engine engine;
    ASSERT_EQ (engine.set (1.8f, 1.25f), kNoError);
    ASSERT_EQ (engine->setFormantFactor (0.8f), kNoError);
    const Channels input = noise (200000, 0.3f, 17);
    std::vector<float> a (256), b (256);
    float* outs[] = { a.data(), b.data() };
    size_t fed = 0;

    ScopedAllocationCount allocations;
    for (int block = 0; block < 200; ++block)
    {
        const int needed = engine->setOutputBlock (block % 2 == 0 ? 256 : 77);
        const float* ins[] = { input[0].data() + fed, input[1].data() + fed };
        fed += static_cast<size_t> (needed);
        EXPECT_EQ (engine->processData (ins, needed, outs), kNoError);
        if (block == 100)
        {
            EXPECT_EQ (engine.set (7.0f, 1.0f, kKeepPosition), kNoError); // a frame repeat
        }
    }
    while (engine->flushBuffer (outs) > 0)
    {
    }
    EXPECT_EQ (engine->reset(), kNoError);
    EXPECT_EQ (allocations.count(), 0u);
}
} // namespace
