#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "controllable/lib/StateSerializers.h"
#include "tests/support/ProcessorHarness.h"

using namespace tavrine::test;
using qvrControllableAPI::ParameterDef;

namespace
{
// Values of every kind the engine has, far from their defaults.
struct Setting
{
    const char* name;
    const char* text;
};
constexpr Setting kSettings[] = {
    { "loop0.gain.xyMode", "0.3" },      { "loop3.balance.xyMode", "0.75" },  { "master.gain", "0.5" },
    { "loop1.envelopeAttack", "300" },   { "loop2.colourCode", "#12ab34 x" }, { "loop5.loopingEnabled", "false" },
    { "master.detectClipping", "true" }, { "loop7.reverse", "true" },
};

ParameterDef* find (TavrinePluginProcessor& processor, const char* name)
{
    auto p = processor.getEngine().getControllable()->findParameter (name);
    EXPECT_NE (p, nullptr) << name;
    return p.get();
}

void applySettings (TavrinePluginProcessor& processor)
{
    for (const auto& s : kSettings)
        if (auto* p = find (processor, s.name))
            qvrControllableLib::ControllableStateSerializer::stringToValue (p->getValue().get(), s.text);
}

juce::String textOf (TavrinePluginProcessor& processor, const char* name)
{
    auto* p = find (processor, name);
    return p != nullptr ? qvrControllableLib::ControllableStateSerializer::valueToString (p->getValue().get())
                        : juce::String ("<missing>");
}

juce::MemoryBlock stateOf (TavrinePluginProcessor& processor)
{
    juce::MemoryBlock block;
    processor.getStateInformation (block);
    return block;
}
} // namespace

TEST (ProcessorState, SaveLoadSaveIsByteIdenticalAndRestoresEveryKindOfValue)
{
    TavrinePluginProcessor saved;
    applySettings (saved);
    const auto block = stateOf (saved);

    TavrinePluginProcessor restored;
    ASSERT_NE (stateOf (restored), block) << "the settings must differ from the defaults";
    restored.setStateInformation (block.getData(), (int) block.getSize());
    EXPECT_TRUE (restored.isStateRestored());
    for (const auto& s : kSettings)
        EXPECT_EQ (textOf (restored, s.name), textOf (saved, s.name)) << s.name;
    EXPECT_EQ (stateOf (restored), block);
}

TEST (ProcessorState, TheEnvelopeHoldsOneEngineSectionWithoutTransientParameters)
{
    TavrinePluginProcessor processor;
    const auto block = stateOf (processor);
    ASSERT_GT (block.getSize(), 8u);
    EXPECT_EQ (juce::ByteOrder::littleEndianInt (block.getData()), 0x21324356u);

    const auto state = juce::AudioProcessor::getXmlFromBinary (block.getData(), (int) block.getSize());
    ASSERT_NE (state, nullptr);
    EXPECT_TRUE (state->hasTagName ("state"));
    ASSERT_EQ (state->getNumChildElements(), 1);
    const auto* section = state->getChildElement (0);
    EXPECT_EQ (section->getStringAttribute ("prefix"), "engine");

    int written = 0;
    auto* engine = processor.getEngine().getControllable();
    for (auto* p : section->getChildIterator())
    {
        const auto parameter = engine->findParameter (p->getStringAttribute ("name"));
        ASSERT_NE (parameter, nullptr) << p->getStringAttribute ("name");
        EXPECT_FALSE (parameter->isTransient()) << p->getStringAttribute ("name");
        ++written;
    }
    int saved = 0;
    for (auto* p : engine->getParameters())
        saved += p->isTransient() ? 0 : 1;
    EXPECT_EQ (written, saved);
    EXPECT_EQ (section->getChildByAttribute ("name", "loop0.playing"), nullptr);
}

// Damaged or foreign blocks restore nothing, but the host's restore still counts.
TEST (ProcessorState, ShortOrForeignBlocksRestoreNothing)
{
    TavrinePluginProcessor source;
    applySettings (source);
    const auto good = stateOf (source);

    struct Case
    {
        const char* what;
        juce::MemoryBlock block;
    };
    std::vector<Case> cases;
    cases.push_back ({ "8 bytes", juce::MemoryBlock (good.getData(), 8) });
    auto wrongMagic = good;
    static_cast<char*> (wrongMagic.getData())[0] ^= 1;
    cases.push_back ({ "wrong magic", wrongMagic });
    auto zeroLength = good;
    std::memset (static_cast<char*> (zeroLength.getData()) + 4, 0, 4);
    cases.push_back ({ "zero length", zeroLength });
    cases.push_back ({ "empty", juce::MemoryBlock() });

    for (auto& c : cases)
    {
        TavrinePluginProcessor target;
        const auto before = stateOf (target);
        target.setStateInformation (c.block.getData(), (int) c.block.getSize());
        EXPECT_TRUE (target.isStateRestored()) << c.what;
        EXPECT_EQ (stateOf (target), before) << c.what;
    }
}

TEST (ProcessorState, AnOlderStateWithFewerParametersLeavesTheRestAlone)
{
    juce::XmlElement older ("state");
    auto* section = older.createNewChildElement ("c");
    section->setAttribute ("prefix", "engine");
    auto* p = section->createNewChildElement ("p");
    p->setAttribute ("name", "master.gain");
    p->setAttribute ("value", "0.25");
    auto* unknown = section->createNewChildElement ("p");
    unknown->setAttribute ("name", "loop0.removedLongAgo");
    unknown->setAttribute ("value", "1");
    juce::MemoryBlock block;
    juce::AudioProcessor::copyXmlToBinary (older, block);

    TavrinePluginProcessor processor;
    applySettings (processor);
    processor.setStateInformation (block.getData(), (int) block.getSize());
    EXPECT_EQ (textOf (processor, "master.gain"), "0.2500000000");
    for (const auto& s : kSettings)
        if (juce::String (s.name) != "master.gain")
        {
            TavrinePluginProcessor reference;
            applySettings (reference);
            EXPECT_EQ (textOf (processor, s.name), textOf (reference, s.name)) << s.name;
        }
}

// Run under TSan too. While a render thread plays, a host restores a state
// that changes every setting: listeners hear each changed parameter exactly
// once, and none of the others.
TEST (ProcessorState, ALoadDuringARenderNotifiesEachChangedParameterOnce)
{
    constexpr int kBlock = 256;
    TavrinePluginProcessor source;
    applySettings (source);
    const auto block = stateOf (source);

    TavrinePluginProcessor processor;
    FakePlayHead head;
    head.playing = true;
    processor.setPlayHead (&head);
    processor.prepareToPlay (44100.0, kBlock);

    // Keys struck and the host tempo taken in before anybody listens: those
    // changes come from the audio path, not from the load.
    juce::AudioBuffer<float> buffer (2, kBlock);
    juce::MidiBuffer midi;
    for (int key = 0; key < 8; ++key)
    {
        midi.clear();
        midi.addEvent (juce::MidiMessage::noteOn (1, TavrineEngine::kFirstNote + key, (juce::uint8) 100), 3);
        processor.processBlock (buffer, midi);
    }
    midi.clear();
    // What the load is to change: every saved value whose text differs.
    std::vector<juce::String> changing;
    for (auto* p : processor.getEngine().getControllable()->getParameters())
        if (! p->isTransient()
            && textOf (processor, p->getName().toRawUTF8()) != textOf (source, p->getName().toRawUTF8()))
            changing.push_back (p->getName());
    ASSERT_GE (changing.size(), std::size (kSettings) - 1);

    std::mutex mutex;
    std::map<ParameterDef*, int> counts;
    RecordingListener listener;
    listener.onChange = [&] (ParameterDef* p) {
        const std::lock_guard<std::mutex> guard (mutex);
        ++counts[p];
    };
    std::vector<ParameterDef*> watched;
    for (auto* p : processor.getEngine().getControllable()->getParameters())
        if (! p->isTransient())
        {
            p->addChangeListener (&listener, true);
            watched.push_back (p);
        }

    std::atomic<bool> loaded { false };
    std::atomic<int> blocksAfterLoad { 0 };
    std::thread render ([&] {
        while (blocksAfterLoad < 20)
        {
            processor.processBlock (buffer, midi);
            if (loaded)
                ++blocksAfterLoad;
        }
    });
    std::this_thread::sleep_for (std::chrono::milliseconds (20));
    processor.setStateInformation (block.getData(), (int) block.getSize());
    loaded = true;
    render.join();
    processor.releaseResources();
    processor.setPlayHead (nullptr);

    for (auto* p : watched)
        p->removeChangeListener (&listener, true);
    for (const auto& name : changing)
    {
        auto* p = find (processor, name.toRawUTF8());
        EXPECT_EQ (counts[p], 1) << name;
        counts.erase (p);
    }
    // A loop's relative tempo is shown as a tempo, so its text follows the
    // master tempo: a load that moves the master tells it once, unchanged.
    const bool masterMoved = std::find (changing.begin(), changing.end(), "master.masterBpm") != changing.end();
    for (const auto& [p, n] : counts)
    {
        if (masterMoved && p->getName().endsWith (".relativeBpm") && n == 1)
            continue;
        ADD_FAILURE() << p->getName() << " was told " << n << " times but is not in the state's changes";
    }
}
