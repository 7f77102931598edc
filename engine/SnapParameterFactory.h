#pragma once

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"

// Makes the grid pairs: `<prefix>snapMode` (divisions of the whole) and
// `<prefix>snapTimes` (the positions i / n for i = 0 .. n), and keeps every
// registered times list in step with its mode.
//
// Threads: the lists are rebuilt on the thread that changes a mode (the
// message thread); the audio thread derives positions from the mode's value
// instead of walking a list that may be rebuilt under it.
class SnapParameterFactory : private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr const char* kSnapMode = "snapMode";
    static constexpr const char* kSnapTimes = "snapTimes";
    static constexpr int kDefaultMode = 16;

    SnapParameterFactory() = default;
    ~SnapParameterFactory() override;

    struct Grid
    {
        qvrControllableAPI::ParameterDefPtr snapMode;
        qvrControllableAPI::ParameterDefPtr snapTimes;
    };

    // Adds both parameters to `owner`. `withOff` adds the entry 1024 ("Off")
    // that only the loop markers offer.
    Grid createGrid (qvrControllableLib::BasicControllable& owner, const juce::String& prefix, int defaultMode,
                     bool withOff);

    // Fills `times` with i / n for i = 0 .. n, as one change.
    static void fillTimes (qvrControllableAPI::ParameterDef& times, int n);

private:
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    qvrControllableAPI::ParameterArray snapModes, snapTimes;

    JUCE_DECLARE_NON_COPYABLE (SnapParameterFactory)
};
