# Warnings for our own code only: JUCE's sources warn under GCC 12 and never
# get -Werror.
function(tavrine_set_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow=compatible-local -Wnon-virtual-dtor
        -Wno-unused-parameter
        # Interfaces derive virtually from juce::ReferenceCountedObject on purpose.
        -Wno-virtual-move-assign)
    if(TAVRINE_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
