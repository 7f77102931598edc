#include "shell/RenderCacheSettingsLink.h"

RenderCacheSettingsLink::RenderCacheSettingsLink (TavrineSettings& settingsToUse, SamplePoolManager& poolToUse)
    : settings (settingsToUse), pool (poolToUse)
{
    apply();
    settings.renderCacheDirectoryName->addChangeListener (this, true);
    settings.renderCacheMaxSizeGb->addChangeListener (this, true);
    settings.renderCacheMinAvailableGb->addChangeListener (this, true);
}

RenderCacheSettingsLink::~RenderCacheSettingsLink()
{
    settings.renderCacheDirectoryName->removeChangeListener (this, true);
    settings.renderCacheMaxSizeGb->removeChangeListener (this, true);
    settings.renderCacheMinAvailableGb->removeChangeListener (this, true);
}

void RenderCacheSettingsLink::parameterChanged (qvrControllableAPI::ParameterDef*)
{
    apply();
}

void RenderCacheSettingsLink::apply()
{
    // A folder setting that is not an absolute path (empty, or damaged in
    // the settings file) keeps the pool's present folder.
    const auto folder = settings.renderCacheDirectoryName.read();
    const auto directory = juce::File::isAbsolutePath (folder) ? juce::File (folder) : pool.getCacheDirectory();
    pool.applyCacheSettings (directory, settings.renderCacheMaxSizeGb.read(), settings.renderCacheMinAvailableGb.read());
}
