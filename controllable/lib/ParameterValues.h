#pragma once

#include <atomic>
#include <cmath>
#include <type_traits>
#include <utility>

#include "controllable/api/ControllableAPI.h"
#include "controllable/api/ChangeListenerStrategy.h"
#include "controllable/api/Parameter.h"
#include "controllable/api/ParameterValue.h"
#include "controllable/api/ParameterValueList.h"
#include "controllable/api/ValueConverter.h"
#include "controllable/api/ValueModifier.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// How a value of kind T is held. Numbers and bools live in a std::atomic
// accessed with relaxed order: writers on the message, host and audio
// threads store while the audio thread loads, and a relaxed access is still
// one plain mov on x86-64. Nothing is ordered by it: a reader sees some
// recent complete value, never a torn one. Text stays a plain juce::String;
// it is never read or written on the audio thread (a mode name is mirrored
// into an int by a synchronous listener where audio code needs it).
template <typename T>
struct ValueStorage
{
    static constexpr bool isAtomic = std::is_same_v<T, double> || std::is_same_v<T, int> || std::is_same_v<T, bool>;
    using Type = std::conditional_t<isAtomic, std::atomic<T>, T>;

    static T load (const Type& s) noexcept
    {
        if constexpr (isAtomic)
            return s.load (std::memory_order_relaxed);
        else
            return s;
    }

    static void store (Type& s, const T& v) noexcept (isAtomic)
    {
        if constexpr (isAtomic)
            s.store (v, std::memory_order_relaxed);
        else
            s = v;
    }
};

template <typename T>
using StorageOf = typename ValueStorage<T>::Type;

// Owning parameter, role, null flag and choice index of a value.
class AbstractParameterValue : public ParameterValue
{
public:
    AbstractParameterValue (ParameterDef* owner, int valueRole) : parameter (owner), role (valueRole) {}

    bool isNull() override { return null.load (std::memory_order_relaxed); }
    int getChoiceIndex() override { return choiceIndex.load (std::memory_order_relaxed); }
    ErrorCode replaceWith (ParameterValue* other) override { return parameter->replaceValue (this, other); }
    ParameterDef* getParameter() override { return parameter; }
    int getRole() override { return role; }
    ValueConverterPtr getConverter() override { return parameter->getConverter(); }
    ValueModifierPtr getModifier() override { return parameter->getModifier(); }
    // The modifier that applies to this value's role, or null.
    virtual ValueModifier* getValueModifier();

    ErrorCode setFrom (ParameterValue* other) override;

protected:
    // Tells the parameter's change strategy of a real change.
    void informStrategy();

    ParameterDef* parameter;
    int role;
    // Written by whichever thread writes the value, read by any: atomic for
    // the same reason as the stored field.
    std::atomic<bool> null { true };
    std::atomic<int> choiceIndex { -1 };
};

// The write path of a value of kind T: setChecked -> validate -> store -> setRaw.
template <typename T>
class GenericParameterValue : public AbstractParameterValue
{
public:
    using AbstractParameterValue::AbstractParameterValue;

    // The raw value mapped through the modifier.
    virtual T getModified()
    {
        T raw = getRaw();
        if (auto* modifier = getValueModifier())
        {
            T outer {};
            if (modifier->toOuter (this, raw, outer) == kOk)
                return outer;
        }
        return raw;
    }

    virtual ErrorCode setChecked (const T& value)
    {
        T checked {};
        const auto result = validate (value, checked);
        if (result != kOk)
            return result;
        return store (checked);
    }

    // Clamps to the range in outer units (never for a minimum or a maximum
    // itself), then maps to the stored form.
    virtual ErrorCode validate (const T& in, T& out)
    {
        T clamped = in;
        if constexpr (std::is_same_v<T, double> || std::is_same_v<T, int>)
        {
            if (role != kRoleMinimum && role != kRoleMaximum)
            {
                auto minimum = parameter->getMinimum();
                auto maximum = parameter->getMaximum();
                const bool hasMinimum = minimum != nullptr && ! minimum->isNull();
                const bool hasMaximum = maximum != nullptr && ! maximum->isNull();
                // A view through a decreasing modifier (an inversion, the
                // stretch linearizer) sees its source's bounds swapped.
                if (hasMinimum && hasMaximum && minimum->getFloat() > maximum->getFloat())
                    std::swap (minimum, maximum);
                if (hasMinimum)
                    clampBelow (clamped, minimum.get());
                if (hasMaximum)
                    clampAbove (clamped, maximum.get());
            }
        }
        if (auto* modifier = getValueModifier())
            return modifier->toStored (this, clamped, out);
        out = clamped;
        return kOk;
    }

    virtual ErrorCode store (const T& value)
    {
        setRaw (value);
        return kOk;
    }

    virtual T getRaw() = 0;
    // Clears the null flag and stores; a real change (exact comparison)
    // updates the choice index and tells the change strategy.
    virtual void setRaw (const T& value) = 0;

protected:
    static void clampBelow (T& v, ParameterValue* minimum)
    {
        if constexpr (std::is_same_v<T, double>)
        {
            const double m = minimum->getFloat();
            if (v < m)
                v = m;
        }
        else if constexpr (std::is_same_v<T, int>)
        {
            const int m = minimum->getInt();
            if (v < m)
                v = m;
        }
    }
    static void clampAbove (T& v, ParameterValue* maximum)
    {
        if constexpr (std::is_same_v<T, double>)
        {
            const double m = maximum->getFloat();
            if (v > m)
                v = m;
        }
        else if constexpr (std::is_same_v<T, int>)
        {
            const int m = maximum->getInt();
            if (v > m)
                v = m;
        }
    }
};

// The getters and setters of the other three kinds, through the converter.
template <typename T>
class ConvertingParameterValue : public GenericParameterValue<T>
{
public:
    using GenericParameterValue<T>::GenericParameterValue;

    juce::String getString() override
    {
        if (this->isNull())
            return this->getConverter()->getNullText();
        return get<juce::String>();
    }
    double getFloat() override { return get<double>(); }
    int getInt() override { return get<int>(); }
    bool getBool() override { return get<bool>(); }

    ErrorCode setString (const juce::String& v) override { return set (v); }
    ErrorCode setFloat (double v) override { return set (v); }
    ErrorCode setInt (int v) override { return set (v); }
    ErrorCode setBool (bool v) override { return set (v); }

    ErrorCode setNull() override
    {
        if (! this->null)
        {
            this->null = true;
            this->informStrategy();
        }
        return kOk;
    }

    void updateChoiceIndex() override
    {
        this->choiceIndex = -1;
        auto choices = this->parameter->getChoices();
        if (choices == nullptr)
            return;
        const int n = choices->size();
        for (int i = 0; i < n; ++i)
        {
            auto entry = choices->get (i);
            if (entry == nullptr || entry->isNull())
                continue;
            if (matches (entry.get()))
            {
                this->choiceIndex = i;
                return;
            }
        }
    }

    ParameterValuePtr getNearestChoice() override
    {
        auto choices = this->parameter->getChoices();
        if (choices == nullptr || choices->size() == 0)
            return ParameterValuePtr (this);

        if constexpr (std::is_same_v<T, double> || std::is_same_v<T, int>)
        {
            const double own = getFloat();
            double best = std::numeric_limits<double>::max();
            ParameterValuePtr nearest;
            for (int i = 0; i < choices->size(); ++i)
            {
                auto entry = choices->get (i);
                if (entry == nullptr || entry->isNull())
                    continue;
                const double d = std::abs (entry->getFloat() - own);
                if (d < best)
                {
                    best = d;
                    nearest = entry;
                }
            }
            return nearest != nullptr ? nearest : ParameterValuePtr (this);
        }
        else
        {
            for (int i = 0; i < choices->size(); ++i)
                if (auto entry = choices->get (i); entry != nullptr && ! entry->isNull() && matches (entry.get()))
                    return entry;
            return choices->get (0);
        }
    }

private:
    template <typename Out>
    Out get()
    {
        const T modified = this->getModified();
        if constexpr (std::is_same_v<Out, T>)
            return modified;
        else
        {
            Out out {};
            convertValue (*this->getConverter(), modified, out);
            return out;
        }
    }

    template <typename In>
    ErrorCode set (const In& value)
    {
        if constexpr (std::is_same_v<In, T>)
            return this->setChecked (value);
        else
        {
            T converted {};
            const auto result = convertValue (*this->getConverter(), value, converted);
            if (result != kOk)
                return result;
            return this->setChecked (converted);
        }
    }

    bool matches (ParameterValue* entry)
    {
        if constexpr (std::is_same_v<T, double>)
            return std::abs (entry->getFloat() - getFloat()) < 1e-7;
        else if constexpr (std::is_same_v<T, int>)
            return entry->getInt() == getInt();
        else if constexpr (std::is_same_v<T, bool>)
            return entry->getBool() == getBool();
        else
            return entry->getString() == getString();
    }
};

// Storage of a value: the stored field is the last member, and its address
// never changes during the value's life, so that handles and shortcuts may
// keep it. For numbers and bools the field is atomic (ValueStorage), so any
// thread may load it while another stores.
template <typename T>
class StoredParameterValue : public ConvertingParameterValue<T>
{
public:
    using ConvertingParameterValue<T>::ConvertingParameterValue;
    using Storage = StorageOf<T>;

    T getRaw() override { return loadStored(); }

    void setRaw (const T& value) override
    {
        if (this->null.load (std::memory_order_relaxed))
            this->null.store (false, std::memory_order_relaxed);
        if (loadStored() == value)
            return;
        storeStored (value);
        this->updateChoiceIndex();
        this->informStrategy();
    }

    // The address a shortcut reads and writes; null for a value whose
    // content lives elsewhere.
    virtual Storage* getStorage() noexcept { return &stored; }

protected:
    T loadStored() const noexcept { return ValueStorage<T>::load (stored); }
    void storeStored (const T& value) { ValueStorage<T>::store (stored, value); }

    Storage stored {};
};

class FloatParameterValue : public StoredParameterValue<double>
{
public:
    using StoredParameterValue<double>::StoredParameterValue;
};

class IntParameterValue : public StoredParameterValue<int>
{
public:
    using StoredParameterValue<int>::StoredParameterValue;
};

class BoolParameterValue : public StoredParameterValue<bool>
{
public:
    using StoredParameterValue<bool>::StoredParameterValue;
};

class StringParameterValue : public StoredParameterValue<juce::String>
{
public:
    using StoredParameterValue<juce::String>::StoredParameterValue;
};

// Where a dynamic value's content lives.
template <typename T>
class DynamicValueProvider
{
public:
    virtual ~DynamicValueProvider() = default;
    virtual void getValue (ParameterValue* value, T& out) = 0;
    virtual ErrorCode setValue (ParameterValue*, const T&) { return kUnsupported; }
};

// A value whose content is asked of a provider at every read and handed to
// it at every write; without a provider it is null. It has no storage of its
// own, so shortcuts cannot bind to it.
template <typename T, typename Base>
class AbstractDynamicParameterValue : public Base
{
public:
    AbstractDynamicParameterValue (ParameterDef* owner, int valueRole, DynamicValueProvider<T>* valueProvider,
                                   bool ownsValueProvider)
        : Base (owner, valueRole), provider (valueProvider), ownsProvider (ownsValueProvider)
    {
        this->null = provider == nullptr;
    }

    ~AbstractDynamicParameterValue() override
    {
        if (ownsProvider)
            delete provider;
    }

    bool isNull() override { return provider == nullptr; }
    StorageOf<T>* getStorage() noexcept override { return nullptr; }

    T getRaw() override
    {
        T out {};
        if (provider != nullptr)
            provider->getValue (this, out);
        return out;
    }

    ErrorCode store (const T& value) override
    {
        return provider != nullptr ? provider->setValue (this, value) : kUnsupported;
    }

    void setRaw (const T& value) override { store (value); }

private:
    DynamicValueProvider<T>* provider;
    bool ownsProvider;
};

class DynamicFloatParameterValue : public AbstractDynamicParameterValue<double, FloatParameterValue>
{
public:
    using AbstractDynamicParameterValue<double, FloatParameterValue>::AbstractDynamicParameterValue;
};

class DynamicBoolParameterValue : public AbstractDynamicParameterValue<bool, BoolParameterValue>
{
public:
    using AbstractDynamicParameterValue<bool, BoolParameterValue>::AbstractDynamicParameterValue;
};
} // namespace qvrControllableLib
