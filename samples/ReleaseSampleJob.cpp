#include "samples/ReleaseSampleJob.h"

#include "samples/SamplePoolManager.h"

namespace
{
// Turns a slot's reference back into a counted pointer without touching the
// count, so that dropping the pointer releases the slot's reference.
PreparedSample::Ptr adopt (PreparedSample* held) noexcept
{
    PreparedSample::Ptr sample (held);
    // The pointer's construction counted it once more: give that back. The
    // count cannot reach zero here, the slot's reference is still in it.
    held->decReferenceCountWithoutDeleting();
    return sample;
}
} // namespace

ReleaseSampleJob::~ReleaseSampleJob()
{
    for (auto& slot : slots)
        if (auto* held = slot.exchange (nullptr))
            adopt (held);
}

bool ReleaseSampleJob::handOver (PreparedSample::Ptr& sample) noexcept
{
    auto* raw = sample.get();
    if (raw == nullptr)
        return true;

    // Counted before the slot is visible to run, so the count never drops to
    // zero on this thread whatever run does meanwhile.
    raw->incReferenceCount();
    for (auto& slot : slots)
    {
        PreparedSample* expected = nullptr;
        if (slot.compare_exchange_strong (expected, raw, std::memory_order_acq_rel))
        {
            sample = nullptr; // the caller's reference; the slot keeps one
            return true;
        }
    }
    // Full: undo the count; the caller's pointer still holds the sample.
    raw->decReferenceCountWithoutDeleting();
    return false;
}

int ReleaseSampleJob::run (SamplePoolManager& pool)
{
    for (auto& slot : slots)
    {
        auto* held = slot.exchange (nullptr, std::memory_order_acq_rel);
        if (held == nullptr)
            continue;
        auto sample = adopt (held);
        // Only the slot (now `sample`) holds it: nobody uses it any more.
        if (sample->getReferenceCount() == 1)
            pool.saveSample (sample, SamplePoolManager::SaveMode::now);
    }
    return 0;
}

int ReleaseSampleJob::getNumHeld() const noexcept
{
    int held = 0;
    for (auto& slot : slots)
        if (slot.load (std::memory_order_relaxed) != nullptr)
            ++held;
    return held;
}
