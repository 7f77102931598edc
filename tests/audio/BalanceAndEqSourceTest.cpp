#include <gtest/gtest.h>

#include <cmath>

#include "audio/InterpolatedBalanceSource.h"
#include "audio/ParamEqSource.h"
#include "tests/audio/AudioSourceTestSupport.h"

using namespace qvrControllableAudio;
using namespace tavrine::test;

namespace
{
void setShape (ParamEqSource& eq, const char* type, const char* slope, double frequency)
{
    eq.filterType.write (type);
    eq.filterSlope.write (slope);
    eq.filterFrequency.write (frequency);
}

// Power response in dB of one stage set as the source sets it.
double stageResponseDb (int type, float frequency, float q, float atHz)
{
    qvrParamEQ::CParametricEqIf* raw = nullptr;
    EXPECT_EQ (qvrParamEQ::CParametricEqIf::createInstance (&raw, 44100.0f, 2), 0);
    std::unique_ptr<qvrParamEQ::CParametricEqIf> stage (raw);
    EXPECT_EQ (stage->setType (type) + stage->setParameter (qvrParamEQ::kFrequency, frequency)
                   + stage->setParameter (qvrParamEQ::kQ, q),
               0);
    return stage->getResponseDb (atHz);
}
} // namespace

TEST (BalanceSource, AtOneSilencesEvenChannelsAndLeavesOddChannelsUntouched)
{
    auto data = makeNoise (4, 2048, 1);
    Fed<InterpolatedBalanceSource> fed (data);
    fed.link->balance.write (1.0);
    fed.prepare(); // playback starts at the setting
    const auto out = fed.run (4, 2048);
    for (int c = 0; c < 4; ++c)
        for (int i = 0; i < 2048; ++i)
            ASSERT_EQ (out.getSample (c, i), c % 2 == 0 ? 0.0f : data.getSample (c, i)) << c << " " << i;
}

TEST (EqSource, LowAt24dBAttenuates8kHzByTwoCascadedStagesAndPasses100Hz)
{
    for (double hz : { 8000.0, 100.0 })
    {
        auto data = makeSine (2, 22050, hz);
        Fed<ParamEqSource> fed (data);
        setShape (*fed.link, "Low", "24dB", 1000.0);
        fed.prepare();
        const auto out = fed.run (2, 22050);
        // After the filters settle.
        const double gainDb = 20.0
                              * std::log10 (out.getRMSLevel (1, 11025, 11025) / data.getRMSLevel (1, 11025, 11025));
        const double expected = 2.0 * stageResponseDb (qvrParamEQ::kLowPass2, 1000.0f, 0.5f, (float) hz);
        EXPECT_NEAR (gainDb, expected, hz > 1000.0 ? 1.0 : 0.2) << hz;
        EXPECT_TRUE (hz > 1000.0 ? expected < -60.0 : std::abs (gainDb) < 0.2) << hz;
    }
}

TEST (EqSource, SettingsHoldDuringACrossfadeAndTheNewAudioStartsFromFreshFilters)
{
    auto data = makeNoise (2, 8192, 5);
    Fed<ParamEqSource> faded (data), fresh (data);
    for (auto* fed : { &faded, &fresh })
    {
        setShape (*fed->link, "Low", "48dB", 800.0);
        fed->prepare();
    }
    faded.run (2, 1000, 100);

    // The chain's pre-render; a change during it waits.
    faded.link->saveCrossfadeState();
    setShape (*faded.link, "High", "24dB", 3000.0);
    faded.run (2, 128);
    EXPECT_EQ (faded.link->getNumActiveStages(), 4);
    EXPECT_EQ (faded.link->getStage (0)->getParameter (qvrParamEQ::kFrequency), 800.0f);
    faded.link->restoreCrossfadeState();

    setShape (*fresh.link, "High", "24dB", 3000.0);
    fresh.prepare();
    for (auto* fed : { &faded, &fresh })
        fed->memory.setNextReadPosition (2000);
    // Equal up to each stage's own anti-denormal noise.
    EXPECT_TRUE (sameSamples (faded.run (2, 512), fresh.run (2, 512), 1e-6f));
}
