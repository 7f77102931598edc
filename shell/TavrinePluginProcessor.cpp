#include "shell/TavrinePluginProcessor.h"

#include "controllable/lib/StateSerializers.h"

std::atomic<int> TavrinePluginProcessor::numInstances { 0 };
std::atomic<TavrinePluginProcessor::EditorFactory> TavrinePluginProcessor::editorFactory { nullptr };

namespace
{
template <typename Properties>
Properties makeBuses()
{
    // Bus 0 is the safe default that every host wires; buses 1..15 are there
    // for hosts that let the user enable them.
    auto buses = Properties().withOutput ("Output 1/2", juce::AudioChannelSet::stereo(), true);
    for (int b = 1; b < TavrinePluginProcessor::kNumOutputBuses; ++b)
        buses = buses.withOutput ("Output " + juce::String (2 * b + 1) + "/" + juce::String (2 * b + 2),
                                  juce::AudioChannelSet::stereo(), false);
    return buses;
}
} // namespace

// Some hosts (JUCE's LV2 client among them) create and destroy the plug-in on
// a thread of their own while JUCE's message thread runs timers and delivers
// parameter changes of this very instance.
void MessageThreadGuard::holdMessageThread()
{
    jassert (lock == nullptr);
    if (auto* mm = juce::MessageManager::getInstanceWithoutCreating(); mm != nullptr && ! mm->isThisTheMessageThread())
        lock = std::make_unique<juce::MessageManagerLock>();
}

const std::array<std::pair<const char*, const char*>, TavrinePluginProcessor::kNumRows>&
TavrinePluginProcessor::getAutomationTable()
{
    static const std::array<std::pair<const char*, const char*>, kNumRows> table { {
        { "$ Begin", "loop$.nextBeginLoop" },
        { "$ Length", "loop$.nextLoopLength" },
        { "$ Volume", "loop$.gain.xyMode" },
        { "$ Pan", "loop$.balance.xyMode" },
        { "$ Cutoff", "loop$.filterFrequency.xyMode" },
        { "$ Resonance", "loop$.filterQ.xyMode" },
        { "$ Reverse", "loop$.globalReverse" },
        { "$ Resampling", "loop$.resamplingRatio.xyMode" },
        { "$ Finetuning", "loop$.resamplingRatio.fine" },
    } };
    return table;
}

TavrinePluginProcessor::TavrinePluginProcessor() : AutomatedAudioProcessor (makeBuses<BusesProperties>())
{
    ++numInstances;
    const juce::File cacheFolder (juce::File::isAbsolutePath (settings->renderCacheDirectoryName.read())
                                      ? settings->renderCacheDirectoryName.read()
                                      : juce::String());
    playerInstance = new TavrinePlayerInstance (cacheFolder);

    auto& engine = getEngine();
    renderCacheSettings = std::make_unique<RenderCacheSettingsLink> (*settings, engine.getSampleManager());
    engine.getMasterChain().bindRealtimeStretchingSetting (settings->enableMasterRealtimeStretching.get());
    engine.getLoopMixer().bindMultipleOutputsSetting (settings->enableMultipleOutputs.get());
    setAutomationRoot (engine.getControllable());

    for (int i = 0; i < engine.getNumLoops(); ++i)
        for (const auto& [labelTemplate, pathTemplate] : getAutomationTable())
            addAutomation (juce::String (pathTemplate).replace ("$", juce::String (i)),
                           juce::String (labelTemplate).replace ("$", TavrineEngine::getKeyName (i)));

    auto* root = engine.getControllable();
    outputBpm.bind (root->findParameter ("master.outputBpm"));
    masterBpm.bind (root->findParameter ("master.masterBpm"));
    triggerPlayMode.bind (root->findParameter ("master.triggerPlayMode"));
    triggerPlayModeAvailable.bind (root->findParameter ("master.triggerPlayModeAvailable"));
    outputBpmShortcut.connect (outputBpm->getValue().get());
    triggerPlayModeShortcut.connect (triggerPlayMode->getValue().get());
    triggerPlayModeAvailableShortcut.connect (triggerPlayModeAvailable->getValue().get());
    releaseMessageThread();
}

TavrinePluginProcessor::~TavrinePluginProcessor()
{
    // Held until the last base is gone: the guard is the first base.
    holdMessageThread();

    outputBpmShortcut.disconnect();
    triggerPlayModeShortcut.disconnect();
    triggerPlayModeAvailableShortcut.disconnect();
    for (auto* handle : { &outputBpm, &masterBpm })
        handle->bind (nullptr);
    for (auto* handle : { &triggerPlayMode, &triggerPlayModeAvailable })
        handle->bind (nullptr);
    releaseAutomation();
    renderCacheSettings = nullptr;
    playerInstance = nullptr;
    --numInstances;
}

bool TavrinePluginProcessor::isBusesLayoutSupported (const BusesLayout& layouts) const
{
    if (layouts.getMainOutputChannelSet() != juce::AudioChannelSet::stereo())
        return false;
    for (int b = 1; b < layouts.outputBuses.size(); ++b)
    {
        const auto& set = layouts.outputBuses.getReference (b);
        if (! set.isDisabled() && set != juce::AudioChannelSet::stereo())
            return false;
    }
    return layouts.inputBuses.isEmpty();
}

void TavrinePluginProcessor::prepareToPlay (double sampleRate, int samplesPerBlock)
{
    getEngine().getAudioSource()->prepareToPlay (samplesPerBlock, sampleRate);
    if (auto* head = getPlayHead())
        juce::ignoreUnused (head->getPosition());
}

void TavrinePluginProcessor::releaseResources()
{
    getEngine().getAudioSource()->releaseResources();
}

void TavrinePluginProcessor::reset()
{
    // Hosts call this from threads of their own: the keys go off at the
    // start of the next block, on the audio thread.
    getEngine().requestReleaseAll();
}

void TavrinePluginProcessor::handleTransport (bool isPlaying)
{
    auto& engine = getEngine();
    if (! isPlaying)
    {
        if (! triggerPlayModeShortcut.get() && wasPlaying)
        {
            for (int i = 0; i < engine.getNumLoops(); ++i)
                engine.triggerKey (i, TavrineEngine::Key::off);
            wasPlaying = false;
            triggerPlayModeAvailableShortcut.setNotifying (true);
        }
        return;
    }

    if (triggerPlayModeShortcut.get())
        triggerPlayModeShortcut.setNotifying (false);
    if (triggerPlayModeAvailableShortcut.get())
        triggerPlayModeAvailableShortcut.setNotifying (false);
    wasPlaying = true;
}

void TavrinePluginProcessor::handleTempo (double hostBpm)
{
    // A host that knows no tempo says 0: the one we have stays.
    if (! (hostBpm > 0.0))
        return;
    // Held to the stored range first, so that an unchanged host tempo
    // compares equal on the next block and nothing is flushed again.
    const double bpm = juce::jlimit (TavrineMasterChain::kMinBpm, TavrineMasterChain::kMaxBpm, hostBpm);
    const double current = outputBpm.read();
    if (bpm == current)
        return;
    // Audio already in flight gives way before the tempo moves.
    if (std::abs (masterBpm.read() - current) < 0.01)
        getEngine().flushReadAhead (nullptr, nullptr);
    outputBpm.write (bpm);
}

void TavrinePluginProcessor::processBlock (juce::AudioBuffer<float>& buffer, juce::MidiBuffer& midi)
{
    juce::ScopedNoDenormals noDenormals;
    auto& engine = getEngine();

    // A host without a play head (the standalone app) counts as stopped, with
    // the tempo unchanged.
    if (auto* head = getPlayHead())
    {
        const auto position = head->getPosition();
        handleTransport (position.hasValue() && position->getIsPlaying());
        if (position.hasValue())
            if (const auto bpm = position->getBpm())
                handleTempo (*bpm);
    }
    else
    {
        handleTransport (false);
    }

    auto* source = engine.getAudioSource();
    juce::AudioSourceChannelInfo info (&buffer, 0, 0);
    const int total = buffer.getNumSamples();
    int start = 0;

    // Cut the block at every event, so that a note starts in the very piece
    // that follows its offset whatever the block size.
    for (const auto metadata : midi)
    {
        const int position = juce::jlimit (0, total, metadata.samplePosition);
        const int n = position - start;
        if (n > 0)
        {
            info.startSample = start;
            info.numSamples = n;
            source->getNextAudioBlock (info);
            start += n;
        }

        const auto* data = metadata.data;
        if (metadata.numBytes < 3)
            continue;
        const int status = data[0] & 0xf0;
        if (status == 0x90 || status == 0x80)
        {
            const auto message = metadata.getMessage();
            engine.triggerKey (message.getNoteNumber() - TavrineEngine::kFirstNote,
                               message.isNoteOn (false) ? TavrineEngine::Key::on : TavrineEngine::Key::off,
                               message.getVelocity() * (1.0f / 127.0f));
        }
    }

    info.startSample = start;
    info.numSamples = total - start;
    source->getNextAudioBlock (info);
}

juce::AudioProcessorEditor* TavrinePluginProcessor::createEditor()
{
    const auto factory = editorFactory.load();
    return factory != nullptr ? factory (*this) : nullptr;
}

void TavrinePluginProcessor::getStateInformation (juce::MemoryBlock& destData)
{
    // Every non-transient engine parameter, under the prefix "engine", in the
    // binary envelope a host stores. The engine always has values, so even a
    // fresh instance writes a complete state. Rendered variants that the
    // state's keys play become files of the render cache first, so that the
    // session reopens without rendering them again.
    getEngine().getSampleManager().saveAllSamples();
    qvrControllableLib::XmlStateSerializer::Ptr serializer (new qvrControllableLib::XmlStateSerializer());
    serializer->addControllable (getEngine().getControllable(), kStatePrefix);
    if (const auto state = serializer->saveToXml())
        copyXmlToBinary (*state, destData);
}

void TavrinePluginProcessor::setStateInformation (const void* data, int sizeInBytes)
{
    // getXmlFromBinary refuses 8 bytes or fewer, another magic number and a
    // length that is not positive: such a block restores nothing. Audio goes
    // on during the load; listeners hear each changed parameter once, at the end.
    if (data != nullptr && sizeInBytes > 0)
        if (const auto state = getXmlFromBinary (data, sizeInBytes))
        {
            qvrControllableLib::XmlStateSerializer::Ptr serializer (new qvrControllableLib::XmlStateSerializer());
            serializer->addControllable (getEngine().getControllable(), kStatePrefix);
            serializer->loadFromXml (*state);
        }
    stateRestored = true;
}
