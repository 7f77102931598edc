# Warnings for our own code only: JUCE's sources warn under GCC 12 and never
# get -Werror.
function(tavrine_set_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wnon-virtual-dtor
        -Woverloaded-virtual -Wno-unused-parameter)
    if(TAVRINE_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
