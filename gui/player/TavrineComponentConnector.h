#pragma once

#include <array>
#include <functional>

#include "controllable/toolbox/ControllableComponentConnector.h"

// The player's connector: before the generic binding by name it gives the
// player's composite components the chance to bind their parts themselves.
//
// The composites are tested by dynamic type in a fixed order, the order of
// SpecialComponent; the first test that matches ends the search. Each
// composite class plugs its test in with setBinder<ThatClass> (its static
// method that takes the connector and the parameter root); a slot without a
// binder is skipped. The editor creates the connector and fills the slots
// before the first connectComponent. Message thread only.
class TavrineComponentConnector : public qvrControllableToolbox::ControllableComponentConnector
{
public:
    enum class SpecialComponent
    {
        frequencyResponsePanel,
        twinKeyboardComponent,
        keyAssignmentArea,
        vistarcComponent,
        vistarcScreen,
        exportDragSource,
        jobQueueProgressBar,
        menuAreaComponent,
        topBarComponent,
        browserListArea,
        browserUserbankArea,
        browserPrelistenArea,
        libraryFilterButton,
        libraryFilterArea,
        smallBrowser,
        debugInfoComponent,
        numSpecialComponents
    };

    // Answers true when the component is of its type and has been bound.
    using TypeTest =
        std::function<bool (juce::Component&, TavrineComponentConnector&, qvrControllableAPI::Controllable&)>;

    TavrineComponentConnector() = default;

    void setTypeTest (SpecialComponent slot, TypeTest test);

    // The usual way to fill a slot: `binder` runs for components whose
    // dynamic type is ComponentType.
    template <typename ComponentType>
    void setBinder (
        SpecialComponent slot,
        std::function<void (ComponentType&, TavrineComponentConnector&, qvrControllableAPI::Controllable&)> binder)
    {
        setTypeTest (slot,
                     [bind = std::move (binder)] (juce::Component& component, TavrineComponentConnector& connector,
                                                  qvrControllableAPI::Controllable& root) {
                         auto* typed = dynamic_cast<ComponentType*> (&component);
                         if (typed == nullptr)
                             return false;
                         bind (*typed, connector, root);
                         return true;
                     });
    }

protected:
    bool connectSpecial (juce::Component& component, qvrControllableAPI::Controllable& controllable) override;

private:
    std::array<TypeTest, (size_t) SpecialComponent::numSpecialComponents> typeTests;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (TavrineComponentConnector)
};
