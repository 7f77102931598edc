#include "engine/TavrineEngine.h"

#include "engine/TavrineSampleAudioSource.h"

#include <utility>

namespace
{
const juce::StringArray& noteNames()
{
    static const juce::StringArray names = juce::StringArray::fromTokens ("C,C#,D,D#,E,F,F#,G,G#,A,A#,B", ",", {});
    return names;
}
} // namespace

juce::String TavrineEngine::getKeyName (int keyIndex)
{
    if (keyIndex < 0)
        return {};
    return noteNames()[keyIndex % 12] + juce::String (keyIndex / 12 + 1);
}

int TavrineEngine::getKeyIndex (const juce::String& keyName)
{
    const auto name = keyName.trim().toUpperCase();
    const int octaveStart = name.indexOfAnyOf ("0123456789");
    if (octaveStart < 1 || ! name.substring (octaveStart).containsOnly ("0123456789"))
        return -1;
    const int note = noteNames().indexOf (name.substring (0, octaveStart));
    const int octave = name.substring (octaveStart).getIntValue();
    if (note < 0 || octave < 1 || octaveStart + 1 != name.length())
        return -1;
    const int key = (octave - 1) * 12 + note;
    return key < kNumLoops ? key : -1;
}

juce::File TavrineEngine::defaultRenderCacheDirectory()
{
    return juce::File::getSpecialLocation (juce::File::tempDirectory).getChildFile ("Tavrine Render Cache");
}

TavrineEngine::TavrineEngine (Buses buses, const juce::File& renderCacheDirectory)
    : numOutputBuses (buses == Buses::single ? 1 : kNumOutputBuses),
      sampleManager (std::make_unique<TavrineSampleManager> (
          renderCacheDirectory == juce::File() ? defaultRenderCacheDirectory() : renderCacheDirectory)),
      snapFactory (std::make_unique<SnapParameterFactory>()),
      targetKeyHolder (new qvrControllableLib::BasicControllable())
{
    for (auto* name :
         { "Off", "C/a", "C#/a#", "D/b", "D#/c", "E/c#", "F/d", "F#/d#", "G/e", "G#/f", "A/f#", "A#/g", "B/g#" })
        targetKey.choices.add (name);
    targetKey.defaultValue = juce::String ("Off");
    targetKeyHolder->addParameter (targetKey.getParameter());

    loopMixer = new TavrineLoopMixer (*this);
    dispatcher = new TavrineEngineDispatcher (*this);
    masterChain = new TavrineMasterChain (*this, *loopMixer);
    loopMixer->setMasterBpm (masterChain->masterBpm.get());

    for (int i = 0; i < kNumLoops; ++i)
        createLoop();

    // One channel pair per bus: converting only the first pair would leave
    // the other buses unwritten (and silent loops on them) at any host rate
    // but 44100.
    sampleRateConverter = std::make_unique<qvrControllableAudio::SampleRateConverter> (
        masterChain.get(), kInternalSampleRate, 2 * numOutputBuses);
}

TavrineEngine::~TavrineEngine()
{
    // No job may run against a loop that is going: the preparation thread
    // ends first, dropping what is still queued.
    sampleManager->stopThreads();
    sampleRateConverter.reset();
}

void TavrineEngine::createLoop()
{
    auto* loop = new TavrineLoop (*this, *loopMixer, numOutputBuses);
    // The root of the loop's chain: what the key plays, asked of the pool.
    loop->setSampleSource (new TavrineSampleAudioSource (*loop, *sampleManager, masterChain->masterBpm.get(),
                                                         masterChain->outputBpm.get()));
    loops.add (loop);
    dispatcher->loopAdded (loops.size());
    triggers.add (qvrControllableLib::BoolShortcutValue (loop->trigger->getValue().get()));
}

void TavrineEngine::triggerKey (int key, Key state, float velocity, Cut cut)
{
    const bool on = state == Key::on;
    // The array never changes after construction, so reading it here is the
    // snapshot.
    if ((unsigned int) key >= (unsigned int) triggers.size())
        return;
    auto& shortcut = triggers.getReference (key);
    if (! shortcut.isConnected())
        return;
    auto* loop = loops.getUnchecked (key).get();

    if (shortcut.get() != on)
    {
        flushReadAhead (loop, nullptr);
        if (on)
            loop->gainFine.write ((double) velocity);
        shortcut.setNotifying (on);
        if (on && dispatcher->triggerSwitch.read())
            dispatcher->editLoopIndex.write (key);
    }

    if (cut == Cut::now)
    {
        loop->playing.write (false);
        loop->setPendingTrigger (false, 1.0f);
    }
}

void TavrineEngine::requestReleaseAll() noexcept
{
    masterChain->requestReleaseAll();
}

void TavrineEngine::flushReadAhead (TavrineLoop* keepA, TavrineLoop* keepB)
{
    ++numFlushRequests;
    for (auto* keep : { keepA, keepB })
        if (const int index = indexOfLoop (keep); index >= 0)
            keepAtFlush[(size_t) index] = true;
    if (masterChain->isRenderingSegment())
    {
        flushDeferred = true;
        return;
    }
    flushNow();
}

void TavrineEngine::runDeferredFlush()
{
    if (! std::exchange (flushDeferred, false))
        return;
    flushNow();
}

void TavrineEngine::flushNow()
{
    const int readAhead = masterChain->captureReadAhead();
    for (int i = 0; i < loops.size(); ++i)
    {
        if (readAhead >= 1)
        {
            auto* loop = loops.getUnchecked (i).get();
            if (keepAtFlush[(size_t) i])
                loop->dropMemory (readAhead);
            else
                loop->rewindMemory (readAhead);
        }
        keepAtFlush[(size_t) i] = false;
    }
}
