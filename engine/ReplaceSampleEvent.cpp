#include "engine/ReplaceSampleEvent.h"

#include "engine/TavrineLoop.h"
#include "engine/TavrineSampleAudioSource.h"
#include "samples/SamplePreparationThread.h"
#include "samples/TavrineSampleManager.h"

ReplaceSampleEvent::ReplaceSampleEvent (TavrineSampleAudioSource& owner, TavrineLoop& loop,
                                        TavrineSampleManager& manager)
    : AbstractAudioEvent (kPriority, "ReplaceSampleEvent"), source (&owner), sampleManager (manager),
      playing (loop.playing.getParameter()), releaseJob (new ReleaseSampleJob()), releaseJobAsJob (releaseJob.get())
{
    setEnabled (false);
    playing->addChangeListener (this, true);
}

ReplaceSampleEvent::~ReplaceSampleEvent()
{
    playing->removeChangeListener (this, true);
}

void ReplaceSampleEvent::arm (PreparedSample::Ptr& sample, double time)
{
    // A sample armed before and never played is replaced here, on the
    // preparation thread, where dropping it is allowed.
    newSample = std::move (sample);
    armed.store (true);
    setEnabled (true);
    setTime (time);
}

void ReplaceSampleEvent::process()
{
    perform();
}

void ReplaceSampleEvent::detachSource() noexcept
{
    armed.store (false);
    setEnabled (false);
    source.store (nullptr);
}

void ReplaceSampleEvent::perform()
{
    auto* target = source.load();
    if (target == nullptr)
        return;
    bool queueRelease = false;
    {
        const juce::ScopedLock sl (target->getSampleLock());
        if (! armed.load())
            return;

        queueRelease = handOverPendingLocked();
        PreparedSample::Ptr outgoing;
        target->installSampleLocked (newSample, outgoing);
        if (outgoing != nullptr)
        {
            if (releaseJob->handOver (outgoing))
            {
                queueRelease = true;
            }
            else if (! keepPendingLocked (outgoing))
            {
                // Nowhere to put the old sample: put it back and stay armed,
                // rather than drop it here.
                target->installSampleLocked (outgoing, newSample);
                return;
            }
        }
        armed.store (false);
        setEnabled (false);
    }
    // Lock order allows the queue's lock inside the source's, but nothing
    // needs it there: the job's slots already hold the samples.
    if (queueRelease)
        sampleManager.getPreparationThread().addJob (releaseJobAsJob, SamplePreparationThread::Priority::urgent);
    target->signalSampleReplaced();
}

bool ReplaceSampleEvent::handOverPendingLocked() noexcept
{
    bool handed = false;
    for (auto& waiting : pendingReleases)
        if (waiting != nullptr && releaseJob->handOver (waiting))
            handed = true;
    return handed;
}

bool ReplaceSampleEvent::keepPendingLocked (PreparedSample::Ptr& sample) noexcept
{
    for (auto& waiting : pendingReleases)
        if (waiting == nullptr)
        {
            waiting = std::move (sample);
            return true;
        }
    // Sixteen swaps without the preparation thread running once.
    jassertfalse;
    return false;
}

int ReplaceSampleEvent::getNumPendingReleases() const noexcept
{
    int count = 0;
    for (auto& waiting : pendingReleases)
        count += waiting != nullptr ? 1 : 0;
    return count;
}

void ReplaceSampleEvent::parameterChanged (qvrControllableAPI::ParameterDef*)
{
    if (armed.load())
        perform();
}

juce::String ReplaceSampleEvent::describe() const
{
    juce::String key;
    if (auto* target = source.load())
    {
        const juce::ScopedLock sl (target->getSampleLock());
        if (newSample != nullptr)
            key = newSample->getKey();
    }
    return "ReplaceSampleEvent (Priority=" + juce::String (kPriority) + ", sample=" + key + ")";
}
