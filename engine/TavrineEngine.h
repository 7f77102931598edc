#pragma once

#include "audio/SampleRateConverter.h"
#include "controllable/lib/ShortcutValue.h"
#include "engine/TavrineEngineDispatcher.h"
#include "engine/TavrineLoop.h"
#include "engine/TavrineLoopMixer.h"
#include "engine/SnapParameterFactory.h"
#include "engine/TavrineMasterChain.h"

// The whole player: 72 loops, the mixer, the master chain, the dispatcher
// through which every parameter is addressed, and the outer rate converter
// (the only object that sees the host's rate; inside, everything runs at
// 44100 Hz). The loop array never changes after construction.
//
// Threads: triggerKey and flushReadAhead are safe on the audio thread; other
// threads use TavrineLoop::setPendingTrigger.
class TavrineEngine : public qvrControllableAudio::AudioSourceProvider
{
public:
    static constexpr int kNumLoops = 72;
    // Stereo output buses of the player: the host's outputs, the loops' and
    // the prelisten voice's choice of bus.
    static constexpr int kNumOutputBuses = 16;
    static constexpr int kFirstNote = 36;
    static constexpr double kInternalSampleRate = 44100.0;
    static constexpr const char* kTargetKey = "targetKey";

    // singleBus: one output bus instead of 16.
    explicit TavrineEngine (bool singleBus = false);
    ~TavrineEngine() override;

    juce::AudioSource* getAudioSource() override { return sampleRateConverter.get(); }
    qvrControllableAPI::Controllable* getControllable() override { return dispatcher.get(); }

    TavrineLoop* getLoop (int index) const { return loops[index].get(); }
    const juce::ReferenceCountedArray<TavrineLoop>& getLoops() const noexcept { return loops; }
    int getNumLoops() const noexcept { return loops.size(); }
    int indexOfLoop (const TavrineLoop* loop) const noexcept { return loops.indexOf (loop); }

    // Audio thread (from MIDI) or any thread that owns the audio lock.
    // A key that, read as unsigned, is at or beyond the loop count is ignored.
    void triggerKey (int key, bool on, bool force, float velocity);
    // Throws away what the master stretcher holds ahead of the output and
    // rewinds the loops that keep playing by as much; keepA and keepB drop
    // their memory instead.
    void flushReadAhead (TavrineLoop* keepA, TavrineLoop* keepB);

    int getNumOutputBuses() const noexcept { return numOutputBuses; }
    TavrineMasterChain& getMasterChain() noexcept { return *masterChain; }
    TavrineLoopMixer& getLoopMixer() noexcept { return *loopMixer; }
    TavrineEngineDispatcher& getDispatcher() noexcept { return *dispatcher; }
    qvrControllableAudio::SampleRateConverter& getSampleRateConverter() noexcept { return *sampleRateConverter; }
    qvrControllableAPI::ParameterDef* getTargetKey() const noexcept { return targetKey.get(); }
    SnapParameterFactory& getSnapFactory() noexcept { return *snapFactory; }

    // "C1" for key 0 ... "B6" for key 71.
    static juce::String getKeyName (int keyIndex);

private:
    void createLoop();

    const int numOutputBuses;
    std::unique_ptr<SnapParameterFactory> snapFactory;
    juce::ReferenceCountedArray<TavrineLoop> loops;
    juce::Array<qvrControllableLib::BoolShortcutValue> triggers;
    juce::ReferenceCountedObjectPtr<qvrControllableLib::BasicControllable> targetKeyHolder;
    qvrControllableHandle::StringParamDefHandle targetKey { kTargetKey };
    juce::ReferenceCountedObjectPtr<TavrineLoopMixer> loopMixer;
    juce::ReferenceCountedObjectPtr<TavrineEngineDispatcher> dispatcher;
    juce::ReferenceCountedObjectPtr<TavrineMasterChain> masterChain;
    std::unique_ptr<qvrControllableAudio::SampleRateConverter> sampleRateConverter;

    JUCE_DECLARE_NON_COPYABLE (TavrineEngine)
};

using TavrineEnginePtr = juce::ReferenceCountedObjectPtr<TavrineEngine>;
