#include "engine/TavrineLoopPreRenderChain.h"

#include "controllable/api/ParameterValue.h"
#include "controllable/lib/StateSerializers.h"
#include "controllable/lib/ValueModifiers.h"

#include <utility>

namespace
{
// Writes every parameter of a controllable in the state document's syntax,
// the transient ones included: a setting such as "crossfadeBufferSize" is
// kept out of saved state but still shapes a render.
class SignatureWriter : public qvrControllableLib::XmlStateSerializer
{
public:
    juce::String write (qvrControllableAPI::Controllable& parameters)
    {
        const juce::ScopedLock sl (lock);
        beginState();
        beginControllable (&parameters, {});
        for (auto* parameter : parameters.getParameters())
            writeParameter (parameter, parameter->getName());
        return getDocumentText();
    }
};
} // namespace

TavrineLoopPreRenderChain::TavrineLoopPreRenderChain()
    : ownParameters (new qvrControllableLib::BasicControllable()),
      memorySource (new qvrControllableAudio::MemoryAudioSource()),
      stretchSource (new qvrControllableAudio::MeridexAudioSource (false)),
      limiter (new qvrControllableAudio::BlockSizeLimitingSource())
{
    // The stretch source's engine works in blocks of its own size; larger
    // requests would only be cut up inside it.
    limiter->maxBlockSize.write (qvrControllableAudio::MeridexAudioSource::kBlockSize);
    stretchSource->meridexProcMode.write (juce::String (kStretchMode));

    setHeadSource (memorySource.get(), false);
    append (stretchSource.get());
    append (limiter.get());
    setTimeline (new qvrControllableAudio::SampleEventTimeline());

    defineParameters();
    addTarget (ownParameters.get());
}

TavrineLoopPreRenderChain::~TavrineLoopPreRenderChain()
{
    for (auto* p : { pitchSemitonesXy.get(), pitchSemitonesFine.get(), formantFactorXy.get() })
        p->removeChangeListener (this, true);
}

void TavrineLoopPreRenderChain::defineParameters()
{
    auto& p = *ownParameters;

    // The chain is told the factor of length; the stretch source works with
    // its inverse.
    inverseStretchFactor.bind (
        stretchSource->stretchFactor->createForwardingParameter (kInverseStretchFactor, nullptr));
    inverseStretchFactor->setModifier (new qvrControllableLib::InversionValueModifier());
    p.addParameter (inverseStretchFactor.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    p.addParameter (adjusting.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    p.addParameter (rendering.getParameter(), qvrControllableLib::ParameterPersistence::transient);

    pitchSemitonesXy.minimum = -12.0;
    pitchSemitonesXy.maximum = 12.0;
    pitchSemitonesXy.defaultValue = 0.0;
    p.addParameter (pitchSemitonesXy.getParameter());

    pitchSemitonesFine.minimum = -0.5;
    pitchSemitonesFine.maximum = 0.5;
    pitchSemitonesFine.defaultValue = 0.0;
    p.addParameter (pitchSemitonesFine.getParameter());

    formantFactorXy.minimum = 0.5;
    formantFactorXy.maximum = 2.0;
    formantFactorXy.defaultValue = 1.0;
    p.addParameter (formantFactorXy.getParameter());

    for (auto* parameter : { pitchSemitonesXy.get(), pitchSemitonesFine.get(), formantFactorXy.get() })
        parameter->addChangeListener (this, true);
}

void TavrineLoopPreRenderChain::parameterChanged (qvrControllableAPI::ParameterDef* parameter)
{
    if (parameter == formantFactorXy.get())
        stretchSource->formantFactor.write (kSliceFormantFactor * formantFactorXy.read());
    else
        stretchSource->pitchSemitones.write (kSlicePitchSemitones + pitchSemitonesXy.read()
                                             + pitchSemitonesFine.read());
}

void TavrineLoopPreRenderChain::setSignatureSources (const SignatureSources& sources)
{
    signatureSources = sources;
}

void TavrineLoopPreRenderChain::setSource (const juce::String& url, PreparedSample::Ptr sample)
{
    PreparedSample::Ptr previous;
    {
        const juce::ScopedLock sl (sourceLock);
        sourceUrl = url;
        previous = std::exchange (sourceSample, sample);
    }
    // The memory source only reads the buffer; the chain's reference keeps
    // it alive for as long as the memory source points at it.
    memorySource->setBuffer (sample != nullptr ? const_cast<juce::AudioSampleBuffer*> (&sample->getForward()) : nullptr,
                             false);
}

juce::String TavrineLoopPreRenderChain::getSourceUrl() const
{
    const juce::ScopedLock sl (sourceLock);
    return sourceUrl;
}

PreparedSample::Ptr TavrineLoopPreRenderChain::getSourceSample() const
{
    const juce::ScopedLock sl (sourceLock);
    return sourceSample;
}

void TavrineLoopPreRenderChain::releaseSourceSample()
{
    // The buffer goes first, so the memory source never points into a
    // released sample.
    memorySource->setBuffer (nullptr, false);
    PreparedSample::Ptr released;
    {
        const juce::ScopedLock sl (sourceLock);
        released = std::move (sourceSample);
    }
}

juce::String TavrineLoopPreRenderChain::getRenderSignature() const
{
    const auto& s = signatureSources;
    juce::ReferenceCountedObjectPtr<qvrControllableLib::ReferencingControllable> signatureParameters (
        new qvrControllableLib::ReferencingControllable());
    for (auto* parameter : { s.sourceBpm.get(), s.relativeBpm.get(), pitchSemitonesXy.get(), pitchSemitonesFine.get(),
                             s.pitchSemitonesSlices.get(), formantFactorXy.get(), s.formantFactorSlices.get(),
                             crossfadeBufferSize.get(), stretchSource->meridexProcMode.get() })
        if (parameter != nullptr)
            signatureParameters->addParameter (parameter);

    SignatureWriter writer;
    auto signature = writer.write (*signatureParameters);
    const double masterTempo = s.masterBpm != nullptr ? s.masterBpm->getValue()->getFloat() : 0.0;
    signature << juce::String (masterTempo);
    if (s.resamplingMode != nullptr && s.resamplingMode->getValue()->getInt() == kPitchSpeedResamplingMode)
        signature << kBeatSynchedMark;
    return signature;
}
