#include "PluginCheck.h"

#include "CheckReport.h"
#include "MessagePump.h"
#include "GroovePass.h"
#include "HostParameters.h"
#include "PluginContract.h"
#include "ProblemList.h"
#include "RenderPass.h"
#include "Stopwatch.h"

#include <juce_audio_processors/juce_audio_processors.h>

#include <memory>

namespace pluginCheck
{
namespace
{
// Finds the plug-in under test and checks that it is the only candidate.
std::unique_ptr<juce::PluginDescription> findPlugin (juce::AudioPluginFormat& format, const Options& options,
                                                     const Sandbox& sandbox, CheckReport& report)
{
    juce::OwnedArray<juce::PluginDescription> types;
    if (options.format == FormatKind::vst3)
    {
        if (! options.bundle.isDirectory())
        {
            report.fail ("no VST3 bundle at " + options.bundle.getFullPathName());
            return nullptr;
        }
        format.findAllTypesForFile (types, options.bundle.getFullPathName());
    }
    else
    {
        if (! options.bundle.getChildFile ("manifest.ttl").existsAsFile())
        {
            report.fail ("no LV2 bundle (manifest.ttl) at " + options.bundle.getFullPathName());
            return nullptr;
        }
        // The format object has read the system folders (and the empty ~/.lv2)
        // already: a copy of the URI there would mix with the bundle under test.
        format.findAllTypesForFile (types, options.uri);
        if (! types.isEmpty())
        {
            report.fail (options.uri
                         + " is installed in a system LV2 folder; remove that copy, it would be "
                           "tested instead of "
                         + options.bundle.getFullPathName());
            return nullptr;
        }
        if (! sandbox.linkIntoLv2Folder (options.bundle))
        {
            report.fail ("could not link the bundle into " + sandbox.getLv2Folder().getFullPathName());
            return nullptr;
        }
        const juce::FileSearchPath privateFolder (sandbox.getLv2Folder().getFullPathName());
        const auto found = format.searchPathsForPlugins (privateFolder, false);
        report.note ("LV2 plug-ins the host knows with the bundle added: " + found.joinIntoString (", "));
        format.findAllTypesForFile (types, options.uri);
    }

    if (types.isEmpty())
    {
        report.fail ("no plug-in found in " + options.bundle.getFullPathName()
                     + (options.uri.isNotEmpty() ? " under " + options.uri : juce::String()));
        return nullptr;
    }
    if (options.format == FormatKind::vst3)
        report.expect (types.size() == 1, "the bundle holds one plug-in", juce::String (types.size()) + " found");
    return std::make_unique<juce::PluginDescription> (*types.getFirst());
}

std::unique_ptr<juce::AudioPluginInstance> createInstance (juce::AudioPluginFormat& format,
                                                           const juce::PluginDescription& description,
                                                           CheckReport& report, const juce::String& which)
{
    Stopwatch stopwatch;
    juce::String error;
    auto instance = format.createInstanceFromDescription (description, 44100.0, 512, error);
    if (instance == nullptr)
        report.fail ("creating " + which + ": " + (error.isNotEmpty() ? error : "no reason given"));
    else
        report.pass ("created " + which + " (" + stopwatch.lap() + ")");
    return instance;
}

void checkIdentity (juce::AudioPluginInstance& instance, const juce::PluginDescription& description,
                    CheckReport& report)
{
    report.section ("identity");
    report.expect (description.name == kProductName, "the description is named \"" + juce::String (kProductName) + "\"",
                   "found \"" + description.name + "\"");
    report.expect (instance.getName() == kProductName, "the instance is named \"" + juce::String (kProductName) + "\"",
                   "found \"" + instance.getName() + "\"");
    report.expect (description.isInstrument, "hosts list it as an instrument", "the description says it is not one");
    report.expect (instance.acceptsMidi(), "it accepts MIDI", "acceptsMidi() is false");
    report.expect (instance.getMainBusNumOutputChannels() >= 2, "the main output bus has at least 2 channels",
                   juce::String (instance.getMainBusNumOutputChannels()) + " found");
    // Hosts route the loops' outputs by bus number, and sessions keep that.
    report.expect (instance.getBusCount (false) == kNumOutputBuses && instance.getBusCount (true) == 0,
                   juce::String (kNumOutputBuses) + " output buses and no input",
                   juce::String (instance.getBusCount (false)) + " output and "
                       + juce::String (instance.getBusCount (true)) + " input buses found");
    report.note ("maker \"" + description.manufacturerName + "\", version \"" + description.version + "\", "
                 + juce::String (instance.getTotalNumOutputChannels()) + " output channels enabled by default");
}
} // namespace

int runChecks (const Options& options, Sandbox& sandbox)
{
    CheckReport report;
    Stopwatch total;

    std::unique_ptr<juce::AudioPluginFormat> format;
    if (options.format == FormatKind::vst3)
        format = std::make_unique<juce::VST3PluginFormat>();
    else
        format = std::make_unique<juce::LV2PluginFormat>();

    report.section (format->getName() + " " + options.bundle.getFullPathName()
                    + (options.uri.isNotEmpty() ? " (" + options.uri + ")" : juce::String()));
    report.note ("HOME for this run: " + sandbox.getHome().getFullPathName());

    const auto description = findPlugin (*format, options, sandbox, report);
    if (description == nullptr)
        return report.getNumFailures();

    auto instance = createInstance (*format, *description, report, "the first instance");
    if (instance == nullptr)
        return report.getNumFailures();
    pumpMessagesFor (100);

    checkIdentity (*instance, *description, report);
    const auto parameters = collectParameters (*instance);
    checkParameterTable (parameters, options, report);
    checkParameterTexts (parameters, report);

    // Pass 1: host automation of every parameter to one end of its range, then
    // to the far end from its default, while notes play.
    report.section ("rendering");
    render (*instance, { "44100 Hz / 512, main bus", 44100.0, 512, BusChoice::mainOnly, 3.0 }, report,
            [&] (int block, int numBlocks) {
                if (block == numBlocks / 3)
                    for (auto* parameter : parameters.table)
                        parameter->setValue (0.0f);
                if (block == 2 * numBlocks / 3)
                    for (auto* parameter : parameters.table)
                        parameter->setValue (farEndFromDefault (*parameter));
            });

    // Every output bus on, first at the same rate, then at a new rate with a
    // small block: rate conversion and bus routing fail apart. JUCE's LV2 host
    // instantiates the plug-in again on each prepareToPlay and carries the
    // values over through the plug-in's state.
    report.section ("rendering with every bus");
    render (*instance, { "44100 Hz / 512, all buses", 44100.0, 512, BusChoice::all, 1.0 }, report, {});
    render (*instance, { "48000 Hz / 64, all buses", 48000.0, 64, BusChoice::all, 3.0 }, report, {});

    // The values set in pass 1 must come back from the plug-in's state, as a
    // host restoring a session gets them, in a second instance alive next to
    // the first. The hosts' caches would hide a loss: VST3 reads the values
    // back from the restored plug-in, LV2 learns them from the plug-in's
    // messages after a block.
    report.section ("state");
    {
        juce::MemoryBlock state;
        instance->getStateInformation (state);
        report.note ("the state is " + juce::String ((int) state.getSize()) + " bytes");
        auto second = createInstance (*format, *description, report, "a second instance");
        if (second != nullptr)
        {
            second->prepareToPlay (44100.0, 512);
            second->setStateInformation (state.getData(), (int) state.getSize());
            processOneBlock (*second, 512);
            ProblemList lost;
            compareWithFarEnds (collectParameters (*second), parameters, lost);
            lost.report (report, "a second instance restored from the state has every value set in pass 1",
                         options.state == StateRequirement::required ? Severity::failure : Severity::uncounted);
            if (! lost.isEmpty() && options.state != StateRequirement::required)
                report.note ("(--require-state counts it)");

            render (*second, { "second instance", 44100.0, 512, BusChoice::mainOnly, 1.0 }, report, {});
            second->releaseResources();
            Stopwatch stopwatch;
            second = nullptr;
            pumpMessagesFor (100);
            report.pass ("released and deleted the second instance (" + stopwatch.lap() + ")");
        }
    }

    // A keyboard restored from a state plays, in time with the host, at the
    // rates hosts use most.
    // A fresh instance for each rate, as a host opening a session at it: the
    // first instance carries the far-end values of pass 1.
    report.section ("playing a loop");
    if (options.format != FormatKind::vst3)
        report.note ("played through the VST3 check only: JUCE's LV2 host keeps the state in a form of its own");
    else if (const auto clickLoop = writeClickLoop (sandbox.getHome()); clickLoop.existsAsFile())
    {
        for (const double rate : { 44100.0, 48000.0, 96000.0 })
            if (auto player = createInstance (*format, *description, report, "an instance to play"))
            {
                playGroove (*player, clickLoop, { rate, 100.0, 6.0 }, report);
                player = nullptr;
                pumpMessagesFor (100);
            }
    }
    else
        report.fail ("could not write the click loop into " + sandbox.getHome().getFullPathName());

    report.section ("unloading");
    {
        Stopwatch stopwatch;
        instance->releaseResources();
        instance = nullptr;
        pumpMessagesFor (100);
        report.pass ("released and deleted the first instance (" + stopwatch.lap() + ")");
    }

    // Shared state inside the binary must come back after its last instance
    // has gone, as when a host removes the plug-in and adds it again.
    if (auto third = createInstance (*format, *description, report, "a third instance after all were deleted"))
    {
        render (*third, { "third instance", 44100.0, 512, BusChoice::mainOnly, 0.5 }, report, {});
        third->releaseResources();
        third = nullptr;
        pumpMessagesFor (100);
        report.pass ("released and deleted the third instance");
    }

    format = nullptr;
    report.note ("total " + total.lap());
    return report.getNumFailures();
}
} // namespace pluginCheck
