#pragma once

#include <atomic>
#include <memory>

#include "controllable/api/ControllableAPI.h"
#include "controllable/lib/LockFreeParameterFifo.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// The common part of the eight parameter types: kind flags, default
// converter, the FIFO of changes made off the message thread and the timer
// that drains it every 20 ms on the message thread.
//
// The timer exists while at least one plug-in instance does: start/stop are
// counted, the first start creates it and the last stop deletes it.
class ParameterTypeImpl : public ParameterType
{
public:
    ParameterTypeImpl (bool isStringType, bool isFloatType, bool isIntType, bool isBoolType, bool isListType);
    ~ParameterTypeImpl() override;

    bool isString() override { return stringType; }
    bool isFloat() override { return floatType; }
    bool isInt() override { return intType; }
    bool isBool() override { return boolType; }
    bool isList() override { return listType; }

    ParameterDefPtr createParameter (const juce::String& name) override;
    ParameterValuePtr createValue (ParameterDef* parameter, int role) override;
    ParameterValueListPtr createValueList (ParameterDef* parameter, int role) override;
    ParameterValuePtr createDefaultValue (ParameterDef* parameter, int role) override;
    ValueConverterPtr getDefaultConverter() override { return defaultConverter; }
    ValueModifierPtr getDefaultModifier() override { return nullptr; }

    bool enqueueChange (ParameterDef* parameter) override { return fifo.push (parameter); }
    bool cancelChanges (ParameterDef* parameter) override { return fifo.cancel (parameter); }
    void cancelAllChanges() override { fifo.cancelAll(); }
    void startAsyncUpdates() override;
    void stopAsyncUpdates() override;

    // Message thread: delivers everything waiting (the timer's work).
    void drainChanges();
    bool isTimerRunning() const;
    int getNumPendingChanges() const { return fifo.getNumReady(); }

private:
    class AsyncUpdateTimer;

    const bool stringType, floatType, intType, boolType, listType;
    ValueConverterPtr defaultConverter;
    LockFreeParameterFifo fifo;
    std::atomic<int> asyncUpdateCount { 0 };
    std::unique_ptr<AsyncUpdateTimer> timer;
    juce::CriticalSection timerLock;
};

// The four kinds, each as a plain and as a list type. They only fix the kind
// flags; a bool parameter additionally starts as a choice of false and true.
class ParameterTypeFloat : public ParameterTypeImpl
{
public:
    explicit ParameterTypeFloat (bool isListType) : ParameterTypeImpl (false, true, false, false, isListType) {}
};

class ParameterTypeString : public ParameterTypeImpl
{
public:
    explicit ParameterTypeString (bool isListType) : ParameterTypeImpl (true, false, false, false, isListType) {}
};

class ParameterTypeInt : public ParameterTypeImpl
{
public:
    explicit ParameterTypeInt (bool isListType) : ParameterTypeImpl (false, false, true, false, isListType) {}
};

class ParameterTypeBool : public ParameterTypeImpl
{
public:
    explicit ParameterTypeBool (bool isListType) : ParameterTypeImpl (false, false, false, true, isListType) {}

    // Adds the choices false and true and sets minimum and maximum to false:
    // the range of a bool is never consulted.
    ParameterDefPtr createParameter (const juce::String& name) override;
};

// The eight process-wide types, created together on first use in the order
// float, string, int, bool, float list, string list, int list, bool list.
// They live until the process unloads.
struct ParameterTypes
{
    static ParameterTypeImpl& floatType();
    static ParameterTypeImpl& stringType();
    static ParameterTypeImpl& intType();
    static ParameterTypeImpl& boolType();
    static ParameterTypeImpl& floatListType();
    static ParameterTypeImpl& stringListType();
    static ParameterTypeImpl& intListType();
    static ParameterTypeImpl& boolListType();

    // All eight in creation order.
    static std::array<ParameterTypeImpl*, 8> all();
    static void startAllAsyncUpdates();
    static void stopAllAsyncUpdates();
    // Message thread: drains every FIFO now (tests and shutdown).
    static void drainAll();
};
} // namespace qvrControllableLib
