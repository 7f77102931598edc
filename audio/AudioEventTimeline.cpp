#include "audio/AudioEventTimeline.h"

namespace qvrControllableAudio
{
AudioEventTimeline::AudioEventTimeline()
{
    addParameter (currentTime.getParameter(), true);
    currentTimeShortcut.connect (currentTime->getValue().get());
}

void AudioEventTimeline::setPosition (const double& position)
{
    currentTimeShortcut.setNotifying (position);
}
} // namespace qvrControllableAudio
