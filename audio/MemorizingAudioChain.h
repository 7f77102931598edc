#pragma once

#include "audio/EventCrossfadeAudioChain.h"

namespace qvrControllableAudio
{
// A crossfading chain that remembers what it produced, so that it can hand
// out the same samples again after a later stage has thrown them away (the
// master stretcher drops its read-ahead when a key is triggered; the loops
// that keep playing then replay that much from memory).
//
// Invariants.
// 1. Each channel has a ring of memorySize samples, a power of two, so
//    indices wrap with a mask. Both rings always have equal indices.
// 2. writeIndex is where the next fresh sample goes; the memoryFill samples
//    before it are valid, and memoryFill < memorySize (a distance of a whole
//    ring would read as empty).
// 3. readIndex == writeIndex unless a rewind is pending; then the samples
//    from readIndex up to writeIndex are replayed first, and the distance
//    never exceeds memoryFill.
// 4. Replayed samples do not render, advance the timeline or fire events;
//    they were rendered once already.
//
// Threads: the audio thread for everything but construction. rewindMemory
// and dropMemory come between blocks (from the engine's flush).
class MemorizingAudioChain : public EventCrossfadeAudioChain
{
public:
    // capacitySamples per channel, rounded up to a power of two; 0 means no memory.
    explicit MemorizingAudioChain (int capacitySamples);
    ~MemorizingAudioChain() override;

    // Audio thread.
    void getNextAudioBlock (const juce::AudioSourceChannelInfo& info) override;

    // Audio thread: the next numSamples samples repeat the last numSamples
    // produced. Ignored if the memory does not hold that many.
    void rewindMemory (int numSamples) noexcept;
    // Audio thread: forgets everything memorised and asks the chain to move
    // its own read position back by min(numSamples, what was memorised).
    void dropMemory (int numSamples);

    int getMemorySize() const noexcept { return memorySize; }
    int getMemoryFill() const noexcept { return memoryFill; }
    // Samples waiting to be replayed.
    int getPendingReplay() const noexcept;

protected:
    // Moves the chain's own read position back by numSamples (after a drop);
    // nothing here. Audio thread.
    virtual void rewind (int numSamples) { juce::ignoreUnused (numSamples); }

private:
    struct Ring
    {
        juce::HeapBlock<float> samples;
        int readIndex = 0, writeIndex = 0, size = 0, mask = 0;
    };

    void memorise (const juce::AudioSourceChannelInfo& fresh) noexcept;
    void replay (const juce::AudioSourceChannelInfo& info) noexcept;
    bool checkInvariants() const noexcept;

    int memorySize = 0;
    int memoryFill = 0;
    Ring memoryRings[2];

    JUCE_DECLARE_NON_COPYABLE (MemorizingAudioChain)
};
} // namespace qvrControllableAudio
