#pragma once

#include "samples/SamplePreparationJob.h"

#include <array>
#include <atomic>

// The one way a sample leaves the audio thread. A playing source owns one of
// these, made with it; when it gives up a sample, the audio thread hands the
// sample over and queues this job urgently, and the last reference then falls
// on the preparation thread, where freeing buffers and taking the pool's lock
// are allowed.
//
// Two swaps can come within one sleep of the preparation thread, so the job
// holds several samples at once, in a fixed array of slots: a hand-over
// neither allocates nor drops a count on the audio thread. A slot holds one
// reference, taken over from the caller's pointer (count up before the slot is
// published, the caller's pointer cleared after: no net change, never zero).
//
// Invariants:
// 1. A non-null slot owns exactly one reference to its sample.
// 2. Only handOver fills a slot (from null, by compare-exchange); only run and
//    the destructor empty one (by exchange), so each reference is dropped once.
//
// Threads: handOver on the audio thread (or any thread holding the source's
// lock); run on the preparation thread; the destructor on the owner's thread
// once the job is no longer queued.
class ReleaseSampleJob : public SamplePreparationJob
{
public:
    static constexpr int weight = 1;
    static constexpr int numSlots = 8;

    ReleaseSampleJob() = default;
    ~ReleaseSampleJob() override;

    // Takes over the caller's reference and clears `sample`; no allocation,
    // no lock. Returns false, leaving `sample` as it was, when every slot is
    // full (the preparation thread has not caught up with numSlots hand-overs):
    // the caller must then keep its sample and try again later rather than
    // drop it on the audio thread. A null sample is accepted and ignored.
    bool handOver (PreparedSample::Ptr& sample) noexcept;

    // Empties every slot: a sample whose only reference is the slot's is
    // written to the render cache (a variant that has gone out of use), then
    // the reference is dropped.
    int run (SamplePoolManager& pool) override;
    int getWeight() const override { return weight; }

    // Samples held at this moment (a hint for tests and diagnostics).
    int getNumHeld() const noexcept;

private:
    std::array<std::atomic<PreparedSample*>, numSlots> slots {};

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (ReleaseSampleJob)
};

using ReleaseSampleJobPtr = juce::ReferenceCountedObjectPtr<ReleaseSampleJob>;
