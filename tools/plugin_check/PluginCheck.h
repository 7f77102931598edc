#pragma once

#include "CheckOptions.h"
#include "Sandbox.h"

namespace pluginCheck
{
// The whole check of one binary: finds the plug-in, checks its identity and
// parameter table, renders, restores state in a second instance, unloads and
// loads again. Runs on the message thread with JUCE initialised; processBlock
// is called from it too, which both formats allow. Prints the report and
// returns the number of failures.
int runChecks (const Options& options, Sandbox& sandbox);
} // namespace pluginCheck
