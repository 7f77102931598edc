#pragma once

#include "audio/AudioEventTimeline.h"

// The clock of a loop's chain: the position is a fraction of the loop's
// sample (0 .. 1), and one output sample moves it by `resamplingRatio` /
// `totalLength`. Without a sample (`totalLength` not above 0) the timeline
// has no length: every question answers -1 or false, so no event fires.
//
// The handles are bound by the loop to its sample source's `totalLength` and
// its resampler's `resamplingRatio` (again when the sample source changes).
//
// Threads: binding on the message thread before audio; everything else on
// the audio thread (reads are one load each).
class TavrineLoopTimeline : public qvrControllableAudio::AudioEventTimeline
{
public:
    TavrineLoopTimeline();

    void bind (qvrControllableAPI::ParameterDef* totalLengthParameter,
               qvrControllableAPI::ParameterDef* resamplingRatioParameter);

    // resamplingRatio / totalLength, or -1 without a sample.
    double getStep() override;
    // Output samples until `time`, rounded; -1 without a sample.
    int samplesUntil (const double& time) override;
    void advance (const int& samples) override;
    // True while `time` lies at most one step behind the position: a time
    // that rounding left one sample behind still fires.
    bool isReachable (const double& time) override;

private:
    // The ratio as the resampler applies it: never zero or negative.
    double ratio() const noexcept;

    qvrControllableHandle::IntParamDefHandle totalLength;
    qvrControllableHandle::FloatParamDefHandle resamplingRatio;

    JUCE_DECLARE_NON_COPYABLE (TavrineLoopTimeline)
};

using TavrineLoopTimelinePtr = juce::ReferenceCountedObjectPtr<TavrineLoopTimeline>;
