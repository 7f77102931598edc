#include <gtest/gtest.h>

#include <vector>

#include "audio/MeridexAudioSource.h"
#include "controllable/api/Parameter.h"
#include "controllable/api/ParameterValue.h"
#include "engine/RelativeBpmConverter.h"
#include "engine/ResamplingSliceSumProvider.h"
#include "engine/TavrineEngine.h"
#include "engine/TimeStretchTypeListener.h"

using qvrControllableHandle::FloatParamDefHandle;
using qvrControllableHandle::IntParamDefHandle;
using qvrControllableHandle::StringParamDefHandle;

namespace
{
// The three selections as real parameters: the loop's type (with
// "Vari-Speed"), the stretch source's mode (initially "Pro", as the stretch
// source starts) and the resampling mode (2, "Looped").
struct Selections
{
    Selections()
    {
        for (auto* name : { "Pro V3", "Efficient V3", "Pro", "Efficient", "Transient", "Vari-Speed" })
            type.choices.add (juce::String (name));
        type.defaultValue = juce::String ("Pro V3");
        for (auto* name : { "Pro V3", "Efficient V3", "Pro", "Efficient", "Transient" })
            procMode.choices.add (juce::String (name));
        procMode.value = juce::String ("Pro");
        mode.minimum = 0;
        mode.maximum = 3;
        mode.defaultValue = 2;
        listener = std::make_unique<TimeStretchTypeListener> (type.get(), procMode.get(), mode.get());
    }

    juce::String typeText() { return type->getValue()->getString(); }
    juce::String procModeText() { return procMode->getValue()->getString(); }

    StringParamDefHandle type { "timeStretchType" };
    StringParamDefHandle procMode { "meridexProcMode" };
    IntParamDefHandle mode { "resamplingMode" };
    std::unique_ptr<TimeStretchTypeListener> listener;
};
} // namespace

TEST (TimeStretchType, AtConstructionTheStretchSourceTakesTheLoopsType)
{
    Selections s;
    EXPECT_EQ (s.procModeText(), "Pro V3");
    EXPECT_EQ (s.mode.read(), 2);
}

TEST (TimeStretchType, VariSpeedBringsPitchSpeedAndLeavingItRestoresTheLastRealAlgorithm)
{
    Selections s;
    s.type->getValue()->setString ("Vari-Speed");
    EXPECT_EQ (s.mode.read(), 3);
    EXPECT_EQ (s.listener->getSavedResamplingMode(), 2);
    EXPECT_EQ (s.procModeText(), "Pro V3"); // the stretch source keeps its mode

    // A mode picked while "Pitch-Speed" is on is not kept.
    s.type->getValue()->setString ("Efficient");
    EXPECT_EQ (s.typeText(), "Pro V3");
    EXPECT_EQ (s.mode.read(), 2);
}

TEST (TimeStretchType, PitchSpeedBringsVariSpeedAndLeavingItGoesToSliced)
{
    Selections s;
    s.mode.write (3);
    EXPECT_EQ (s.typeText(), "Vari-Speed");
    EXPECT_EQ (s.listener->getSavedResamplingMode(), 1);

    s.mode.write (0);
    EXPECT_EQ (s.typeText(), "Pro V3");
    EXPECT_EQ (s.mode.read(), 1);
}

TEST (TimeStretchType, TheTwoAlgorithmSelectionsFollowEachOther)
{
    Selections s;
    s.type->getValue()->setString ("Transient");
    EXPECT_EQ (s.procModeText(), "Transient");
    s.procMode->getValue()->setString ("Efficient V3");
    EXPECT_EQ (s.typeText(), "Efficient V3");
    EXPECT_EQ (s.mode.read(), 2);
}

TEST (TimeStretchType, ALoopBindsItsTypeToAStretchSourceAndItsResampler)
{
    TavrineEngine engine;
    auto* loop = engine.getLoop (2);
    juce::ReferenceCountedObjectPtr<qvrControllableAudio::MeridexAudioSource> stretch (
        new qvrControllableAudio::MeridexAudioSource (true));
    loop->bindTimeStretchParameters (stretch->meridexProcMode.get());
    EXPECT_EQ (stretch->meridexProcMode->getValue()->getString(), loop->timeStretchType->getValue()->getString());

    loop->timeEffectType->getValue()->setString ("Vari-Speed");
    EXPECT_EQ (loop->getResampler().resamplingMode.read(), 3);
    loop->getResampler().resamplingMode.write (2);
    EXPECT_EQ (loop->timeStretchType->getValue()->getString(), stretch->meridexProcMode->getValue()->getString());
    loop->bindTimeStretchParameters (nullptr);
}

TEST (RelativeBpm, ShowsTheRatioAsATempoOfTheSample)
{
    FloatParamDefHandle sourceBpm { "sourceBpm" };
    sourceBpm.value = 120.0;
    RelativeBpmConverter converter (sourceBpm.get());

    const std::pair<double, const char*> shown[] = {
        { 1.0, "120" }, { 1.5, "180" }, { 0.123, "14.76" }, { 1.0 / 3.0, "40" }, { 0.70625, "84.75" }
    };
    for (const auto& [ratio, text] : shown)
    {
        juce::String out;
        ASSERT_EQ (converter.stringFromFloat (ratio, out), qvrControllableAPI::kOk);
        EXPECT_EQ (out, text) << ratio;
    }

    const std::pair<const char*, double> parsed[] = {
        { "180", 1.5 }, { "140,5", 140.5 / 120.0 }, { " 60.0 ", 0.5 }, { "0", 1.0 }, { "-90", 1.0 }, { "fast", 1.0 }
    };
    for (const auto& [text, ratio] : parsed)
    {
        double out = 0.0;
        ASSERT_EQ (converter.floatFromString (text, out), qvrControllableAPI::kOk);
        EXPECT_DOUBLE_EQ (out, ratio) << text;
    }

    // Without a known source tempo every text means "as the sample".
    sourceBpm.value = 0.0;
    double out = 0.0;
    ASSERT_EQ (converter.floatFromString ("120", out), qvrControllableAPI::kOk);
    EXPECT_DOUBLE_EQ (out, 1.0);
}

TEST (ResamplingSliceSum, IsTheLengthOfTheLoopOverItsSlicesRatios)
{
    struct Case
    {
        std::vector<double> slices;
        double sum;
    };
    const Case cases[] = {
        { { 1.0 }, 1.0 },                // the constant slice of a loop without a sequencer
        { { 2.0 }, 0.5 },                // twice as fast: half as long
        { { 1.0, 2.0 }, 0.75 },          // half at 1, half at 2
        { { 0.5, 0.5, 0.5, 0.5 }, 2.0 }, // every slice slow
        { { 1.0, 0.0 }, 0.5 },           // a slice that cannot play adds nothing
        { {}, 1.0 },
    };
    for (const auto& c : cases)
        EXPECT_DOUBLE_EQ (ResamplingSliceSumProvider::compute (c.slices.data(), (int) c.slices.size()), c.sum)
            << c.slices.size() << " slices";
}
