#pragma once

#include <juce_data_structures/juce_data_structures.h>
#include <juce_gui_basics/juce_gui_basics.h>

#include "engine/TavrineEngine.h"

// The per-instance root: the undo manager, the command manager and the
// engine. One per plug-in instance; built with the processor, on the message
// thread or with the message thread held out.
class TavrinePlayerInstance : public juce::ReferenceCountedObject
{
public:
    static constexpr int kUndoMaxUnits = 30000;
    static constexpr int kUndoMinTransactions = 30;

    // renderCacheDirectory: the engine's render cache; empty for its default.
    explicit TavrinePlayerInstance (const juce::File& renderCacheDirectory = {});
    ~TavrinePlayerInstance() override;

    TavrineEngine& getEngine() noexcept { return *engine; }
    juce::UndoManager& getUndoManager() noexcept { return undoManager; }
    juce::ApplicationCommandManager& getCommandManager() noexcept { return commandManager; }

private:
    juce::UndoManager undoManager { kUndoMaxUnits, kUndoMinTransactions };
    juce::ApplicationCommandManager commandManager;
    // Built last and destroyed first.
    TavrineEnginePtr engine;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (TavrinePlayerInstance)
};

using TavrinePlayerInstancePtr = juce::ReferenceCountedObjectPtr<TavrinePlayerInstance>;
