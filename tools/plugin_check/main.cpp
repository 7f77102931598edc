// tavrine_plugin_check: loads a built Tavrine 2 binary through JUCE's own VST3
// or LV2 hosting, the way a host does, and checks what hosts and saved
// sessions rely on: identity and MIDI input, the fixed table of 648 automation
// parameters (count, names, stable IDs), rendering with notes at awkward
// offsets under a moving transport, state, and a clean unload.
//
//   tavrine_plugin_check --vst3 PATH_TO.vst3
//   tavrine_plugin_check --lv2 BUNDLE_DIR --uri URI
//   either one optionally followed by --require-state
//
// Everything runs on the main thread, which is the message thread; processBlock
// is called from it too, which both formats allow. Exit code 0 when every
// check passed, 1 when any failed, 2 for bad arguments.

#include "AssertionLogger.h"
#include "CheckOptions.h"
#include "PluginCheck.h"
#include "Sandbox.h"
#include "StderrRepeatFilter.h"

#include <juce_events/juce_events.h>

#include <iostream>

int main (int argc, char** argv)
{
    using namespace pluginCheck;

    juce::StringArray args;
    for (int i = 1; i < argc; ++i)
        args.add (juce::CharPointer_UTF8 (argv[i]));

    juce::String error;
    const auto options = parseArguments (args, error);
    if (! options)
    {
        std::cerr << "tavrine_plugin_check: " << error << "\n" << kUsage;
        return 2;
    }

    // Before JUCE starts, so that nothing reads the real HOME.
    Sandbox sandbox;
    if (! sandbox.isReady())
    {
        std::cerr << "tavrine_plugin_check: could not make a private temporary directory\n";
        return 1;
    }

    int failures = 0;
    AssertionLogger logger;
    StderrRepeatFilter stderrFilter;
    {
        juce::ScopedJuceInitialiser_GUI juceInitialiser;
        juce::Logger::setCurrentLogger (&logger);
        failures = runChecks (*options, sandbox);
        juce::Logger::setCurrentLogger (nullptr);
    }
    stderrFilter.finish();

    if (logger.getNumAssertions() > 0)
        std::cout << "note  the host side logged " << logger.getNumAssertions()
                  << " JUCE assertion(s); see the messages above" << std::endl;
    std::cout << (failures == 0 ? "PASS" : "FAIL") << " (" << failures << " failure(s))" << std::endl;
    return failures == 0 ? 0 : 1;
}
