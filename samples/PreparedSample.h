#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

#include <array>
#include <atomic>
#include <memory>

class PreparedSamplePool;

// A sample in memory, shared by reference count between the loops, jobs and
// events that use it: the audio forwards, the same audio with each channel
// mirrored (so that playing backwards costs nothing), and a 512-point
// minimum/maximum overview of each for the waveform display.
//
// Built on the preparation thread (load, render, cache read), which pays for
// the reverse buffer and both overviews once. Immutable afterwards, so any
// thread may read it while holding a reference. The last reference must not
// be dropped on the audio thread: that frees the buffers and takes the pool's
// lock.
class PreparedSample : public juce::ReferenceCountedObject
{
public:
    using Ptr = juce::ReferenceCountedObjectPtr<PreparedSample>;

    static constexpr int overviewPoints = 512;

    struct OverviewPoint
    {
        float minimum = 0.0f;
        float maximum = 0.0f;
    };
    using Overview = std::array<OverviewPoint, overviewPoints>;

    // Takes both buffers; they must have the same channels and length. With a
    // pool, the sample lists itself there under its key until destroyed.
    PreparedSample (const juce::String& key, std::unique_ptr<juce::AudioSampleBuffer> forward,
                    std::unique_ptr<juce::AudioSampleBuffer> reverse, PreparedSamplePool* pool);
    ~PreparedSample() override;

    // The same audio with the sample order of every channel mirrored.
    static std::unique_ptr<juce::AudioSampleBuffer> makeReverse (const juce::AudioSampleBuffer& forward);

    // Point i covers round (i * step) for round (step) samples, step being
    // numSamples / 512, clipped at the end; channel 0 widened by channel 1.
    // A point whose range is empty is (0, 0).
    static Overview computeOverview (const juce::AudioSampleBuffer& buffer);

    const juce::String& getKey() const noexcept { return key; }
    const juce::AudioSampleBuffer& getForward() const noexcept { return *forward; }
    const juce::AudioSampleBuffer& getReverse() const noexcept { return *reverse; }
    const Overview& getForwardOverview() const noexcept { return forwardOverview; }
    const Overview& getReverseOverview() const noexcept { return reverseOverview; }

    // The count. The pool lists samples without counting them and hands out
    // new references from any thread, so a lookup must never count a sample
    // whose last reference is already gone (its destructor may be waiting
    // for the pool's lock to leave the list). JUCE's count cannot refuse an
    // increment, so the sample keeps its own and hides the base's: a
    // PreparedSample is counted through PreparedSample::Ptr (or these
    // members), never through a juce::ReferenceCountedObject pointer.
    void incReferenceCount() noexcept { count.fetch_add (1, std::memory_order_relaxed); }
    bool decReferenceCountWithoutDeleting() noexcept
    {
        jassert (getReferenceCount() > 0);
        return count.fetch_sub (1, std::memory_order_acq_rel) == 1;
    }
    void decReferenceCount() noexcept
    {
        if (decReferenceCountWithoutDeleting())
            delete this;
    }
    int getReferenceCount() const noexcept { return count.load (std::memory_order_acquire); }
    // Counts the sample only if somebody still does: false once it is dying.
    bool tryIncReferenceCount() noexcept
    {
        int present = count.load (std::memory_order_relaxed);
        while (present > 0)
            if (count.compare_exchange_weak (present, present + 1, std::memory_order_acq_rel))
                return true;
        return false;
    }

private:
    const juce::String key;
    const std::unique_ptr<juce::AudioSampleBuffer> forward;
    const std::unique_ptr<juce::AudioSampleBuffer> reverse;
    const Overview forwardOverview;
    const Overview reverseOverview;
    PreparedSamplePool* const pool;
    std::atomic<int> count { 0 };

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (PreparedSample)
};
