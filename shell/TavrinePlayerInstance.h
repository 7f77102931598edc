#pragma once

#include <juce_data_structures/juce_data_structures.h>
#include <juce_gui_basics/juce_gui_basics.h>

#include "engine/TavrineEngine.h"

class TavrineLibraryDatabase;

// The per-instance root: the undo manager, the command manager, the library
// database and the engine. One per plug-in instance; built on the message
// thread with the processor.
class TavrinePlayerInstance : public juce::ReferenceCountedObject
{
public:
    static constexpr int kUndoMaxUnits = 30000;
    static constexpr int kUndoMinTransactions = 30;

    TavrinePlayerInstance();
    ~TavrinePlayerInstance() override;

    TavrineEngine& getEngine() noexcept { return *engine; }
    juce::UndoManager& getUndoManager() noexcept { return undoManager; }
    juce::ApplicationCommandManager& getCommandManager() noexcept { return commandManager; }
    // Null until the library is opened for this instance.
    TavrineLibraryDatabase* getLibraryDatabase() const noexcept { return libraryDatabase; }

private:
    juce::UndoManager undoManager { kUndoMaxUnits, kUndoMinTransactions };
    juce::ApplicationCommandManager commandManager;
    TavrineLibraryDatabase* libraryDatabase = nullptr;
    // Built last: it is given the library database.
    TavrineEnginePtr engine;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (TavrinePlayerInstance)
};

using TavrinePlayerInstancePtr = juce::ReferenceCountedObjectPtr<TavrinePlayerInstance>;
