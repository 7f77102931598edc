#pragma once

#include "samples/SamplePoolManager.h"
#include "shell/TavrineSettings.h"

// Keeps a pool's render cache on the user's three cache settings (folder,
// maximum size, minimum free space): applied at construction and again on
// every change. Message thread, like the settings it listens to; lives no
// longer than the settings and the pool.
class RenderCacheSettingsLink : private qvrControllableAPI::ParameterChangeListener
{
public:
    RenderCacheSettingsLink (TavrineSettings& settings, SamplePoolManager& pool);
    ~RenderCacheSettingsLink() override;

private:
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;
    void apply();

    TavrineSettings& settings;
    SamplePoolManager& pool;

    JUCE_DECLARE_NON_COPYABLE (RenderCacheSettingsLink)
};
