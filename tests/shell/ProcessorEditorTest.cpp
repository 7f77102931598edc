#include <gtest/gtest.h>

#include "shell/TavrinePluginProcessor.h"

// The processor's window comes from the user interface above it, through the
// factory the plug-in entry installs; a process without one (the command line)
// must present a processor without a window rather than crash or draw nothing.
TEST (ProcessorEditor, WithoutAFactoryTheProcessorHasNoWindow)
{
    TavrinePluginProcessor processor;
    EXPECT_FALSE (processor.hasEditor());
    std::unique_ptr<juce::AudioProcessorEditor> editor (processor.createEditor());
    EXPECT_EQ (editor, nullptr);
}

namespace
{
// The window a test factory makes, and what the factory was handed.
struct FactoryCall
{
    static inline TavrinePluginProcessor* processor = nullptr;
    static inline int calls = 0;

    static juce::AudioProcessorEditor* make (TavrinePluginProcessor& p)
    {
        processor = &p;
        ++calls;
        return new juce::GenericAudioProcessorEditor (p);
    }
};

// Installs a factory for one test: the factory is process-wide.
struct ScopedEditorFactory
{
    explicit ScopedEditorFactory (TavrinePluginProcessor::EditorFactory f)
    {
        TavrinePluginProcessor::setEditorFactory (f);
    }
    ~ScopedEditorFactory() { TavrinePluginProcessor::setEditorFactory (nullptr); }
};
} // namespace

TEST (ProcessorEditor, TheInstalledFactoryMakesEachWindowForItsOwnProcessor)
{
    ScopedEditorFactory installed (&FactoryCall::make);
    TavrinePluginProcessor first, second;
    EXPECT_TRUE (first.hasEditor());
    for (auto* processor : { &first, &second })
    {
        const int before = FactoryCall::calls;
        std::unique_ptr<juce::AudioProcessorEditor> editor (processor->createEditor());
        ASSERT_NE (editor, nullptr);
        EXPECT_EQ (FactoryCall::calls, before + 1);
        EXPECT_EQ (FactoryCall::processor, processor);
        EXPECT_EQ (editor->getAudioProcessor(), processor);
    }
}
