#pragma once

#include <memory>
#include <juce_audio_processors/juce_audio_processors.h>

#include "controllable/api/ControllableAPI.h"
#include "controllable/api/AutomationNormalizer.h"
#include "controllable/lib/ShortcutValue.h"

namespace qvrControllableLib
{
// Ties a parameter to one slot of the host's parameter list. setNormalized is
// the host's write and runs on whatever thread the host uses: it takes no
// lock and allocates nothing (a shortcut store, then notifyChanged).
//
// The range is read from the parameter at each use (two atomic loads through
// the minimum and maximum values), so a range changed after the handle was
// made is honoured by every mapping.
class BasicAutomationHandle : public AutomationHandle
{
public:
    // A null normalizer picks one from the parameter: bool, choices, else
    // linear without dead zone. An empty name becomes the parameter's name.
    BasicAutomationHandle (ParameterDef* parameter, AutomationNormalizer* normalizer, juce::AudioProcessor* processor,
                           int index, const juce::String& name);
    ~BasicAutomationHandle() override;

    void beginGesture() override;
    void endGesture() override;
    void sendNormalized (float normalized) override;
    void sendInt (int value) override;
    void sendFloat (double value) override;
    void sendValue() override;
    void sendDefault() override;
    void setNormalized (float normalized) override;
    ParameterDef* getParameter() override { return parameter; }
    juce::String getName() override { return name; }

    float getNormalized (ParameterValue* value);
    // The handle's mapping with the parameter's present range: native value
    // to the host's 0..1 and back (for a host's text and its parsing).
    float normalize (double value);
    double denormalize (float normalized);
    int getIndex() const noexcept { return index; }

private:
    juce::AudioProcessorParameter* getHostParameter() const;
    void readRange (double& minimum, double& maximum) const;

    ParameterDef* parameter;
    std::unique_ptr<AutomationNormalizer> normalizer;
    BoolShortcutValue boolShortcut;
    IntShortcutValue intShortcut;
    FloatShortcutValue floatShortcut;
    int index;
    juce::String name;
    juce::AudioProcessor* processor;

    JUCE_DECLARE_NON_COPYABLE (BasicAutomationHandle)
};
} // namespace qvrControllableLib
