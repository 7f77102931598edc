#include "CheckReport.h"

#include <iostream>

namespace pluginCheck
{
void CheckReport::section (const juce::String& title)
{
    std::cout << title << std::endl;
}

void CheckReport::pass (const juce::String& what)
{
    std::cout << "  ok    " << what << std::endl;
}

void CheckReport::note (const juce::String& what)
{
    std::cout << "  note  " << what << std::endl;
}

void CheckReport::fail (const juce::String& what)
{
    ++failures;
    std::cout << "  FAIL  " << what << std::endl;
}

void CheckReport::expect (bool holds, const juce::String& what, const juce::String& otherwise)
{
    if (holds)
        pass (what);
    else
        fail (what + ": " + otherwise);
}
} // namespace pluginCheck
