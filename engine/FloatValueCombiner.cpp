#include "engine/FloatValueCombiner.h"

#include "controllable/api/Parameter.h"

FloatValueCombiner::FloatValueCombiner (Kind k, qvrControllableAPI::ParameterDef* out, double lowest, double highest,
                                        qvrControllableAPI::ParameterDef* a, qvrControllableAPI::ParameterDef* b,
                                        qvrControllableAPI::ParameterDef* c)
    : kind (k), minimum (lowest), maximum (highest)
{
    output.bind (out);
    inputA.bind (a);
    inputB.bind (b);
    inputC.bind (c);
    for (auto* input : { &inputA, &inputB, &inputC })
        listen (*input, true);
    recalculate();
}

FloatValueCombiner::~FloatValueCombiner()
{
    for (auto* input : { &inputA, &inputB, &inputC })
        listen (*input, false);
}

void FloatValueCombiner::listen (qvrControllableHandle::FloatParamDefHandle& input, bool on)
{
    if (input.get() == nullptr)
        return;
    if (on)
        input->addChangeListener (this, true);
    else
        input->removeChangeListener (this, true);
}

void FloatValueCombiner::setSequencerInput (qvrControllableAPI::ParameterDef* a)
{
    listen (inputA, false);
    inputA.bind (a);
    listen (inputA, true);
    recalculate();
}

double FloatValueCombiner::combine() const noexcept
{
    const bool multiply = kind == Kind::multiply;
    double result = multiply ? 1.0 : 0.0;
    for (auto* input : { &inputA, &inputB, &inputC })
        if (input->getRaw() != nullptr)
            result = multiply ? result * input->read() : result + input->read();
    return juce::jlimit (minimum, maximum, result);
}

void FloatValueCombiner::recalculate()
{
    if (output.getRaw() == nullptr)
        return;
    const double result = combine();
    if (output.read() != result)
        output.write (result);
}
