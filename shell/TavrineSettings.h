#pragma once

#include <array>
#include <memory>
#include <juce_data_structures/juce_data_structures.h>

#include "controllable/handle/ParamDefHandle.h"
#include "engine/TavrineEngine.h"

// What belongs to the user and not to a song: cache size, window size,
// tooltip delay, the prelisten voice's level and bus, the master's stretch
// mode, and the last folders of the file dialogs. One object for the whole
// process; its parameters are ordinary framework parameters, so the
// preferences dialog binds to them by handle and listener like to any other.
// They belong to no Controllable and never enter plug-in state.
//
// Storage: a juce::PropertiesFile "Tavrine Player.xml" in the per-user folder
// "Korvenhaldt" (on Linux ~/Korvenhaldt/Tavrine Player.xml). Each of the nine
// stored parameters stands there under its name as the text of its converter
// ("4.0 GB", "Medium"). The settings are an asynchronous listener of those
// nine, so every change is written and saved on the message thread. The two
// views (enableMultipleOutputs, prelistenLevelDb) are never stored: a write
// to a view lands in its source, and the source's change is what is saved.
//
// Lifetime: created on the message thread by the first plug-in instance or
// editor that holds a Holder, before the engine; deleted when the last Holder
// goes. getInstance() gives the one object. Tests construct one directly for
// chosen locations; it is then the instance until it is destroyed.
//
// Threads: construction, destruction, writes, the folder getters and setters
// and getProperties() on the message thread, or on a thread that holds the
// message manager's lock (a plug-in instance built on a host's thread). Other threads read values only,
// through the handles' raw pointers (never through a view's handle: a view
// keeps no value of its own).
class TavrineSettings : public qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr const char* kEnablePrelistenSyncOnStartup = "enablePrelistenSyncOnStartup";
    static constexpr const char* kEnableMasterRealtimeStretching = "enableMasterRealtimeStretching";
    static constexpr const char* kEnableMultipleOutputs = "enableMultipleOutputs";
    static constexpr const char* kPrelistenLevel = "prelistenLevel";
    static constexpr const char* kPrelistenLevelDb = "prelistenLevelDb";
    static constexpr const char* kPrelistenOutputBus = "prelistenOutputBus";
    static constexpr const char* kRenderCacheDirectoryName = "renderCacheDirectoryName";
    static constexpr const char* kRenderCacheMaxSizeGb = "renderCacheMaxSizeGb";
    static constexpr const char* kRenderCacheMinAvailableGb = "renderCacheMinAvailableGb";
    static constexpr const char* kGuiWidthOnStartup = "guiWidthOnStartup";
    static constexpr const char* kTooltipDelayMs = "tooltipDelayMs";

    // Entries of the same file that are not parameters.
    static constexpr const char* kExportFolder = "exportFolder";
    static constexpr const char* kSampleFolder = "sampleFolder";
    static constexpr const char* kUserbankFolder = "userbankFolder";

    static constexpr int kNumOutputBuses = TavrineEngine::kNumOutputBuses;

    // Where the settings live. forCurrentUser() resolves them from the
    // properties options and the user's documents folder; tests give their
    // own.
    struct Locations
    {
        juce::File propertiesFile;
        // Where an older version kept the file; moved to propertiesFile on
        // first use if that does not exist yet.
        juce::File legacyPropertiesFile;
        // Parent of the data folder and the default of the file dialogs.
        juce::File documentsFolder;

        static Locations forCurrentUser();
    };

    // The options of the properties file: application "Tavrine Player",
    // folder "Korvenhaldt", suffix "xml", the given Mac library sub-folder
    // ("Application Support" now, "Preferences" for the older location), all
    // else at JUCE's defaults (per user, XML).
    static juce::PropertiesFile::Options
    getPropertiesOptions (const juce::String& macLibrarySubFolder = "Application Support");

    // Message thread. Registers itself as the instance; there must be no
    // other at the time.
    explicit TavrineSettings (const Locations& locations = Locations::forCurrentUser());
    ~TavrineSettings() override;

    // Message thread. The instance, created for the current user if there is
    // none. Ask inside the life of a Holder: only the last Holder deletes it.
    static TavrineSettings& getInstance();
    static TavrineSettings* getInstanceIfCreated() noexcept;

    // Held by each plug-in instance and editor for its life: the first one
    // creates the settings, the last one deletes them (unless they were
    // constructed directly, whose owner deletes them). Message thread, or a
    // thread that holds the message manager's lock.
    class Holder
    {
    public:
        Holder();
        ~Holder();

        TavrineSettings& operator*() const noexcept { return settings; }
        TavrineSettings* operator->() const noexcept { return &settings; }

    private:
        TavrineSettings& settings;

        JUCE_DECLARE_NON_COPYABLE (Holder)
    };

    // "TavrinePlayer" in the documents folder, created if missing.
    juce::File getDataFolder() const;
    // The stored export folder, or "ExportedLoops" in the data folder;
    // created if missing, a stored one too.
    juce::File getExportFolder();
    // The last folders of the file dialogs, the documents folder at first.
    // The setters store the full path and save.
    juce::File getSampleFolder();
    void setSampleFolder (const juce::File& folder);
    juce::File getUserbankFolder();
    void setUserbankFolder (const juce::File& folder);

    // The properties file, opened on first use (moving an older file into
    // place first).
    juce::PropertiesFile& getProperties();

    // Message thread (asynchronous listener): writes a stored parameter's
    // text and saves; other parameters are ignored.
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    qvrControllableHandle::BoolParamDefHandle enablePrelistenSyncOnStartup { kEnablePrelistenSyncOnStartup };
    qvrControllableHandle::BoolParamDefHandle enableMasterRealtimeStretching { kEnableMasterRealtimeStretching };
    // Forwarding view of enableMasterRealtimeStretching, inverted: multiple
    // outputs and master realtime stretching exclude each other.
    qvrControllableHandle::BoolParamDefHandle enableMultipleOutputs;
    qvrControllableHandle::FloatParamDefHandle prelistenLevel { kPrelistenLevel };
    // Forwarding view of prelistenLevel in dB, -30 to 3 dB.
    qvrControllableHandle::FloatParamDefHandle prelistenLevelDb;
    qvrControllableHandle::IntParamDefHandle prelistenOutputBus { kPrelistenOutputBus };
    qvrControllableHandle::StringParamDefHandle renderCacheDirectoryName { kRenderCacheDirectoryName };
    qvrControllableHandle::FloatParamDefHandle renderCacheMaxSizeGb { kRenderCacheMaxSizeGb };
    qvrControllableHandle::FloatParamDefHandle renderCacheMinAvailableGb { kRenderCacheMinAvailableGb };
    qvrControllableHandle::IntParamDefHandle guiWidthOnStartup { kGuiWidthOnStartup };
    qvrControllableHandle::IntParamDefHandle tooltipDelayMs { kTooltipDelayMs };

private:
    void defineParameters();
    // The stored text of the parameter's name given to setString, so a text
    // that makes no sense ends in the converter's fallback and the range; no
    // entry leaves the default.
    void load (qvrControllableAPI::ParameterDef* parameter);
    // The nine parameters that are stored, in the order they are loaded.
    std::array<qvrControllableAPI::ParameterDef*, 9> getStoredParameters() const;
    juce::File readFolder (const char* key, const juce::File& fallback);
    void writeFolder (const char* key, const juce::File& folder);

    Locations locations;
    std::unique_ptr<juce::PropertiesFile> properties;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (TavrineSettings)
};
