#pragma once

#include "controllable/handle/ParamDefHandle.h"

// Merges up to three inputs into one output parameter, whenever an input
// changes: a is the slice sequencer's value, b the pad's (`.xyMode`), c the
// `.fine` factor if there is one. The result is limited to [minimum, maximum].
//
//   multiply: a x b (x c)      gain, resamplingRatio, the filter values
//   add:      a + b (+ c)      balance
//
// Owned by the loop. Threads: the listener runs on the thread that writes an
// input (the audio thread for `gain.fine`, which carries the velocity); it
// reads each input with one load and writes the output through the
// framework.
class FloatValueCombiner : private qvrControllableAPI::ParameterChangeListener
{
public:
    enum class Kind
    {
        multiply,
        add
    };

    FloatValueCombiner (Kind kind, qvrControllableAPI::ParameterDef* output, double minimum, double maximum,
                        qvrControllableAPI::ParameterDef* a, qvrControllableAPI::ParameterDef* b,
                        qvrControllableAPI::ParameterDef* c = nullptr);
    ~FloatValueCombiner() override;

    // Replaces input a (the sequencer's output). Message thread, before audio.
    void setSequencerInput (qvrControllableAPI::ParameterDef* a);
    // Writes the output from the present inputs.
    void recalculate();
    double combine() const noexcept;

private:
    void parameterChanged (qvrControllableAPI::ParameterDef*) override { recalculate(); }
    void listen (qvrControllableHandle::FloatParamDefHandle& input, bool on);

    const Kind kind;
    const double minimum, maximum;
    qvrControllableHandle::FloatParamDefHandle output, inputA, inputB, inputC;

    JUCE_DECLARE_NON_COPYABLE (FloatValueCombiner)
};
