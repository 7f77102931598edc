#include "controllable/lib/BasicAutomationHandle.h"

#include <cmath>
#include <juce_audio_processors/juce_audio_processors.h>

#include "controllable/api/ParameterType.h"
#include "controllable/lib/AutomationNormalizers.h"

namespace qvrControllableLib
{
BasicAutomationHandle::BasicAutomationHandle (ParameterDef* p, AutomationNormalizer* n, juce::AudioProcessor* proc,
                                              int hostIndex, const juce::String& hostName)
    : parameter (p), normalizer (n), index (hostIndex), name (hostName), processor (proc)
{
    auto type = parameter->getType();
    if (normalizer == nullptr)
    {
        if (type->isBool())
            normalizer = std::make_unique<BoolAutomationNormalizer>();
        else if (parameter->getChoices()->size() > 0)
            normalizer = std::make_unique<ChoiceAutomationNormalizer> (parameter);
        else
            normalizer = std::make_unique<LinearAutomationNormalizer> (0.0f);
    }
    if (name.isEmpty())
        name = parameter->getName();

    auto value = parameter->getValue();
    if (type->isBool())
        boolShortcut.connect (value.get());
    else if (type->isInt())
        intShortcut.connect (value.get());
    else if (type->isFloat())
        floatShortcut.connect (value.get());
}

BasicAutomationHandle::~BasicAutomationHandle() = default;

void BasicAutomationHandle::readRange (double& lo, double& hi) const
{
    auto mn = parameter->getMinimum();
    auto mx = parameter->getMaximum();
    lo = (mn != nullptr && ! mn->isNull()) ? mn->getFloat() : 0.0;
    hi = (mx != nullptr && ! mx->isNull()) ? mx->getFloat() : 1.0;
}

juce::AudioProcessorParameter* BasicAutomationHandle::getHostParameter() const
{
    if (processor == nullptr)
        return nullptr;
    return processor->getParameters()[index];
}

void BasicAutomationHandle::beginGesture()
{
    if (auto* p = getHostParameter())
        p->beginChangeGesture();
}

void BasicAutomationHandle::endGesture()
{
    if (auto* p = getHostParameter())
        p->endChangeGesture();
}

void BasicAutomationHandle::sendNormalized (float normalized)
{
    // Comes back through setValue -> setNormalized, then informs the host, so
    // an editor's write takes the same path as the host's own.
    if (auto* p = getHostParameter())
        p->setValueNotifyingHost (normalized);
    else
        setNormalized (normalized);
}

float BasicAutomationHandle::normalize (double value)
{
    double minimum, maximum;
    readRange (minimum, maximum);
    return normalizer->normalize (value, minimum, maximum);
}

double BasicAutomationHandle::denormalize (float normalized)
{
    double minimum, maximum;
    readRange (minimum, maximum);
    return normalizer->denormalize (normalized, minimum, maximum);
}

void BasicAutomationHandle::sendInt (int value)
{
    sendNormalized (normalize ((double) value));
}

void BasicAutomationHandle::sendFloat (double value)
{
    if (parameter->getType()->isInt())
        sendInt ((int) std::nearbyint (value));
    else
        sendNormalized (normalize (value));
}

void BasicAutomationHandle::sendValue()
{
    sendNormalized (getNormalized (parameter->getValue().get()));
}

void BasicAutomationHandle::sendDefault()
{
    sendNormalized (getNormalized (parameter->getDefault().get()));
}

void BasicAutomationHandle::setNormalized (float normalized)
{
    // Past validate: no range check, no change strategy. The normalizer keeps
    // the value inside its range.
    if (floatShortcut.isConnected())
    {
        const double v = denormalize (normalized);
        if (floatShortcut.set (v))
            parameter->notifyChanged (true, false);
    }
    else if (intShortcut.isConnected())
    {
        const int v = (int) std::nearbyint (denormalize (normalized));
        if (intShortcut.set (v))
            parameter->notifyChanged (true, false);
    }
    else if (boolShortcut.isConnected())
    {
        if (boolShortcut.set (normalized > 0.5f))
            parameter->notifyChanged (true, false);
    }
}

float BasicAutomationHandle::getNormalized (ParameterValue* value)
{
    auto type = parameter->getType();
    if (type->isBool())
        return value->getBool() ? 1.0f : 0.0f;
    if (type->isFloat() || type->isInt())
        return normalize (value->getFloat());
    return 0.0f;
}
} // namespace qvrControllableLib
