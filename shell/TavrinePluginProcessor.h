#pragma once

#include <atomic>
#include <memory>

#include "controllable/toolbox/AutomatedAudioProcessor.h"
#include "shell/TavrinePlayerInstance.h"
#include "shell/RenderCacheSettingsLink.h"
#include "shell/TavrineSettings.h"

// Holds the message thread out for the whole life of a plug-in instance that
// a host builds or destroys on a thread of its own. As the processor's first
// base it is built before, and destroyed after, every other base and member;
// the processor lets go at the end of its constructor and takes the lock again
// at the start of its destructor, so the lock is taken twice per instance at
// most (the message manager's lock is costly and racy when taken often). On
// the message thread itself, or with no message manager, it does nothing.
class MessageThreadGuard
{
protected:
    MessageThreadGuard() { holdMessageThread(); }
    ~MessageThreadGuard() = default;

    void holdMessageThread();
    void releaseMessageThread() noexcept { lock.reset(); }

private:
    std::unique_ptr<juce::MessageManagerLock> lock;

    JUCE_DECLARE_NON_COPYABLE (MessageThreadGuard)
};

// The audio plug-in object a host talks to. Publishes the fixed table of 648
// automation parameters (9 per key, host index = 9 x key + row), feeds host
// tempo and transport into the master parameters, and turns MIDI notes into
// key triggers at their exact sample by cutting the host block at every MIDI
// event.
//
// Threads: processBlock, prepareToPlay, releaseResources on the audio thread;
// state and automation setters on any host thread; construction and
// destruction on the message thread or on any thread while the message thread
// runs its loop.
class TavrinePluginProcessor : private MessageThreadGuard,
                               public qvrControllableToolbox::AutomatedAudioProcessor
{
public:
    static constexpr int kNumRows = 9;
    static constexpr int kNumOutputBuses = TavrineEngine::kNumOutputBuses;
    // The prefix of the engine's parameters in a saved state.
    static constexpr const char* kStatePrefix = "engine";

    TavrinePluginProcessor();
    ~TavrinePluginProcessor() override;

    const juce::String getName() const override { return "Tavrine 2"; }
    void prepareToPlay (double sampleRate, int samplesPerBlock) override;
    void releaseResources() override;
    // Audio thread.
    void processBlock (juce::AudioBuffer<float>& buffer, juce::MidiBuffer& midi) override;
    using juce::AudioProcessor::processBlock;
    void reset() override;

    bool isBusesLayoutSupported (const BusesLayout& layouts) const override;

    // Makes a processor's window. The player's window belongs to the user
    // interface, a layer above this one, so the plug-in entry installs its
    // factory; in a process that installs none (the command line) a processor
    // has no window. Message thread, before the host asks for a window.
    using EditorFactory = juce::AudioProcessorEditor* (*) (TavrinePluginProcessor& processor);
    static void setEditorFactory (EditorFactory factory) noexcept { editorFactory.store (factory); }

    // The installed factory's window, nullptr without one.
    juce::AudioProcessorEditor* createEditor() override;
    bool hasEditor() const override { return editorFactory.load() != nullptr; }
    bool acceptsMidi() const override { return true; }
    bool producesMidi() const override { return false; }
    double getTailLengthSeconds() const override { return 0.0; }

    void getStateInformation (juce::MemoryBlock& destData) override;
    void setStateInformation (const void* data, int sizeInBytes) override;

    TavrinePlayerInstance& getPlayerInstance() noexcept { return *playerInstance; }
    TavrineEngine& getEngine() noexcept { return playerInstance->getEngine(); }
    bool isStateRestored() const noexcept { return stateRestored.load(); }

    // The automation table: label and path templates, "$" standing for the
    // key name and the loop number respectively.
    static const std::array<std::pair<const char*, const char*>, kNumRows>& getAutomationTable();

    // Number of processors alive in this process.
    static int getNumInstances() noexcept { return numInstances.load(); }

private:
    void handleTransport (bool isPlaying);
    void handleTempo (double hostBpm);

    // Before the player instance: the settings outlive the engine.
    TavrineSettings::Holder settings;
    TavrinePlayerInstancePtr playerInstance;
    std::unique_ptr<RenderCacheSettingsLink> renderCacheSettings;
    std::atomic<bool> stateRestored { false };
    bool wasPlaying = false;
    qvrControllableHandle::FloatParamDefHandle outputBpm;
    qvrControllableHandle::FloatParamDefHandle masterBpm;
    qvrControllableHandle::BoolParamDefHandle triggerPlayMode;
    qvrControllableHandle::BoolParamDefHandle triggerPlayModeAvailable;
    qvrControllableLib::FloatShortcutValue outputBpmShortcut;
    qvrControllableLib::BoolShortcutValue triggerPlayModeShortcut;
    qvrControllableLib::BoolShortcutValue triggerPlayModeAvailableShortcut;

    static std::atomic<int> numInstances;
    static std::atomic<EditorFactory> editorFactory;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (TavrinePluginProcessor)
};
