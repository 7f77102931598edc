#include "audio/AudioEventTimeline.h"

namespace qvrControllableAudio
{
AudioEventTimeline::AudioEventTimeline()
{
    addParameter (currentTime.getParameter(), qvrControllableLib::ParameterPersistence::transient);
    currentTimeShortcut.connect (currentTime->getValue().get());
}

void AudioEventTimeline::setPosition (const double& position)
{
    currentTimeShortcut.setNotifying (position);
}
} // namespace qvrControllableAudio
