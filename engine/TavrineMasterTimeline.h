#pragma once

#include <cstdint>

#include "audio/AudioEventTimeline.h"
#include "controllable/api/ControllableAPI.h"

// The master chain's time in bars of four beats at the engine's fixed
// 44100 Hz, while a host tempo is known; the raw sample count otherwise. The
// grid is free-running: it restarts when trigger play mode goes on.
//
// Threads: audio thread, but for construction and the listener, which runs on
// the thread that switches trigger play mode and only asks for the restart;
// the master chain restarts the count at the start of its next block, so that
// the grid always begins on a block's first sample.
class TavrineMasterTimeline : public qvrControllableAudio::AudioEventTimeline,
                              public qvrControllableAPI::ParameterChangeListener
{
public:
    static constexpr int kBeatsPerUnit = 4;
    static constexpr double kSampleRate = 44100.0;

    TavrineMasterTimeline (qvrControllableAPI::ParameterDef* outputBpm,
                           qvrControllableAPI::ParameterDef* triggerPlayMode);
    ~TavrineMasterTimeline() override;

    double getPosition() override;
    void setPosition (const double& position) override;
    double getStep() override;
    int samplesUntil (const double& time) override;
    void advance (const int& samples) override;
    bool isReachable (const double& time) override;

    void parameterChanged (qvrControllableAPI::ParameterDef* parameter) override;

    // Position of a sample count, and the sample count of a position.
    double positionOf (std::int64_t samples) const noexcept;
    std::int64_t samplesOf (double position) const noexcept;

    std::int64_t getSamplePosition() const noexcept { return samplePosition.load(); }
    // Audio thread, at the start of a block: restarts the count if trigger
    // play mode went on since the last block.
    void applyRequestedRestart();

private:
    std::atomic<std::int64_t> samplePosition { 0 };
    std::atomic<bool> restartRequested { false };
    qvrControllableHandle::FloatParamDefHandle outputBpm;
    qvrControllableAPI::ParameterDefPtr triggerPlayMode;
};
