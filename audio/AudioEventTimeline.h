#pragma once

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"
#include "controllable/lib/ShortcutValue.h"

namespace qvrControllableAudio
{
using namespace qvrControllableAPI;

// The notion of position of a chain, in a unit of its own (samples, bars,
// fractions of a sample). The position is the parameter `currentTime`, which
// is not saved in state.
//
// Audio thread: every operation but the construction.
class AudioEventTimeline : public qvrControllableLib::BasicControllable
{
public:
    static constexpr const char* kCurrentTime = "currentTime";

    AudioEventTimeline();

    virtual double getPosition() { return currentTime.read(); }
    virtual void setPosition (const double& position);
    virtual ParameterDef* getCurrentTimeParameter() { return currentTime.get(); }
    // The size of one output sample in position units.
    virtual double getStep() = 0;
    virtual int samplesUntil (const double& time) = 0;
    virtual void advance (const int& samples) = 0;
    virtual bool isReachable (const double& time) = 0;

protected:
    qvrControllableHandle::FloatParamDefHandle currentTime { kCurrentTime };
    qvrControllableLib::FloatShortcutValue currentTimeShortcut;
};

// Counts samples: step 1, position + n on advance.
class SampleEventTimeline : public AudioEventTimeline
{
public:
    double getStep() override { return 1.0; }
    int samplesUntil (const double& time) override { return (int) (time - getPosition()); }
    void advance (const int& samples) override { setPosition (getPosition() + samples); }
    bool isReachable (const double& time) override { return getPosition() <= time; }
};

using AudioEventTimelinePtr = juce::ReferenceCountedObjectPtr<AudioEventTimeline>;
} // namespace qvrControllableAudio
