#pragma once

#include <thread>
#include <vector>

#include "shell/TavrinePluginProcessor.h"
#include "tests/support/RecordingListener.h"

namespace tavrine::test
{
// A play head whose tempo and transport the test sets.
class FakePlayHead : public juce::AudioPlayHead
{
public:
    juce::Optional<PositionInfo> getPosition() const override
    {
        PositionInfo info;
        info.setBpm (bpm);
        info.setIsPlaying (playing);
        return info;
    }

    double bpm = 120.0;
    bool playing = false;
};

// One trigger change seen on a key: which key, on or off, and at which
// absolute sample of the engine's timeline.
struct TriggerEvent
{
    int key;
    bool on;
    std::int64_t sample;
    bool operator== (const TriggerEvent& o) const { return key == o.key && on == o.on && sample == o.sample; }
};

inline void PrintTo (const TriggerEvent& e, std::ostream* os)
{
    *os << "{key " << e.key << (e.on ? " on" : " off") << " at " << e.sample << "}";
}

// Listens synchronously to every loop's trigger and records where in the
// master timeline each change happened.
class TriggerRecorder : public qvrControllableAPI::ParameterChangeListener
{
public:
    explicit TriggerRecorder (TavrineEngine& e) : engine (e)
    {
        events.reserve (1024);
        for (auto* loop : engine.getLoops())
            loop->trigger->addChangeListener (this, true);
    }

    ~TriggerRecorder() override
    {
        for (auto* loop : engine.getLoops())
            loop->trigger->removeChangeListener (this, true);
    }

    void parameterChanged (qvrControllableAPI::ParameterDef* p) override
    {
        for (int i = 0; i < engine.getNumLoops(); ++i)
            if (engine.getLoop (i)->trigger.get() == p)
                events.push_back ({ i, engine.getLoop (i)->trigger.read(),
                                    engine.getMasterChain().getMasterTimeline().getSamplePosition() });
    }

    std::vector<TriggerEvent> events;

private:
    TavrineEngine& engine;
};

// Runs `body` on a separate thread, as a host's audio thread would.
template <typename Body>
void runOnAudioThread (Body&& body)
{
    std::thread t (std::forward<Body> (body));
    t.join();
}
} // namespace tavrine::test
