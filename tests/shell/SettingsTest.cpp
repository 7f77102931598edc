#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>

#include "shell/RenderCacheSettingsLink.h"
#include "shell/TavrineSettings.h"

using namespace qvrControllableAPI;

namespace
{
using Entries = std::initializer_list<std::pair<const char*, const char*>>;

// Runs each test with HOME pointing at a fresh directory, so that the
// per-user locations (properties file, documents folder) resolve inside it;
// HOME is restored and the directory removed afterwards.
class Settings : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (const char* home = std::getenv ("HOME"))
        {
            hadHome = true;
            oldHome = home;
        }
        home = juce::File::getSpecialLocation (juce::File::tempDirectory)
                   .getChildFile ("tavrine-settings-" + juce::Uuid().toString());
        ASSERT_TRUE (home.createDirectory());
        ::setenv ("HOME", home.getFullPathName().toRawUTF8(), 1);
    }

    void TearDown() override
    {
        if (hadHome)
            ::setenv ("HOME", oldHome.c_str(), 1);
        else
            ::unsetenv ("HOME");
        home.deleteRecursively();
    }

    juce::File settingsFile() const { return home.getChildFile ("Korvenhaldt").getChildFile ("Tavrine Player.xml"); }
    juce::File documents() const { return home.getChildFile ("Documents"); }

    static void writeEntries (const juce::File& file, Entries entries)
    {
        juce::PropertiesFile properties (file, TavrineSettings::getPropertiesOptions());
        for (const auto& [key, value] : entries)
            properties.setValue (key, value);
        ASSERT_TRUE (properties.saveIfNeeded());
    }

    // The entry as it stands in the file now; "<absent>" if missing.
    static juce::String stored (const juce::File& file, const char* key)
    {
        juce::PropertiesFile properties (file, TavrineSettings::getPropertiesOptions());
        return properties.containsKey (key) ? properties.getValue (key) : juce::String ("<absent>");
    }

    bool hadHome = false;
    std::string oldHome;
    juce::File home;
};
} // namespace

TEST_F (Settings, AFirstStartReadsTheDefaultsAndWritesNothing)
{
    const auto where = TavrineSettings::Locations::forCurrentUser();
    EXPECT_EQ (where.propertiesFile, settingsFile());
    EXPECT_EQ (where.documentsFolder, documents());

    TavrineSettings settings;
    // The default level keeps its float precision: not the six digits of its text.
    EXPECT_EQ (settings.prelistenLevel.read(), (double) std::pow (10.0f, -0.15f));
    EXPECT_EQ (settings.prelistenLevelDb->getValue()->getString(), "-3.00 dB");
    EXPECT_EQ (settings.prelistenOutputBus->getValue()->getString(), "Output 1/2");
    EXPECT_EQ (settings.renderCacheDirectoryName.read(),
               documents().getChildFile ("TavrinePlayer/RenderCache").getFullPathName());
    EXPECT_TRUE (documents().getChildFile ("TavrinePlayer").isDirectory());
    EXPECT_FALSE (settingsFile().exists());
}

TEST_F (Settings, EveryStoredSettingSurvivesARestartAsItsConvertersText)
{
    const auto cache = home.getChildFile ("Cache").getFullPathName();
    {
        TavrineSettings settings;
        settings.enablePrelistenSyncOnStartup.write (false);
        settings.enableMultipleOutputs->getValue()->setBool (false);
        settings.prelistenLevelDb->getValue()->setFloat (-6.0);
        settings.renderCacheDirectoryName.write (cache);
        settings.renderCacheMaxSizeGb->getValue()->setString ("2,5 GB");
        settings.guiWidthOnStartup.write (700);
        settings.tooltipDelayMs.write (250);
    }

    // Written as each converter prints; the views never stand in the file.
    const auto file = settingsFile();
    EXPECT_EQ (stored (file, "enablePrelistenSyncOnStartup"), "false");
    EXPECT_EQ (stored (file, "enableMasterRealtimeStretching"), "true");
    EXPECT_EQ (stored (file, "renderCacheMaxSizeGb"), "2.5 GB");
    EXPECT_EQ (stored (file, "guiWidthOnStartup"), "Large");
    EXPECT_EQ (stored (file, "tooltipDelayMs"), "250ms");
    EXPECT_EQ (stored (file, "enableMultipleOutputs"), "<absent>");
    EXPECT_EQ (stored (file, "prelistenLevelDb"), "<absent>");

    TavrineSettings settings;
    EXPECT_FALSE (settings.enablePrelistenSyncOnStartup.read());
    EXPECT_TRUE (settings.enableMasterRealtimeStretching.read());
    EXPECT_FALSE (settings.enableMultipleOutputs->getValue()->getBool());
    // The level is stored with six significant digits (juce::String of a double).
    EXPECT_NEAR (settings.prelistenLevelDb->getValue()->getFloat(), -6.0, 1e-4);
    EXPECT_EQ (settings.renderCacheDirectoryName.read(), cache);
    EXPECT_DOUBLE_EQ (settings.renderCacheMaxSizeGb.read(), 2.5);
    EXPECT_EQ (settings.guiWidthOnStartup.read(), 700);
    EXPECT_EQ (settings.tooltipDelayMs.read(), 250);
}

TEST_F (Settings, StoredTextsAreClampedByTheRangeAndNonsenseEndsInTheConvertersFallback)
{
    const auto samples = home.getChildFile ("MySamples").getFullPathName();
    writeEntries (settingsFile(), { { "renderCacheMaxSizeGb", "10.5 GB" },
                                    { "renderCacheMinAvailableGb", "0,25 gb" },
                                    { "guiWidthOnStartup", "Huge" },
                                    { "tooltipDelayMs", "soon" },
                                    { "enableMasterRealtimeStretching", "YES" },
                                    { "prelistenLevel", "loud" },
                                    { "sampleFolder", samples.toRawUTF8() },
                                    { "windowPosition", "10 20" } });

    TavrineSettings settings;
    EXPECT_DOUBLE_EQ (settings.renderCacheMaxSizeGb.read(), 10.0);
    EXPECT_DOUBLE_EQ (settings.renderCacheMinAvailableGb.read(), 0.5);
    EXPECT_EQ (settings.guiWidthOnStartup.read(), 525);
    EXPECT_EQ (settings.tooltipDelayMs.read(), 4000);
    EXPECT_EQ (settings.tooltipDelayMs->getValue()->getString(), "(tooltips disabled)");
    EXPECT_TRUE (settings.enableMasterRealtimeStretching.read());
    EXPECT_EQ (settings.prelistenLevel.read(), 0.0); // no range: parses as 0
    EXPECT_EQ (settings.prelistenLevelDb->getValue()->getString(), "-inf dB");
    EXPECT_EQ (settings.getSampleFolder().getFullPathName(), samples);

    // Reading writes nothing back; a later change rewrites only its own entry
    // and keeps everything else in the file, foreign keys included.
    EXPECT_EQ (stored (settingsFile(), "guiWidthOnStartup"), "Huge");
    settings.tooltipDelayMs.write (500);
    EXPECT_EQ (stored (settingsFile(), "tooltipDelayMs"), "500ms");
    EXPECT_EQ (stored (settingsFile(), "guiWidthOnStartup"), "Huge");
    EXPECT_EQ (stored (settingsFile(), "windowPosition"), "10 20");
    EXPECT_EQ (stored (settingsFile(), "sampleFolder"), samples);
}

TEST_F (Settings, AnUnreadableFileGivesTheDefaultsAndIsLeftAsItIs)
{
    ASSERT_TRUE (settingsFile().getParentDirectory().createDirectory());
    ASSERT_TRUE (settingsFile().replaceWithText ("<PROPERTIES><VALUE name=\"guiWidthOnStartup\" val=\"Lar"));
    const auto damaged = settingsFile().loadFileAsString();
    {
        TavrineSettings settings;
        EXPECT_EQ (settings.guiWidthOnStartup.read(), 525);
    }
    EXPECT_EQ (settingsFile().loadFileAsString(), damaged);

    // A directory in the file's place can be neither read nor written; a
    // change is kept in memory all the same.
    ASSERT_TRUE (settingsFile().deleteFile() && settingsFile().createDirectory());
    TavrineSettings settings;
    EXPECT_EQ (settings.tooltipDelayMs.write (250), kOk);
    EXPECT_EQ (settings.tooltipDelayMs.read(), 250);
}

TEST_F (Settings, FoldersStartInTheirDefaultsRememberTheLastChoiceAndAreCreatedAgain)
{
    const auto samples = home.getChildFile ("Samples");
    const auto gone = home.getChildFile ("Gone/Exports");
    {
        TavrineSettings settings;
        EXPECT_EQ (settings.getSampleFolder(), documents());
        EXPECT_EQ (settings.getUserbankFolder(), documents());
        EXPECT_EQ (settings.getExportFolder(), documents().getChildFile ("TavrinePlayer/ExportedLoops"));
        EXPECT_TRUE (settings.getExportFolder().isDirectory());
        settings.setSampleFolder (samples);
        settings.getProperties().setValue ("exportFolder", gone.getFullPathName());
        settings.getProperties().setValue ("userbankFolder", "relative/banks");
    }
    TavrineSettings settings;
    EXPECT_EQ (settings.getSampleFolder(), samples);
    EXPECT_EQ (settings.getUserbankFolder(), documents()); // not absolute: no folder
    EXPECT_EQ (settings.getExportFolder(), gone);
    EXPECT_TRUE (gone.isDirectory());
}

TEST_F (Settings, AnOlderFileIsMovedIntoPlaceAndLeavesNoCopy)
{
    TavrineSettings::Locations where;
    where.propertiesFile = home.getChildFile ("Application Support/Korvenhaldt/Tavrine Player.xml");
    where.legacyPropertiesFile = home.getChildFile ("Preferences/Korvenhaldt/Tavrine Player.xml");
    where.documentsFolder = documents();
    writeEntries (where.legacyPropertiesFile, { { "guiWidthOnStartup", "Small" } });
    {
        TavrineSettings settings (where);
        EXPECT_EQ (settings.guiWidthOnStartup.read(), 444);
    }
    EXPECT_TRUE (where.propertiesFile.existsAsFile());
    EXPECT_FALSE (where.legacyPropertiesFile.exists());

    // With a file in the new place, an old one is neither read nor moved.
    writeEntries (where.legacyPropertiesFile, { { "guiWidthOnStartup", "Large" } });
    TavrineSettings settings (where);
    EXPECT_EQ (settings.guiWidthOnStartup.read(), 444);
    EXPECT_TRUE (where.legacyPropertiesFile.existsAsFile());
}

TEST_F (Settings, TheFirstHolderCreatesTheSettingsAndTheLastDeletesThem)
{
    ASSERT_EQ (TavrineSettings::getInstanceIfCreated(), nullptr);
    {
        TavrineSettings::Holder instance;
        {
            TavrineSettings::Holder editor;
            EXPECT_EQ (&*editor, &*instance);
            EXPECT_EQ (&TavrineSettings::getInstance(), &*instance);
        }
        EXPECT_EQ (TavrineSettings::getInstanceIfCreated(), &*instance);
        instance->tooltipDelayMs.write (300);
    }
    EXPECT_EQ (TavrineSettings::getInstanceIfCreated(), nullptr);
    EXPECT_EQ (stored (settingsFile(), "tooltipDelayMs"), "300ms");

    // Settings constructed by their owner are shared, not deleted, by Holders.
    ParameterDefPtr level;
    {
        TavrineSettings own;
        level = own.prelistenLevel.getParameter();
        {
            TavrineSettings::Holder holder;
            EXPECT_EQ (&*holder, &own);
        }
        EXPECT_EQ (TavrineSettings::getInstanceIfCreated(), &own);
    }
    EXPECT_EQ (TavrineSettings::getInstanceIfCreated(), nullptr);

    // A parameter that outlives the settings no longer calls them.
    EXPECT_FALSE (level->hasChangeListeners());
    level->getValue()->setFloat (0.25);
    EXPECT_EQ (stored (settingsFile(), "prelistenLevel"), "<absent>");
}

// The engine's render cache follows the user's folder setting; a setting that
// is no absolute path (a damaged settings file) keeps the folder in use.
TEST_F (Settings, TheRenderCacheFollowsTheFolderSettingAndIgnoresARelativeOne)
{
    TavrineSettings settings;
    TavrineSampleManager pool (home.getChildFile ("first"));
    {
        RenderCacheSettingsLink link (settings, pool);
        EXPECT_EQ (pool.getCacheDirectory().getFullPathName(), settings.renderCacheDirectoryName.read());

        const auto second = home.getChildFile ("second");
        settings.renderCacheDirectoryName->getValue()->setString (second.getFullPathName());
        EXPECT_EQ (pool.getCacheDirectory(), second);
        settings.renderCacheDirectoryName->getValue()->setString ("relative/cache");
        EXPECT_EQ (pool.getCacheDirectory(), second);
    }
    // Once the link is gone, a change reaches the pool no more.
    settings.renderCacheDirectoryName->getValue()->setString (home.getChildFile ("third").getFullPathName());
    EXPECT_EQ (pool.getCacheDirectory(), home.getChildFile ("second"));
    pool.stopThreads();
}
