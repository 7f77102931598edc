#include "audio/InterpolatedBalanceSource.h"

namespace qvrControllableAudio
{
namespace
{
const ParameterDefPtr& defineBalance (qvrControllableHandle::FloatParamDefHandle& balance)
{
    balance.minimum = -1.0;
    balance.maximum = 1.0;
    balance.defaultValue = 0.0;
    return balance.getParameter();
}
} // namespace

InterpolatedBalanceSource::InterpolatedBalanceSource()
    : interpolator (this, this, kSubBlockSamples, this),
      smoothedBalance (interpolator.addParameter (defineBalance (balance).get(), kRampSamples))
{
    addParameter (balance.getParameter());
}

InterpolatedBalanceSource::~InterpolatedBalanceSource() = default;

void InterpolatedBalanceSource::prepareToPlay (int, double) {}

void InterpolatedBalanceSource::releaseResources() {}

void InterpolatedBalanceSource::getNextAudioBlock (const juce::AudioSourceChannelInfo& info)
{
    const double b = smoothedBalance.get();
    const float leftGain = b <= 0.0 ? 1.0f : (float) (1.0 - b);
    const float rightGain = b >= 0.0 ? 1.0f : (float) (1.0 + b);
    for (int channel = 0; channel < info.buffer->getNumChannels(); ++channel)
    {
        const float channelGain = (channel % 2 == 0) ? leftGain : rightGain;
        if (channelGain != 1.0f)
            info.buffer->applyGain (channel, info.startSample, info.numSamples, channelGain);
    }
}
} // namespace qvrControllableAudio
