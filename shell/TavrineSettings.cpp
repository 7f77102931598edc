#include "shell/TavrineSettings.h"

#include <cmath>

#include "controllable/lib/ValueConverters.h"
#include "controllable/lib/ValueModifiers.h"
#include "engine/OutputBusValueConverter.h"
#include "shell/GuiWidthValueConverter.h"
#include "shell/TooltipDelayValueConverter.h"

using namespace qvrControllableAPI;
using namespace qvrControllableLib;

namespace
{
// The instance, the one a Holder created (if any), and the number of
// Holders. Touched on the message thread only; the lock guards against a
// host that builds plug-in instances elsewhere.
juce::CriticalSection& getInstanceLock()
{
    static juce::CriticalSection lock;
    return lock;
}

TavrineSettings* instance = nullptr;
TavrineSettings* holderOwnedInstance = nullptr;
int numHolders = 0;

constexpr const char* kDataFolderName = "TavrinePlayer";
constexpr const char* kRenderCacheFolderName = "RenderCache";
constexpr const char* kExportFolderName = "ExportedLoops";

// Gives a view its own minimum and maximum, in the view's units, in place of
// the forwarded ones: the view's range limits what is written through it,
// while the source keeps its own (here: none).
void giveOwnRange (ParameterDef& view, double minimum, double maximum)
{
    auto type = view.getType();
    const ParameterValuePtr ownMinimum = type->createValue (&view, kRoleMinimum);
    const ParameterValuePtr ownMaximum = type->createValue (&view, kRoleMaximum);
    view.replaceValue (view.getMinimum().get(), ownMinimum.get());
    view.replaceValue (view.getMaximum().get(), ownMaximum.get());
    ownMinimum->setFloat (minimum);
    ownMaximum->setFloat (maximum);
}
} // namespace

//==============================================================================
TavrineSettings::Locations TavrineSettings::Locations::forCurrentUser()
{
    Locations l;
    l.propertiesFile = getPropertiesOptions().getDefaultFile();
    l.legacyPropertiesFile = getPropertiesOptions ("Preferences").getDefaultFile();
    l.documentsFolder = juce::File::getSpecialLocation (juce::File::userDocumentsDirectory);
    return l;
}

juce::PropertiesFile::Options TavrineSettings::getPropertiesOptions (const juce::String& macLibrarySubFolder)
{
    juce::PropertiesFile::Options options;
    options.applicationName = "Tavrine Player";
    options.folderName = "Korvenhaldt";
    options.filenameSuffix = "xml";
    options.osxLibrarySubFolder = macLibrarySubFolder;
    return options;
}

//==============================================================================
TavrineSettings::TavrineSettings (const Locations& where) : locations (where)
{
    JUCE_ASSERT_MESSAGE_MANAGER_IS_LOCKED
    {
        const juce::ScopedLock sl (getInstanceLock());
        jassert (instance == nullptr); // one object for the whole process
        if (instance == nullptr)
            instance = this;
    }

    getDataFolder();
    defineParameters();

    // Listeners come last, so that loading does not write back what it read.
    for (auto* parameter : getStoredParameters())
        load (parameter);
    for (auto* parameter : getStoredParameters())
        parameter->addChangeListener (this, false);
}

TavrineSettings::~TavrineSettings()
{
    JUCE_ASSERT_MESSAGE_MANAGER_IS_LOCKED
    // All nine, not only some: a parameter that another holder keeps alive
    // (the mixer holds prelistenLevel) must not call into a deleted object.
    for (auto* parameter : getStoredParameters())
        parameter->removeChangeListener (this, false);

    properties.reset();

    const juce::ScopedLock sl (getInstanceLock());
    if (instance == this)
        instance = nullptr;
    if (holderOwnedInstance == this)
        holderOwnedInstance = nullptr;
}

void TavrineSettings::defineParameters()
{
    enablePrelistenSyncOnStartup.defaultValue = true;
    enableMasterRealtimeStretching.defaultValue = false;

    {
        auto view = enableMasterRealtimeStretching->createForwardingParameter (kEnableMultipleOutputs, nullptr);
        view->setModifier (new InversionValueModifier());
        view->setTransient (true);
        enableMultipleOutputs.bind (view);
    }

    // -3 dB, the power taken in float: 0.70794576...
    prelistenLevel.defaultValue = (double) std::pow (10.0f, -0.15f);

    {
        auto view = prelistenLevel->createForwardingParameter (kPrelistenLevelDb, nullptr);
        view->setModifier (new DecibelValueModifier (-300.0, 20.0, 1.0));
        view->setConverter (new DecibelValueConverter (-300.0, 2));
        view->setTransient (true);
        giveOwnRange (*view, -30.0, 3.0);
        prelistenLevelDb.bind (view);
    }

    prelistenOutputBus->setConverter (new OutputBusValueConverter());
    for (int bus = 0; bus < kNumOutputBuses; ++bus)
        prelistenOutputBus.choices.add (bus);
    prelistenOutputBus.defaultValue = 0;

    renderCacheDirectoryName.defaultValue = getDataFolder().getChildFile (kRenderCacheFolderName).getFullPathName();

    for (auto* size : { &renderCacheMaxSizeGb, &renderCacheMinAvailableGb })
    {
        (*size)->setConverter (new GigaByteValueConverter());
        size->minimum = 0.5;
        size->maximum = 10.0;
    }
    renderCacheMaxSizeGb.defaultValue = 4.0;
    renderCacheMinAvailableGb.defaultValue = 1.0;

    guiWidthOnStartup->setConverter (new GuiWidthValueConverter());
    guiWidthOnStartup.choices.add (GuiWidthValueConverter::kSmall)
        .add (GuiWidthValueConverter::kMedium)
        .add (GuiWidthValueConverter::kLarge);
    guiWidthOnStartup.defaultValue = GuiWidthValueConverter::kMedium;

    tooltipDelayMs->setConverter (new TooltipDelayValueConverter());
    tooltipDelayMs.minimum = 50;
    tooltipDelayMs.maximum = TooltipDelayValueConverter::kDisabledMs;
    tooltipDelayMs.defaultValue = 1000;
}

std::array<ParameterDef*, 9> TavrineSettings::getStoredParameters() const
{
    return { enablePrelistenSyncOnStartup.get(),
             enableMasterRealtimeStretching.get(),
             prelistenLevel.get(),
             prelistenOutputBus.get(),
             renderCacheDirectoryName.get(),
             renderCacheMaxSizeGb.get(),
             renderCacheMinAvailableGb.get(),
             guiWidthOnStartup.get(),
             tooltipDelayMs.get() };
}

void TavrineSettings::load (ParameterDef* parameter)
{
    auto& file = getProperties();
    // Without an entry the value stays at its default, which the default's
    // text would only repeat less exactly: juce::String prints a double with
    // six significant digits, and prelistenLevel's default has more.
    if (! file.containsKey (parameter->getName()))
        return;
    parameter->getValue()->setString (file.getValue (parameter->getName()));
}

void TavrineSettings::parameterChanged (ParameterDef* parameter)
{
    for (auto* stored : getStoredParameters())
    {
        if (stored == parameter)
        {
            auto& file = getProperties();
            file.setValue (parameter->getName(), parameter->getValue()->getString());
            // A file that cannot be written is ignored; the value holds.
            file.saveIfNeeded();
            return;
        }
    }
}

//==============================================================================
juce::PropertiesFile& TavrineSettings::getProperties()
{
    if (properties == nullptr)
    {
        const auto& file = locations.propertiesFile;
        const auto& legacy = locations.legacyPropertiesFile;
        // Moved, not copied: the old place must not hold a second, stale file.
        // A failed move leaves it there and starts from the defaults.
        if (! file.exists() && legacy != file && legacy.existsAsFile())
            if (file.getParentDirectory().createDirectory())
                legacy.moveFileTo (file);

        // An unreadable file loads as empty: every parameter then takes its
        // default. It is left as it is until a setting changes.
        properties = std::make_unique<juce::PropertiesFile> (file, getPropertiesOptions());
    }
    return *properties;
}

juce::File TavrineSettings::getDataFolder() const
{
    auto folder = locations.documentsFolder.getChildFile (kDataFolderName);
    folder.createDirectory();
    return folder;
}

juce::File TavrineSettings::readFolder (const char* key, const juce::File& fallback)
{
    // juce::File accepts only absolute paths; anything else in the file is
    // treated as absent.
    const auto path = getProperties().getValue (key);
    return juce::File::isAbsolutePath (path) ? juce::File (path) : fallback;
}

void TavrineSettings::writeFolder (const char* key, const juce::File& folder)
{
    auto& file = getProperties();
    file.setValue (key, folder.getFullPathName());
    file.saveIfNeeded();
}

juce::File TavrineSettings::getExportFolder()
{
    auto folder = readFolder (kExportFolder, getDataFolder().getChildFile (kExportFolderName));
    folder.createDirectory();
    return folder;
}

juce::File TavrineSettings::getSampleFolder()
{
    return readFolder (kSampleFolder, locations.documentsFolder);
}
void TavrineSettings::setSampleFolder (const juce::File& folder)
{
    writeFolder (kSampleFolder, folder);
}
juce::File TavrineSettings::getUserbankFolder()
{
    return readFolder (kUserbankFolder, locations.documentsFolder);
}
void TavrineSettings::setUserbankFolder (const juce::File& folder)
{
    writeFolder (kUserbankFolder, folder);
}

//==============================================================================
TavrineSettings& TavrineSettings::getInstance()
{
    JUCE_ASSERT_MESSAGE_MANAGER_IS_LOCKED
    const juce::ScopedLock sl (getInstanceLock());
    if (instance == nullptr)
    {
        // Without a Holder nobody would ever delete it.
        jassert (numHolders > 0);
        holderOwnedInstance = new TavrineSettings();
    }
    return *instance;
}

TavrineSettings* TavrineSettings::getInstanceIfCreated() noexcept
{
    const juce::ScopedLock sl (getInstanceLock());
    return instance;
}

TavrineSettings::Holder::Holder()
    : settings ([]() -> TavrineSettings& {
          const juce::ScopedLock sl (getInstanceLock());
          ++numHolders;
          return getInstance();
      }())
{
}

TavrineSettings::Holder::~Holder()
{
    TavrineSettings* toDelete = nullptr;
    {
        const juce::ScopedLock sl (getInstanceLock());
        if (--numHolders == 0)
            std::swap (toDelete, holderOwnedInstance);
    }
    // Outside the lock: the destructor takes it again.
    delete toDelete;
}
