#include "engine/RelativeBpmConverter.h"

using qvrControllableAPI::ErrorCode;
using qvrControllableAPI::kOk;

RelativeBpmConverter::RelativeBpmConverter (qvrControllableAPI::ParameterDef* sourceBpmParameter)
{
    sourceBpm.bind (sourceBpmParameter);
}

double RelativeBpmConverter::sourceTempo() const
{
    return sourceBpm.getRaw() != nullptr ? sourceBpm.read() : 0.0;
}

ErrorCode RelativeBpmConverter::stringFromFloat (const double& in, juce::String& out)
{
    out = juce::String (in * sourceTempo(), 2);
    if (out.endsWith (".00"))
        out = out.dropLastCharacters (3);
    return kOk;
}

ErrorCode RelativeBpmConverter::floatFromString (const juce::String& in, double& out)
{
    const double tempo = in.trim().replaceCharacter (',', '.').getDoubleValue();
    const double source = sourceTempo();
    out = tempo > 0.0 && source > 0.0 ? tempo / source : 1.0;
    return kOk;
}
