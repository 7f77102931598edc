#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

#include "audio/CrossfadableSource.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"

namespace qvrControllableAudio
{
// Plays a buffer held in memory from `nextReadPosition`, the head of a loop's
// chain and of the prelisten voice.
//
// - Looping follows the parameter `sourceLooping`; the juce setLooping call
//   is ignored. A looping source wraps its position modulo the length.
// - Past the end of a source that does not loop, the block is silent and the
//   position keeps running by the length of every block (a negative position
//   is silent up to the start).
// - Every destination channel reads source channel (index modulo the source's
//   channel count): a mono buffer feeds both sides of a stereo block.
// - `totalLength` follows the buffer; only setBuffer writes it.
//
// The buffer is not owned: setBuffer deletes the previous one only when told
// to, and the destructor deletes nothing.
//
// Locking: one critical section, held around rendering, seeking, the
// crossfade calls and the swap of the buffer, and never while listeners are
// told (a change of `nextReadPosition` is signalled after it is released).
// Subclasses that pick the buffer per block take getLock() themselves.
//
// Threads: getNextAudioBlock and the crossfade calls on the audio thread;
// setBuffer and seeking from the message thread or the sample threads.
class MemoryAudioSource : public juce::PositionableAudioSource,
                          public qvrControllableLib::BasicControllable,
                          public CrossfadableSource
{
public:
    static constexpr const char* kNextReadPosition = "nextReadPosition";
    static constexpr const char* kTotalLength = "totalLength";
    static constexpr const char* kSourceLooping = "sourceLooping";

    MemoryAudioSource();
    ~MemoryAudioSource() override;

    void prepareToPlay (int samplesPerBlockExpected, double sampleRate) override;
    void releaseResources() override;
    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    // Writes the low 32 bits of the position into `nextReadPosition`.
    void setNextReadPosition (juce::int64 newPosition) override;
    juce::int64 getNextReadPosition() const override;
    juce::int64 getTotalLength() const override;
    bool isLooping() const override;
    void setLooping (bool) override {}

    // Installs a buffer (null for none): `totalLength` becomes its length,
    // the position 0. The old buffer is deleted after the lock is released
    // if deleteOld is set.
    void setBuffer (juce::AudioSampleBuffer* newBuffer, bool deleteOld);
    juce::AudioSampleBuffer* getBuffer() const noexcept { return buffer; }
    bool hasBuffer() const noexcept { return buffer != nullptr; }

    // Audio thread: keeps the position aside / puts it back.
    void saveCrossfadeState() override;
    void restoreCrossfadeState() override;

    qvrControllableHandle::IntParamDefHandle nextReadPosition { kNextReadPosition };
    qvrControllableHandle::IntParamDefHandle totalLength { kTotalLength };
    qvrControllableHandle::BoolParamDefHandle sourceLooping { kSourceLooping };

protected:
    const juce::CriticalSection& getLock() const noexcept { return lock; }
    // Renders one block from the present buffer; the caller holds the lock.
    // Returns whether the position moved.
    bool renderLocked (const juce::AudioSourceChannelInfo& info);
    // Points the source at another buffer, leaving length, position and
    // their listeners alone; the caller holds the lock and keeps the buffer
    // alive. For subclasses that hold one sample in several buffers.
    void setBufferLocked (juce::AudioSampleBuffer* newBuffer) noexcept { buffer = newBuffer; }
    void signalPositionChanged();

private:
    juce::CriticalSection lock;
    juce::AudioSampleBuffer* buffer = nullptr;
    int savedPosition = 0;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (MemoryAudioSource)
};

using MemoryAudioSourcePtr = juce::ReferenceCountedObjectPtr<MemoryAudioSource>;
} // namespace qvrControllableAudio
