# Every JUCE module is compiled once, into tavrine_juce, and shared by the
# layers, the plug-in, the CLI and the tests. The configuration macros below are
# re-exported so that every translation unit that sees a JUCE header sees the
# same configuration (anything else is an ODR violation).

add_library(tavrine_juce STATIC)

target_link_libraries(tavrine_juce
    PRIVATE
        juce::juce_core
        # MD5 for the sample keys.
        juce::juce_cryptography
        juce::juce_events
        juce::juce_data_structures
        juce::juce_graphics
        juce::juce_gui_basics
        juce::juce_gui_extra
        juce::juce_audio_basics
        juce::juce_audio_devices
        juce::juce_audio_formats
        juce::juce_audio_processors
        juce::juce_audio_utils
    PUBLIC
        juce::juce_recommended_config_flags
        # Debian's JUCE decodes images with the system libpng and libjpeg.
        juce::pkgconfig_JUCE_IMG_LINUX_DEPS)

target_compile_definitions(tavrine_juce
    PUBLIC
        JUCE_WEB_BROWSER=0
        JUCE_USE_CURL=0
        JUCE_DISPLAY_SPLASH_SCREEN=0
        JUCE_REPORT_APP_USAGE=0
        JUCE_VST3_CAN_REPLACE_VST2=0
        # Debian strips JUCE's bundled codecs; WAV and AIFF are all we read.
        JUCE_USE_FLAC=0
        JUCE_USE_OGGVORBIS=0
        JUCE_USE_MP3AUDIOFORMAT=0
        JUCE_USE_LAME_AUDIO_FORMAT=0
        JUCE_USE_WINDOWS_MEDIA_FORMAT=0
        # Our design ignores MIDI controllers: do not show 2000 fake CC
        # parameters next to our 648.
        JUCE_VST3_EMULATE_MIDI_CC_WITH_PARAMETERS=0
        # The test host and the CLI load plug-ins by path.
        JUCE_PLUGINHOST_VST3=1
        JUCE_PLUGINHOST_LV2=1
        JUCE_MODAL_LOOPS_PERMITTED=0
        JUCE_STRICT_REFCOUNTEDPOINTER=1
        JUCE_LOG_ASSERTIONS=1)

# Re-export what the module interface targets put on tavrine_juce privately
# (include paths, JUCE_MODULE_AVAILABLE_*, global settings), without compiling
# the module sources again in the consumers.
target_include_directories(tavrine_juce SYSTEM INTERFACE
    $<TARGET_PROPERTY:tavrine_juce,INCLUDE_DIRECTORIES>)
target_compile_definitions(tavrine_juce INTERFACE
    $<TARGET_PROPERTY:tavrine_juce,COMPILE_DEFINITIONS>)
