#include "AssertionLogger.h"

#include <iostream>

namespace pluginCheck
{
void AssertionLogger::logMessage (const juce::String& message)
{
    if (message.startsWith ("JUCE Assertion failure"))
        ++assertions;
    std::cerr << message << std::endl;
}
} // namespace pluginCheck
