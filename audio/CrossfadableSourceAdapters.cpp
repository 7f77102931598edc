#include "audio/CrossfadableSourceAdapters.h"

namespace qvrControllableAudio
{
namespace
{
void save (CrossfadableSource& adapter, CrossfadableSource* inner)
{
    adapter.inCrossfade = true;
    if (inner != nullptr)
    {
        inner->inCrossfade = true;
        inner->saveCrossfadeState();
    }
}

void restore (CrossfadableSource& adapter, CrossfadableSource* inner)
{
    adapter.inCrossfade = false;
    if (inner != nullptr)
    {
        inner->inCrossfade = false;
        inner->restoreCrossfadeState();
    }
}
} // namespace

CrossfadableRootSourceAdapter::CrossfadableRootSourceAdapter (juce::AudioSource* source, bool owned)
    : AudioSourceProviderAdapter (source, owned), inner (dynamic_cast<CrossfadableSource*> (source))
{
}

void CrossfadableRootSourceAdapter::saveCrossfadeState()
{
    save (*this, inner);
}
void CrossfadableRootSourceAdapter::restoreCrossfadeState()
{
    restore (*this, inner);
}

CrossfadableFilterSourceAdapter::CrossfadableFilterSourceAdapter (juce::AudioSource* source, bool owned)
    : ChainableAudioSourceProviderAdapter (source, owned), inner (dynamic_cast<CrossfadableSource*> (source))
{
}

void CrossfadableFilterSourceAdapter::saveCrossfadeState()
{
    save (*this, inner);
}
void CrossfadableFilterSourceAdapter::restoreCrossfadeState()
{
    restore (*this, inner);
}
} // namespace qvrControllableAudio
