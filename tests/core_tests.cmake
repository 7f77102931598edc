# Tests of the core (framework, engine, shell), on JUCE, in one binary whose
# main thread is the message thread.
add_executable(tavrine_tests
    support/AllocationCounter.cpp
    support/JuceTestMain.cpp
    support/AllocationCounterTest.cpp
    controllable/ParameterCoreTest.cpp
    controllable/ParameterNotificationTest.cpp
    controllable/ForwardingTest.cpp
    controllable/ParameterFifoTest.cpp
    controllable/ConvertersTest.cpp
    controllable/StateSerializerTest.cpp
    engine/EngineConvertersTest.cpp
    shell/SettingsConvertersTest.cpp
    shell/ProcessorEditorTest.cpp
    shell/OutputBusesTest.cpp
    gui/PluginEditorTest.cpp
    controllable/ModifiersTest.cpp
    controllable/NormalizersTest.cpp
    audio/MeridexAudioSourceTest.cpp
    engine/EngineDispatchTest.cpp
    engine/MasterTempoTest.cpp
    engine/SampleRateConverterTest.cpp
    engine/TriggerSyncTest.cpp
    shell/ProcessorMidiTest.cpp
    shell/ProcessorBusLayoutTest.cpp
    shell/ProcessorHostTableTest.cpp
    shell/SettingsTest.cpp
    controllable/HandlesTest.cpp
    controllable/ComponentConnectorTest.cpp)
target_link_libraries(tavrine_tests PRIVATE tavrine_gui GTest::gtest)
tavrine_set_warnings(tavrine_tests)
gtest_discover_tests(tavrine_tests DISCOVERY_TIMEOUT 120 PROPERTIES LABELS "core")
# Events, chains and crossfades.
target_sources(tavrine_tests PRIVATE
    audio/ChainTestSources.h
    audio/AudioEventQueueTest.cpp
    audio/AudioSourceChainTest.cpp
    audio/EventCrossfadeAudioChainTest.cpp
    audio/MemorizingAudioChainTest.cpp
    audio/ChainScenarioTest.cpp
    engine/LoopMemoryTest.cpp)
# General-purpose sources of the audio graph.
target_sources(tavrine_tests PRIVATE
    audio/AudioSourceTestSupport.h
    audio/GainAudioSourceTest.cpp
    audio/MemoryAudioSourceTest.cpp
    audio/AudioResamplerTest.cpp
    audio/SliceAwareResamplerTest.cpp
    audio/BalanceAndEqSourceTest.cpp
    audio/ParameterInterpolatorTest.cpp
    audio/LoopChainSourcesTest.cpp)
# Engine threading: which thread changes keys, read-ahead flushes, host tempo.
target_sources(tavrine_tests PRIVATE
    engine/EngineThreadingTest.cpp
    engine/ReadAheadFlushTest.cpp)
# A loop's playback: markers, envelope, mixer buses, idle cost, threads.
target_sources(tavrine_tests PRIVATE
    engine/LoopPlaybackTest.cpp
    engine/TriggerEnvelopeTest.cpp
    engine/LoopMixerTest.cpp
    engine/TimeSelectionTest.cpp)
# Plug-in lifetime on a host's own thread.
target_sources(tavrine_tests PRIVATE
    shell/ProcessorLifetimeTest.cpp)
# Parameter writers on other threads against the render thread (TSan).
target_sources(tavrine_tests PRIVATE
    shell/ParameterRaceTest.cpp)
# Saved plug-in state: the envelope, round trips, a load during a render.
target_sources(tavrine_tests PRIVATE
    shell/ProcessorStateTest.cpp)
# Host parameters: text, parsing and range through the automation handle.
target_sources(tavrine_tests PRIVATE
    controllable/AutomationEntryTest.cpp)
# Sample preparation: prepared samples, keys, the render cache and its eviction.
target_sources(tavrine_tests PRIVATE
    samples/PreparedSampleTest.cpp
    samples/RenderCacheFileTest.cpp
    samples/RenderCacheEvictionTest.cpp
    samples/HousekeepingThreadTest.cpp)
# The sample pool, its preparation thread and jobs (threading cases run under TSan).
target_sources(tavrine_tests PRIVATE
    samples/SamplePoolTestSupport.h
    samples/SamplePreparationJobTest.cpp
    samples/SamplePoolManagerTest.cpp
    samples/SamplePreparationThreadTest.cpp
    samples/ReleaseSampleJobTest.cpp)
target_link_libraries(tavrine_tests PRIVATE tavrine_samples)
# The sample source of a loop: pre-render chain and job, the source's
# reactions and timer, the swap of a new sample.
target_sources(tavrine_tests PRIVATE
    engine/PreRenderJobTest.cpp
    engine/SampleSourceTest.cpp)
