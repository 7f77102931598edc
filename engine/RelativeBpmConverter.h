#pragma once

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/DefaultValueConverter.h"

// Shows a tempo ratio ("relativeBpm") as a tempo: the ratio times the
// sample's own tempo, with two decimals and no trailing ".00". Parsing takes
// a tempo (a comma counts as a point) and gives tempo / source tempo, or 1
// when either is not above 0.
//
// The source tempo is read from the parameter given (the sample source's
// "sourceBpm"), each time: it changes with the sample. Threads: those of
// the parameter's text conversions (message thread, host threads).
class RelativeBpmConverter : public qvrControllableLib::DefaultValueConverter
{
public:
    explicit RelativeBpmConverter (qvrControllableAPI::ParameterDef* sourceBpm);

    qvrControllableAPI::ErrorCode stringFromFloat (const double& in, juce::String& out) override;
    qvrControllableAPI::ErrorCode floatFromString (const juce::String& in, double& out) override;

private:
    double sourceTempo() const;

    qvrControllableHandle::FloatParamDefHandle sourceBpm;
};
