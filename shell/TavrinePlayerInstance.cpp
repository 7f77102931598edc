#include "shell/TavrinePlayerInstance.h"

TavrinePlayerInstance::TavrinePlayerInstance() : engine (new TavrineEngine (TavrineEngine::Buses::sixteen)) {}

TavrinePlayerInstance::~TavrinePlayerInstance()
{
    // The engine goes first: its loops may refer to undo actions' targets.
    engine = nullptr;
}
