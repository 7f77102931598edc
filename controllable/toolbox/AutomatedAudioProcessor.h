#pragma once

#include <juce_audio_processors/juce_audio_processors.h>

#include "controllable/api/Controllable.h"
#include "controllable/lib/BasicAutomationHandle.h"

namespace qvrControllableToolbox
{
using namespace qvrControllableAPI;

// One host parameter: a fixed path into the framework and the name the host
// shows. Value, default, text and writes go through the parameter's
// automation handle, so a host write takes the framework's lock-free path
// (store, synchronous listeners, FIFO to the message thread).
class AutomationEntry : public juce::AudioProcessorParameterWithID
{
public:
    AutomationEntry (const juce::String& path, const juce::String& label, ParameterDef* parameter);

    const juce::String& getPath() const noexcept { return path; }
    // The stable string ID under which hosts know the entry: frozen once
    // sessions exist.
    static juce::String hostIdForPath (const juce::String& path);
    ParameterDef* getTargetParameter() const noexcept { return parameter.get(); }
    qvrControllableLib::BasicAutomationHandle* getHandle() const noexcept { return handle; }

    float getValue() const override;
    void setValue (float newValue) override;
    float getDefaultValue() const override;
    juce::String getName (int maximumStringLength) const override;
    juce::String getLabel() const override { return {}; }
    juce::String getText (float normalisedValue, int maximumStringLength) const override;
    float getValueForText (const juce::String& text) const override;
    int getNumSteps() const override;
    bool isDiscrete() const override;
    bool isBoolean() const override;
    bool isAutomatable() const override { return true; }

    // Called once by the processor after the entry has its host index. A
    // null normalizer lets the handle pick one from the parameter; the entry
    // owns a given one.
    void attach (juce::AudioProcessor& processor, int index, AutomationNormalizer* normalizer = nullptr);
    // Lets go of the framework's objects; the entry is not used afterwards.
    void release();

private:
    juce::String path, label;
    ParameterDefPtr parameter;
    // Owned by the parameter; kept alive by `handleHolder`.
    qvrControllableLib::BasicAutomationHandle* handle = nullptr;
    AutomationHandlePtr handleHolder;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (AutomationEntry)
};

// A juce::AudioProcessor whose host parameters are paths into a controllable.
// The order of addAutomation calls is the host's parameter index. Starts the
// asynchronous update timers of the eight parameter types for as long as it
// lives (counted across instances). Built and destroyed on the message thread,
// or by a thread that holds the message manager's lock for the whole time (a
// derived class's first base can take it before this one is built).
class AutomatedAudioProcessor : public juce::AudioProcessor
{
public:
    explicit AutomatedAudioProcessor (const BusesProperties& buses);
    ~AutomatedAudioProcessor() override;

    // Appends an entry for `path` in the automation root. Returns its host
    // index, or -1 if no parameter has that path (nothing is added).
    int addAutomation (const juce::String& path, const juce::String& label);

    int getNumPrograms() override { return juce::jmax (1, programNames.size()); }
    int getCurrentProgram() override { return juce::jmax (0, currentProgram); }
    void setCurrentProgram (int index) override;
    const juce::String getProgramName (int index) override { return programNames[index]; }
    void changeProgramName (int index, const juce::String& newName) override;

protected:
    // The controllable in which automation paths are looked up.
    void setAutomationRoot (Controllable* root) { automationRoot = root; }
    // Lets go of every framework object the host parameters hold, so that a
    // derived destructor can end their lives at a moment of its choosing.
    void releaseAutomation();

private:
    ControllablePtr automationRoot;
    juce::Array<AutomationEntry*> entries;
    juce::StringArray programNames;
    int currentProgram = -1;
    juce::CriticalSection lock;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (AutomatedAudioProcessor)
};
} // namespace qvrControllableToolbox
