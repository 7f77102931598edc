#include "HostParameters.h"

#include "PluginContract.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace pluginCheck
{
HostParameters collectParameters (juce::AudioPluginInstance& instance)
{
    HostParameters result;
    const auto& all = instance.getParameters();
    result.total = all.size();
    result.bypass = instance.getBypassParameter();
    for (int i = 0; i < all.size(); ++i)
    {
        if (all[i] == result.bypass)
            result.bypassIndex = i;
        else
            result.table.push_back (all[i]);
    }
    return result;
}

juce::String idOf (const juce::AudioProcessorParameter* parameter)
{
    if (auto* hosted = dynamic_cast<const juce::AudioPluginInstance::HostedParameter*> (parameter))
        return hosted->getParameterID();
    return {};
}

void checkParameterTable (const HostParameters& parameters, const Options& options, CheckReport& report)
{
    report.section ("parameters");
    const auto expected = makeExpectedTable();
    const int found = (int) parameters.table.size();

    report.expect (found == kNumHostParameters,
                   "exactly " + juce::String (kNumHostParameters) + " parameters besides the format's bypass",
                   juce::String (found) + " found (" + juce::String (parameters.total) + " in all)");

    ProblemList controllerParameters;
    for (auto* parameter : parameters.table)
        if (parameter->getName (256).startsWith ("MIDI CC"))
            controllerParameters.add ("\"" + parameter->getName (256) + "\"");
    controllerParameters.report (report, "no MIDI controller stand-in parameters");

    if (parameters.bypass != nullptr)
    {
        report.note ("the format adds a bypass parameter \"" + parameters.bypass->getName (256) + "\" (ID "
                     + idOf (parameters.bypass) + ") at host index " + juce::String (parameters.bypassIndex)
                     + "; it is not counted above");
        // A bypass in front would shift every host index of the table; in LV2
        // the host index carries no meaning (see below).
        if (options.format == FormatKind::vst3)
            report.expect (parameters.bypassIndex == parameters.total - 1, "the bypass comes after the table",
                           "it is at index " + juce::String (parameters.bypassIndex) + " of "
                               + juce::String (parameters.total));
    }

    ProblemList names, ids;
    if (options.format == FormatKind::vst3)
    {
        // VST3 hosts list parameters in index order and save them by ID: both
        // are checked for every entry of the table.
        std::map<juce::String, int> seenIds;
        for (int i = 0; i < kNumHostParameters; ++i)
        {
            const auto& want = expected[(size_t) i];
            if (i >= found)
            {
                names.add ("index " + juce::String (i) + ": missing, expected \"" + want.name + "\"");
                continue;
            }
            const auto* parameter = parameters.table[(size_t) i];
            const auto name = parameter->getName (256);
            if (name != want.name)
                names.add ("index " + juce::String (i) + ": \"" + name + "\", expected \"" + want.name + "\"");

            const auto id = idOf (parameter);
            if (id != vst3IdForPath (want.path))
                ids.add ("index " + juce::String (i) + " (" + want.name + "): ID " + id + ", expected "
                         + vst3IdForPath (want.path) + " (from \"" + want.path + "\")");
            if (const auto [it, inserted] = seenIds.emplace (id, i); ! inserted)
                ids.add ("indices " + juce::String (it->second) + " and " + juce::String (i) + " share ID " + id);
        }
        names.report (report, "every name matches its host index (all " + juce::String (kNumHostParameters) + ")");
        ids.report (report, "every VST3 ID is the hash of its path, none shared");
    }
    else
    {
        // LV2 has no parameter index: parameters are properties, and JUCE's
        // host lists them sorted by URI. Each table entry is looked up by the
        // property its path gives and must carry its name.
        std::map<juce::String, const juce::AudioProcessorParameter*> byId;
        for (auto* parameter : parameters.table)
            byId[idOf (parameter)] = parameter;

        for (int i = 0; i < kNumHostParameters; ++i)
        {
            const auto& want = expected[(size_t) i];
            const auto id = lv2IdForPath (options.uri, want.path);
            const auto it = byId.find (id);
            if (it == byId.end())
            {
                names.add ("index " + juce::String (i) + " (" + want.name + "): no property "
                           + id.fromFirstOccurrenceOf ("des:", false, false));
                continue;
            }
            const auto name = it->second->getName (256);
            if (name != want.name)
                names.add ("index " + juce::String (i) + " (" + id.fromLastOccurrenceOf (":", false, false) + "): \""
                           + name + "\", expected \"" + want.name + "\"");
            byId.erase (it);
        }
        for (const auto& [id, parameter] : byId)
            ids.add ("\"" + parameter->getName (256) + "\" (" + id + ")");
        names.report (report, "every table entry is a property named as its host index says (all "
                                  + juce::String (kNumHostParameters) + ")");
        ids.report (report, "no property outside the table");
    }
}

void checkParameterTexts (const HostParameters& parameters, CheckReport& report)
{
    ProblemList problems;
    for (size_t i = 0; i < parameters.table.size(); ++i)
        for (const float value : { 0.0f, 0.5f, 1.0f })
            if (parameters.table[i]->getText (value, 64).trim().isEmpty())
                problems.add ("\"" + parameters.table[i]->getName (256) + "\" at " + juce::String (value));
    problems.report (report, "every parameter has a text at 0, 0.5 and 1");
}

float farEndFromDefault (const juce::AudioProcessorParameter& parameter)
{
    return parameter.getDefaultValue() < 0.5f ? 1.0f : 0.0f;
}

void compareWithFarEnds (const HostParameters& actual, const HostParameters& reference, ProblemList& problems)
{
    const size_t n = std::min (actual.table.size(), reference.table.size());
    for (size_t i = 0; i < n; ++i)
    {
        const float want = farEndFromDefault (*reference.table[i]);
        const float got = actual.table[i]->getValue();
        if (std::abs (got - want) > 1.0e-3f)
            problems.add ("\"" + actual.table[i]->getName (256) + "\" is " + juce::String (got) + ", expected "
                          + juce::String (want));
    }
}
} // namespace pluginCheck
