#include "gui/player/TavrineComponentConnector.h"

void TavrineComponentConnector::setTypeTest (SpecialComponent slot, TypeTest test)
{
    const auto index = (size_t) slot;
    jassert (index < typeTests.size());
    if (index < typeTests.size())
        typeTests[index] = std::move (test);
}

bool TavrineComponentConnector::connectSpecial (juce::Component& component,
                                                qvrControllableAPI::Controllable& controllable)
{
    for (auto& test : typeTests)
        if (test != nullptr && test (component, *this, controllable))
            return true;
    return false;
}
