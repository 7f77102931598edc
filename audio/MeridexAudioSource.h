#pragma once

#include <atomic>
#include <memory>

#include "audio/AudioSourceProvider.h"
#include "audio/CrossfadableSource.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"
#include "dsp/Meridex.h"

namespace qvrControllableAudio
{
// Puts the stretch library into the audio graph: pulls as many samples from
// its upstream as the engine asks for and hands back exactly the block's
// length, changed in time, pitch and formants. The engine always works on two
// channels in internal blocks of 128 samples.
//
// Threads: prepareToPlay, releaseResources, getNextAudioBlock and the
// crossfade operations on the audio thread, all under the source's lock,
// which also guards every call into the engine. A change of mode rebuilds the
// engine inside getNextAudioBlock: the one place where this source allocates
// on the audio thread. Parameters are written from any thread and read inside
// the lock. The mode's name is a string and strings are never read on the
// audio thread: a synchronous listener turns each write of it into a mode
// number (selectedMode) on the writing thread, and the audio thread reads that.
class MeridexAudioSource : public ChainableAudioSourceProvider,
                           public juce::AudioSource,
                           public qvrControllableLib::BasicControllable,
                           public CrossfadableSource
{
public:
    static constexpr const char* kMeridexProcMode = "meridexProcMode";
    static constexpr const char* kStretchFactor = "stretchFactor";
    static constexpr const char* kStretchLinear = "stretchLinear";
    static constexpr const char* kPitchFactor = "pitchFactor";
    static constexpr const char* kPitchSemitones = "pitchSemitones";
    static constexpr const char* kPitchCents = "pitchCents";
    static constexpr const char* kFormantFactor = "formantFactor";
    static constexpr const char* kMeridexReadAhead = "meridexReadAhead";

    // The program-wide stretch block.
    static constexpr int kBlockSize = 128;
    static constexpr int kChannels = 2;
    static constexpr float kMinStretch = 0.1f;

    // bypassWhenNeutral: with all factors within 0.001 of 1 the upstream
    // plays as it is, with no engine and no latency.
    explicit MeridexAudioSource (bool bypassWhenNeutral);
    ~MeridexAudioSource() override;

    juce::AudioSource* getAudioSource() override { return this; }
    Controllable* getControllable() override { return this; }
    void upstreamChanged (juce::AudioSource* source, AudioSourceProvider*, AudioSourceProvider*) override;

    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    // Audio thread: remember where the upstream stands, minus what the engine
    // holds; go back there and restart the engine.
    void saveCrossfadeState() override;
    void restoreCrossfadeState() override;

    // Throws away what the engine holds (the read-ahead goes to 0).
    void resetEngine();
    // Silence in, for as long as it is set: the engine runs on but the
    // read-ahead does not grow.
    void setInputMuted (bool muted) noexcept { inputMuted = muted; }

    // Whether the factors are neutral enough for a bypassing source to pass
    // its upstream through as it is.
    bool isBypassing() const;
    // The mode number of the engine in use (kModeTable), -1 without engine.
    // A mode this build lacks runs the fallback engine, whose number this is.
    int getEngineMode() const noexcept;
    // Input frames needed for one internal block at 44100 Hz with the current
    // factors (the sample preparation sizes its reads with it). The answer is
    // kept until the stretch or pitch factor changes. Message thread.
    int getFramesNeededForOneBlock();

    qvrControllableHandle::StringParamDefHandle meridexProcMode { kMeridexProcMode };
    qvrControllableHandle::FloatParamDefHandle stretchFactor { kStretchFactor };
    qvrControllableHandle::FloatParamDefHandle stretchLinear;
    qvrControllableHandle::FloatParamDefHandle pitchFactor { kPitchFactor };
    qvrControllableHandle::FloatParamDefHandle pitchSemitones;
    qvrControllableHandle::FloatParamDefHandle pitchCents;
    qvrControllableHandle::FloatParamDefHandle formantFactor { kFormantFactor };
    qvrControllableHandle::FloatParamDefHandle meridexReadAhead { kMeridexReadAhead };

private:
    // Keeps selectedMode in step with meridexProcMode, on the writing thread.
    class ModeMirror : public qvrControllableAPI::ParameterChangeListener
    {
    public:
        explicit ModeMirror (MeridexAudioSource& s) : source (s) {}
        void parameterChanged (qvrControllableAPI::ParameterDef*) override { source.mirrorSelectedMode(); }

    private:
        MeridexAudioSource& source;
    };

    void defineParameters();
    void mirrorSelectedMode();
    int selectedModeNumber() const noexcept { return selectedMode.load (std::memory_order_relaxed); }
    void createEngine (int modeNumber);
    void destroyEngine();
    void forgetSentFactors() noexcept;
    void ensureInputCapacity (int frames);
    void renderPiece (juce::AudioBuffer<float>& buffer, int start, int numSamples);

    meridex::CMeridexProIf* proEngine = nullptr;
    meridex::CMeridexProV3If* v3Engine = nullptr;
    juce::CriticalSection lock;
    juce::AudioBuffer<float> input;
    double sampleRate = 44100.0;
    // The mode asked for when the engine was built, compared with the
    // selection on each block; and the mode of the engine that runs, which
    // differs when a fallback stands in.
    int requestedMode = -1;
    int engineMode = -1;
    const bool bypassWhenNeutral;
    bool inputMuted = false;
    float lastStretch = -1.0f, lastPitch = -1.0f, lastFormant = -1.0f;
    juce::int64 savedPosition = 0;
    juce::AudioSource* upstream = nullptr;
    int cachedFramesNeeded = -1;
    float cachedStretch = 0.0f, cachedPitch = 0.0f;
    std::atomic<int> selectedMode { meridex::kModeTable[0].modeNumber };
    ModeMirror modeMirror { *this };

    JUCE_DECLARE_NON_COPYABLE (MeridexAudioSource)
};
} // namespace qvrControllableAudio
