# Benchmarks of the core on JUCE.
add_executable(tavrine_bench
    controllable/ParameterBench.cpp
    shell/ProcessBlockBench.cpp)
target_link_libraries(tavrine_bench PRIVATE tavrine_shell benchmark::benchmark)
tavrine_set_warnings(tavrine_bench)
# Sources of the audio graph: one loop's chain.
target_sources(tavrine_bench PRIVATE
    audio/LoopChainBench.cpp)
# The parameter FIFO's write against a locked reference.
target_sources(tavrine_bench PRIVATE
    controllable/ParameterFifoBench.cpp)
# A loop's pre-render: a render from scratch against a hit in the render cache.
target_sources(tavrine_bench PRIVATE
    engine/PreRenderBench.cpp)
# The engine with every loop playing its full chain, against the engine idle.
target_sources(tavrine_bench PRIVATE
    engine/LoopEngineBench.cpp)
