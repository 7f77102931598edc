#pragma once

#include <array>
#include <cstdint>

#include "audio/SampleRateConverter.h"
#include "controllable/lib/ShortcutValue.h"
#include "engine/TavrineEngineDispatcher.h"
#include "engine/TavrineLoop.h"
#include "engine/TavrineLoopMixer.h"
#include "engine/SnapParameterFactory.h"
#include "engine/TavrineMasterChain.h"
#include "samples/TavrineSampleManager.h"

// The whole player: 72 loops, the mixer, the master chain, the dispatcher
// through which every parameter is addressed, and the outer rate converter
// (the only object that sees the host's rate; inside, everything runs at
// 44100 Hz). The loop array never changes after construction.
//
// Threads: triggerKey and flushReadAhead run on the audio thread only. Any
// other thread asks instead: TavrineLoop::setPendingTrigger for one key,
// requestReleaseAll for all of them; the audio thread acts on both at the
// start of the next master block.
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

    // How many stereo output buses the loops can be routed to.
    enum class Buses
    {
        single,
        sixteen
    };
    // What a key is asked to do: go on, or go off (through its release).
    enum class Key
    {
        off,
        on
    };
    // Whether a key also stops sounding at once, with no release and no
    // pending trigger left behind.
    enum class Cut
    {
        no,
        now
    };

    // renderCacheDirectory: where rendered variants are kept; empty gives
    // defaultRenderCacheDirectory() (an engine without the shell's settings).
    explicit TavrineEngine (Buses buses = Buses::sixteen, const juce::File& renderCacheDirectory = {});
    ~TavrineEngine() override;

    juce::AudioSource* getAudioSource() override { return sampleRateConverter.get(); }
    qvrControllableAPI::Controllable* getControllable() override { return dispatcher.get(); }

    TavrineLoop* getLoop (int index) const { return loops[index].get(); }
    const juce::ReferenceCountedArray<TavrineLoop>& getLoops() const noexcept { return loops; }
    int getNumLoops() const noexcept { return loops.size(); }
    int indexOfLoop (const TavrineLoop* loop) const noexcept { return loops.indexOf (loop); }

    // Audio thread (MIDI, pending triggers, the master chain's requests).
    // A key that, read as unsigned, is at or beyond the loop count is ignored.
    // velocity: the linear gain a key going on takes.
    void triggerKey (int key, Key state, float velocity = 1.0f, Cut cut = Cut::no);
    // Any thread: every key goes off at the start of the next master block.
    void requestReleaseAll() noexcept;
    // Throws away what the master stretcher holds ahead of the output and
    // rewinds the loops that keep playing by as much; keepA and keepB drop
    // their memory instead. Asked for while the master chain renders a
    // segment (the stretcher is then pulling the loops), it waits for the
    // segment's end: the stretcher is never rendered inside itself.
    void flushReadAhead (TavrineLoop* keepA, TavrineLoop* keepB);
    // Audio thread, by the master chain between segments: runs a flush that
    // had to wait, if any.
    void runDeferredFlush();
    // Audio thread: how many flushes were asked for so far, whether or not
    // the stretcher held anything.
    std::int64_t getNumFlushRequests() const noexcept { return numFlushRequests; }

    int getNumOutputBuses() const noexcept { return numOutputBuses; }
    TavrineMasterChain& getMasterChain() noexcept { return *masterChain; }
    TavrineLoopMixer& getLoopMixer() noexcept { return *loopMixer; }
    TavrineEngineDispatcher& getDispatcher() noexcept { return *dispatcher; }
    qvrControllableAPI::ParameterDef* getTargetKey() const noexcept { return targetKey.get(); }
    SnapParameterFactory& getSnapFactory() noexcept { return *snapFactory; }
    TavrineSampleManager& getSampleManager() noexcept { return *sampleManager; }

    static juce::File defaultRenderCacheDirectory();

    // "C1" for key 0 ... "B6" for key 71.
    static juce::String getKeyName (int keyIndex);
    // The inverse: the key of a name such as "C1", "F#3" or "b6" (any case),
    // -1 for anything that is not one of the 72 keys.
    static int getKeyIndex (const juce::String& keyName);

private:
    void createLoop();

    void flushNow();

    const int numOutputBuses;
    // The loops that drop their memory at the next flush; the others rewind.
    // Preallocated, so that a deferred flush allocates nothing either.
    std::array<bool, kNumLoops> keepAtFlush {};
    bool flushDeferred = false;
    std::int64_t numFlushRequests = 0;
    // Before the loops: it outlives every sample they hold.
    std::unique_ptr<TavrineSampleManager> sampleManager;
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
