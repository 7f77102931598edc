#include "audio/ParamEqSource.h"

#include "controllable/api/Parameter.h"
#include "controllable/api/ParameterValue.h"
#include "dsp/CParametricEq.h"
#include "dsp/MeridexErrors.h"

namespace qvrControllableAudio
{
namespace
{
// Biquad type of each `filterType` choice; "Off" (index 0) has none.
constexpr int kBiquadTypes[] = { -1, qvrParamEQ::kLowPass2, qvrParamEQ::kHighPass2, qvrParamEQ::kBandPass2,
                                 qvrParamEQ::kNotch2 };
constexpr int kNumTypes = (int) (sizeof (kBiquadTypes) / sizeof (kBiquadTypes[0]));
constexpr const char* kTypeNames[] = { "Off", "Low", "High", "Band", "Notch" };
constexpr const char* kSlopeNames[] = { "12dB", "24dB", "36dB", "48dB", "60dB", "72dB" };
constexpr double kDefaultRate = 44100.0;
constexpr int kNumChannels = 2;
} // namespace

ParamEqSource::ParamEqSource() : interpolator (this, this, kSubBlockSamples, this)
{
    for (auto* name : kTypeNames)
        filterType.choices.add (name);
    filterType.defaultValue = juce::String (kTypeNames[0]);
    for (auto* name : kSlopeNames)
        filterSlope.choices.add (name);
    filterSlope.defaultValue = juce::String (kSlopeNames[1]);

    filterFrequency.minimum = 20.0;
    filterFrequency.maximum = 20000.0;
    filterFrequency.defaultValue = 5000.0;
    filterQ.minimum = 0.1;
    filterQ.maximum = 3.0;
    filterQ.defaultValue = 0.5;
    filterGain.minimum = 0.0;
    filterGain.maximum = 1.0;

    for (auto* handle : { &filterType, &filterSlope })
        addParameter (handle->getParameter());
    for (auto* handle : { &filterFrequency, &filterQ, &filterGain })
        addParameter (handle->getParameter());

    smoothedFrequency = &interpolator.addParameter (filterFrequency.get(), kRampSamples);
    smoothedQ = &interpolator.addParameter (filterQ.get(), kRampSamples);

    createStages (kDefaultRate);
    applyShape (filterType.choices.getCurrentChoiceIndex(), filterSlope.choices.getCurrentChoiceIndex());

    filterType->addChangeListener (this, true);
    filterSlope->addChangeListener (this, true);
}

ParamEqSource::~ParamEqSource()
{
    filterType->removeChangeListener (this, true);
    filterSlope->removeChangeListener (this, true);
}

const qvrParamEQ::CParametricEqIf* ParamEqSource::getStage (int index) const noexcept
{
    return juce::isPositiveAndBelow (index, kNumStages) ? stages[(size_t) index].get() : nullptr;
}

void ParamEqSource::createStages (double sampleRate)
{
    cascadeUsable = true;
    for (size_t i = 0; i < stages.size(); ++i)
    {
        qvrParamEQ::CParametricEqIf* created = nullptr;
        if (qvrParamEQ::CParametricEqIf::createInstance (&created, (float) sampleRate, kNumChannels)
            != meridex::kNoError)
            created = nullptr; // a stage that could not be made is skipped
        stages[i].reset (created);
        cascade[i] = dynamic_cast<qvrParamEQ::CParametricEq*> (created);
        cascadeUsable = cascadeUsable && (created == nullptr || cascade[i] != nullptr);
    }
    stageRate = sampleRate;
}

void ParamEqSource::runStages (float* const* channels, int numSamples)
{
    // The cascade gives bit for bit what the loop below gives, only faster:
    // it interleaves the stages' recursions sample by sample.
    if (cascadeUsable)
    {
        juce::ignoreUnused (
            qvrParamEQ::CParametricEq::processCascade (cascade.data(), activeStages, channels, numSamples));
        return;
    }
    for (int i = 0; i < activeStages; ++i)
        if (auto& stage = stages[(size_t) i])
            juce::ignoreUnused (stage->process (channels, channels, numSamples));
}

void ParamEqSource::parameterChanged (qvrControllableAPI::ParameterDef*)
{
    // Any thread: the stages belong to the audio thread, which applies the
    // choice before its next sub-block.
    requestedType.store (filterType.choices.getCurrentChoiceIndex(), std::memory_order_relaxed);
    requestedSlope.store (filterSlope.choices.getCurrentChoiceIndex(), std::memory_order_relaxed);
    shapeChanged.store (true, std::memory_order_release);
}

void ParamEqSource::applyShape (int newTypeIndex, int newSlopeIndex)
{
    // A text that is no choice (index -1) changes nothing.
    if (juce::isPositiveAndBelow (newTypeIndex, kNumTypes))
        typeIndex = newTypeIndex;
    if (juce::isPositiveAndBelow (newSlopeIndex, kNumStages))
        slopeIndex = newSlopeIndex;

    const bool off = typeIndex == 0;
    const int biquadType = kBiquadTypes[typeIndex];
    for (auto& stage : stages)
    {
        if (stage == nullptr)
            continue;
        stage->setBypass (off);
        if (! off && stage->getType() != biquadType)
            juce::ignoreUnused (stage->setType (biquadType));
    }

    const int newActive = off ? 0 : slopeIndex + 1;
    // Stages that sat idle hold the memory of old audio.
    if (newActive > activeStages)
        resetStages (activeStages, newActive);
    activeStages = newActive;
    refreshCoefficients (true);
}

void ParamEqSource::refreshCoefficients (bool forced)
{
    const double frequency = smoothedFrequency->get();
    const double q = smoothedQ->get();
    if (! forced && frequency == sentFrequency && q == sentQ)
        return;
    // Both stay inside the stages' ranges by the parameters' own (20..20000 Hz,
    // 0.1..3); a refused value would leave a stage at its last one.
    for (auto& stage : stages)
        if (stage != nullptr)
        {
            juce::ignoreUnused (stage->setParameter (qvrParamEQ::kFrequency, (float) frequency));
            juce::ignoreUnused (stage->setParameter (qvrParamEQ::kQ, (float) q));
        }
    sentFrequency = frequency;
    sentQ = q;
}

void ParamEqSource::resetStages (int first, int last)
{
    for (int i = first; i < last; ++i)
        if (stages[(size_t) i] != nullptr)
            stages[(size_t) i]->reset();
}

void ParamEqSource::prepareToPlay (int, double sampleRate)
{
    if (sampleRate > 0.0 && sampleRate != stageRate)
    {
        createStages (sampleRate);
        activeStages = 0; // every new stage is fresh; applyShape counts them in
        applyShape (typeIndex, slopeIndex);
    }
    resetStages (0, kNumStages);
    wasInCrossfade = false;
}

void ParamEqSource::releaseResources() {}

void ParamEqSource::takePendingShape()
{
    if (shapeChanged.exchange (false, std::memory_order_acquire))
        applyShape (requestedType.load (std::memory_order_relaxed), requestedSlope.load (std::memory_order_relaxed));
}

void ParamEqSource::saveCrossfadeState()
{
    takePendingShape();
    interpolator.takePendingChanges();
    inCrossfade = true;
}

void ParamEqSource::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    if (! inCrossfade)
        takePendingShape();

    if (wasInCrossfade && ! inCrossfade)
    {
        interpolator.jumpAll();
        resetStages (0, activeStages);
    }
    if (! inCrossfade)
        refreshCoefficients (false);
    wasInCrossfade = inCrossfade;

    processStages (info);
#if JUCE_DEBUG
    jassert (checkInvariants());
#endif
}

bool ParamEqSource::checkInvariants() const noexcept
{
    if (activeStages != (typeIndex == 0 ? 0 : slopeIndex + 1))
        return false;
    for (const auto& stage : stages)
        if (stage != nullptr
            && (stage->getBypass() != (typeIndex == 0)
                || (typeIndex != 0 && stage->getType() != kBiquadTypes[typeIndex])))
            return false;
    return true;
}

void ParamEqSource::processStages (const juce::AudioSourceChannelInfo& info)
{
    const int numChannels = info.buffer->getNumChannels();
    if (activeStages == 0 || numChannels == 0 || info.numSamples <= 0)
        return;

    if (numChannels >= kNumChannels)
    {
        float* channels[kNumChannels] = { info.buffer->getWritePointer (0, info.startSample),
                                          info.buffer->getWritePointer (1, info.startSample) };
        runStages (channels, info.numSamples);
        return;
    }

    // Mono: the second channel is scratch, a chunk at a time. Each stage is
    // linear and keeps its own state, so running the cascade chunk by chunk
    // gives what running it stage by stage over the block would.
    float* mono = info.buffer->getWritePointer (0, info.startSample);
    for (int done = 0; done < info.numSamples; done += kSubBlockSamples)
    {
        const int n = juce::jmin (kSubBlockSamples, info.numSamples - done);
        juce::FloatVectorOperations::clear (scratch, n);
        float* channels[kNumChannels] = { mono + done, scratch };
        runStages (channels, n);
    }
}
} // namespace qvrControllableAudio
