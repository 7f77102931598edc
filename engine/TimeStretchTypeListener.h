#pragma once

#include "controllable/handle/ParamDefHandle.h"

// Keeps a loop's three time selections in step: `timeStretchType` (the
// stretch modes and "Vari-Speed"), the stretch source's `meridexProcMode`
// and the resampler's `resamplingMode` (3 is "Pitch-Speed"). "Vari-Speed" as
// an algorithm and "Pitch-Speed" as a resampling mode always come and go
// together; leaving them brings back the last real algorithm and the
// resampling mode that was in use before.
//
// With V: `timeStretchType` is "Vari-Speed", P: `resamplingMode` is 3, D:
// `meridexProcMode` differs from `timeStretchType`, the first rule that fits
// a change applies:
//   1. type changed, V and not P: remember the mode, mode := 3
//   2. mode changed, P and not V: remember 1, type := "Vari-Speed"
//   3. type changed, P and not V; or mode changed, V and not P:
//      type := `meridexProcMode`, mode := the remembered one
//   4. type changed, D, neither V nor P: `meridexProcMode` := type
//   5. `meridexProcMode` changed, D, neither V nor P: type := it
// It runs once at construction as if the type had changed. Writes it makes
// itself come back to it as changes; they are not acted on again.
//
// Owned by the loop. Threads: the thread that writes one of the three (the
// message thread: user interface, state); not the audio thread (it writes
// strings).
class TimeStretchTypeListener : private qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr const char* kVariSpeed = "Vari-Speed";
    static constexpr int kPitchSpeed = 3;

    TimeStretchTypeListener (qvrControllableAPI::ParameterDef* timeStretchType,
                             qvrControllableAPI::ParameterDef* meridexProcMode,
                             qvrControllableAPI::ParameterDef* resamplingMode);
    ~TimeStretchTypeListener() override;

    int getSavedResamplingMode() const noexcept { return savedResamplingMode; }

private:
    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    qvrControllableHandle::StringParamDefHandle timeStretchType, meridexProcMode;
    qvrControllableHandle::IntParamDefHandle resamplingMode;
    int savedResamplingMode = 0;
    bool applying = false;

    JUCE_DECLARE_NON_COPYABLE (TimeStretchTypeListener)
};
