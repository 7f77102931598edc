#include "ProblemList.h"

#include <iostream>

namespace pluginCheck
{
void ProblemList::add (const juce::String& problem)
{
    if (count++ < kMaxListedProblems)
        listed.add (problem);
}

void ProblemList::report (CheckReport& report, const juce::String& what, Severity severity) const
{
    if (count == 0)
    {
        report.pass (what);
        return;
    }
    const auto summary = what + ": " + juce::String (count) + " problem(s), first:";
    if (severity == Severity::failure)
        report.fail (summary);
    else
        report.note ("NOT COUNTED " + summary);
    for (const auto& line : listed)
        std::cout << "          " << line << std::endl;
}
} // namespace pluginCheck
