#include "shell/TavrinePlayerInstance.h"

TavrinePlayerInstance::TavrinePlayerInstance (const juce::File& renderCacheDirectory)
    : engine (new TavrineEngine (TavrineEngine::Buses::sixteen, renderCacheDirectory))
{
}

TavrinePlayerInstance::~TavrinePlayerInstance()
{
    // The engine goes first: its loops may refer to undo actions' targets.
    engine = nullptr;
}
