# One static library per layer, tavrine_<folder>, holding the sources of that
# folder. A layer links only the layers it builds on, all of them below it in
# the order written in the top CMakeLists.txt; tools/check_layers.py holds the
# same order and fails the tests on an include that climbs.
#
#   tavrine_add_layer(<folder> BUILDS_ON <target>...)
#
# The layer's CMakeLists.txt then adds its sources with
# target_sources(tavrine_<folder> PRIVATE ...). A layer whose folder has no
# sources yet gets an empty generated translation unit at the end of its
# directory, so that it is an ordinary static library from the start and its
# first sources need no other change.
function(tavrine_add_layer folder)
    cmake_parse_arguments(PARSE_ARGV 1 LAYER "" "" "BUILDS_ON")
    set(target tavrine_${folder})
    add_library(${target} STATIC)
    # Includes are written from the source root ("engine/TavrineLoop.h").
    target_include_directories(${target} PUBLIC "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${target} PUBLIC ${LAYER_BUILDS_ON})
    tavrine_set_warnings(${target})
    # A deferred call reads its arguments when it runs: pass the name as text.
    cmake_language(EVAL CODE "cmake_language(DEFER CALL _tavrine_layer_needs_a_source [[${target}]])")
endfunction()

function(_tavrine_layer_needs_a_source target)
    get_target_property(sources ${target} SOURCES)
    if(NOT sources)
        set(placeholder "${CMAKE_CURRENT_BINARY_DIR}/${target}_empty.cpp")
        file(WRITE "${placeholder}" "// ${target} has no sources yet.\n")
        target_sources(${target} PRIVATE "${placeholder}")
    endif()
endfunction()
