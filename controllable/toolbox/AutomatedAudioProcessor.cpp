#include "controllable/toolbox/AutomatedAudioProcessor.h"

#include "controllable/api/Parameter.h"
#include "controllable/api/ParameterType.h"
#include "controllable/api/ParameterValue.h"
#include "controllable/api/ParameterValueList.h"
#include "controllable/api/ValueConverter.h"
#include "controllable/lib/ParameterTypeImpl.h"

namespace qvrControllableToolbox
{
juce::String AutomationEntry::hostIdForPath (const juce::String& path)
{
    // The ID is what hosts store in sessions (VST3 hashes it, LV2 writes it
    // into the manifest as a turtle name, which may not hold a '.').
    return path.replaceCharacter ('.', '_');
}

AutomationEntry::AutomationEntry (const juce::String& entryPath, const juce::String& entryLabel, ParameterDef* target)
    : juce::AudioProcessorParameterWithID (juce::ParameterID { hostIdForPath (entryPath), 1 }, entryLabel),
      path (entryPath), label (entryLabel), parameter (target)
{
}

void AutomationEntry::attach (juce::AudioProcessor& processor, int index, AutomationNormalizer* normalizer)
{
    handleHolder = parameter->createAutomationHandle (&processor, index, label, normalizer);
    handle = dynamic_cast<qvrControllableLib::BasicAutomationHandle*> (handleHolder.get());
    jassert (handle != nullptr);
}

void AutomationEntry::release()
{
    handle = nullptr;
    handleHolder = nullptr;
    parameter = nullptr;
}

float AutomationEntry::getValue() const
{
    return handle->getNormalized (parameter->getValue().get());
}

void AutomationEntry::setValue (float newValue)
{
    handle->setNormalized (juce::jlimit (0.0f, 1.0f, newValue));
}

float AutomationEntry::getDefaultValue() const
{
    return handle->getNormalized (parameter->getDefault().get());
}

juce::String AutomationEntry::getName (int maximumStringLength) const
{
    return label.substring (0, maximumStringLength);
}

// Text and parsing go through the handle's normalizer with the present
// range, the same mapping as the host's writes, so that the text a host shows
// for a position is the value a write of that position stores.
juce::String AutomationEntry::getText (float normalisedValue, int maximumStringLength) const
{
    auto converter = parameter->getConverter();
    juce::String text;
    auto type = parameter->getType();
    const double v = handle->denormalize (juce::jlimit (0.0f, 1.0f, normalisedValue));
    if (type->isBool())
        converter->stringFromBool (v > 0.5, text);
    else if (type->isInt())
        converter->stringFromInt ((int) std::nearbyint (v), text);
    else
        converter->stringFromFloat (v, text);
    return maximumStringLength > 0 ? text.substring (0, maximumStringLength) : text;
}

float AutomationEntry::getValueForText (const juce::String& text) const
{
    auto converter = parameter->getConverter();
    double v = 0.0;
    if (parameter->getType()->isBool())
    {
        bool b = false;
        converter->boolFromString (text, b);
        v = b ? 1.0 : 0.0;
    }
    else
        converter->floatFromString (text, v);
    return juce::jlimit (0.0f, 1.0f, handle->normalize (v));
}

int AutomationEntry::getNumSteps() const
{
    const int k = parameter->getChoices()->size();
    return k > 1 ? k : juce::AudioProcessor::getDefaultNumParameterSteps();
}

bool AutomationEntry::isDiscrete() const
{
    return parameter->getChoices()->size() > 1 || parameter->getType()->isInt();
}

bool AutomationEntry::isBoolean() const
{
    return parameter->getType()->isBool();
}

namespace
{
// The parameter types' timers and drain live on the message thread.
bool messageThreadIsHeld()
{
    return juce::MessageManager::getInstanceWithoutCreating() == nullptr
           || juce::MessageManager::existsAndIsLockedByCurrentThread();
}
} // namespace

AutomatedAudioProcessor::AutomatedAudioProcessor (const BusesProperties& buses) : juce::AudioProcessor (buses)
{
    jassert (messageThreadIsHeld());
    qvrControllableLib::ParameterTypes::startAllAsyncUpdates();
}

AutomatedAudioProcessor::~AutomatedAudioProcessor()
{
    jassert (messageThreadIsHeld());
    qvrControllableLib::ParameterTypes::stopAllAsyncUpdates();
}

int AutomatedAudioProcessor::addAutomation (const juce::String& path, const juce::String& label)
{
    jassert (automationRoot != nullptr);
    auto parameter = automationRoot != nullptr ? automationRoot->findParameter (path) : nullptr;
    if (parameter == nullptr)
    {
        jassertfalse; // a path of the fixed table that the engine does not publish
        return -1;
    }
    auto* entry = new AutomationEntry (path, label, parameter.get());
    addParameter (entry); // the processor owns it from here
    const int index = entries.size();
    entries.add (entry);
    entry->attach (*this, entry->getParameterIndex());
    jassert (entry->getParameterIndex() == index);
    return index;
}

void AutomatedAudioProcessor::releaseAutomation()
{
    for (auto* entry : entries)
        entry->release();
    automationRoot = nullptr;
}

void AutomatedAudioProcessor::setCurrentProgram (int index)
{
    const juce::ScopedLock sl (lock);
    if (juce::isPositiveAndBelow (index, programNames.size()))
        currentProgram = index;
}

void AutomatedAudioProcessor::changeProgramName (int index, const juce::String& newName)
{
    const juce::ScopedLock sl (lock);
    if (juce::isPositiveAndBelow (index, programNames.size()))
        programNames.set (index, newName);
}
} // namespace qvrControllableToolbox
