#include "audio/AudioSourceProvider.h"

#include "controllable/api/Parameter.h"

namespace qvrControllableAudio
{
ParameterDefPtr ChainableAudioSourceProvider::findUpstreamParameter (const juce::String& name)
{
    AudioSourceProvider* provider = getUpstream();
    while (provider != nullptr)
    {
        if (provider->hasControllable())
            if (auto parameter = provider->getControllable()->findParameter (name))
                return parameter;
        auto* chainable = dynamic_cast<ChainableAudioSourceProvider*> (provider);
        if (chainable == nullptr)
            break;
        provider = chainable->getUpstream();
    }
    return nullptr;
}
} // namespace qvrControllableAudio
