#pragma once

#include "controllable/lib/ParameterValues.h"

namespace qvrControllableLib
{
// A complete value that follows another value (its source), possibly of
// another kind and through another parameter's modifier: the building block
// of views such as a decibel view on a linear gain. A write validates with
// this value's own parameter (range in its units, then its modifier) and
// lands in the source, whose own range applies in turn; the source's
// notifications are what reach this value's owner.
//
// The local copy is kept in the stored field, so a read is always refreshed
// from the source first. Listens synchronously to the source parameter.
template <typename T>
class AbstractForwardingParameterValue : public StoredParameterValue<T>,
                                         public ParameterChangeListener
{
public:
    AbstractForwardingParameterValue (ParameterDef* owner, int valueRole, ParameterValue* sourceValue)
        : StoredParameterValue<T> (owner, valueRole), source (sourceValue)
    {
        if (source != nullptr)
        {
            sourceParameter = source->getParameter();
            sourceParameter->addChangeListener (this, true);
        }
        update (false);
    }

    ~AbstractForwardingParameterValue() override
    {
        if (sourceParameter != nullptr)
            sourceParameter->removeChangeListener (this, true);
    }

    void parameterChanged (ParameterDef* changed) override
    {
        if (sourceParameter == nullptr || changed != sourceParameter.get())
            return;
        if (update (true) || isRangeMapped())
            this->parameter->notifyChanged (false, false);
    }

    // Refreshes the local copy from the source; true if it changed.
    bool update (bool)
    {
        if (source == nullptr || source->isNull())
        {
            this->null = true;
            return false;
        }
        const T fresh = getSourceValue();
        this->null = false;
        if (fresh == this->loadStored())
            return false;
        this->storeStored (fresh);
        this->updateChoiceIndex();
        return true;
    }

    T getLocal() const { return this->loadStored(); }
    void setLocal (const T& value) { StoredParameterValue<T>::setRaw (value); }
    void setLocalNull() { this->null = true; }
    ParameterDef* getOwner() const { return this->parameter; }
    ParameterValue* getSource() const { return source.get(); }

    T getSourceValue() const
    {
        if constexpr (std::is_same_v<T, double>)
            return source->getFloat();
        else if constexpr (std::is_same_v<T, int>)
            return source->getInt();
        else if constexpr (std::is_same_v<T, bool>)
            return source->getBool();
        else
            return source->getString();
    }

    ErrorCode setSourceValue (const T& value)
    {
        if (source == nullptr)
            return kUnsupported;
        if constexpr (std::is_same_v<T, double>)
            return source->setFloat (value);
        else if constexpr (std::is_same_v<T, int>)
            return source->setInt (value);
        else if constexpr (std::is_same_v<T, bool>)
            return source->setBool (value);
        else
            return source->setString (value);
    }

    // A view whose modifier does not map its range must tell its listeners
    // of every change of the source, even one its own value does not show.
    bool isRangeMapped()
    {
        auto modifier = this->parameter->getModifier();
        return modifier != nullptr && ! modifier->appliesToRange();
    }

    bool isNull() override { return source == nullptr || source->isNull(); }

    T getModified() override
    {
        update (true);
        return StoredParameterValue<T>::getModified();
    }

    ErrorCode setChecked (const T& value) override
    {
        T checked {};
        const auto result = this->validate (value, checked);
        if (result != kOk)
            return result;
        const auto written = setSourceValue (checked);
        update (false);
        return written;
    }

    ErrorCode setNull() override { return source != nullptr ? source->setNull() : kUnsupported; }

private:
    ParameterValuePtr source;
    ParameterDefPtr sourceParameter;
};

class ForwardingFloatParameterValue : public AbstractForwardingParameterValue<double>
{
public:
    using AbstractForwardingParameterValue<double>::AbstractForwardingParameterValue;
};

class ForwardingIntParameterValue : public AbstractForwardingParameterValue<int>
{
public:
    using AbstractForwardingParameterValue<int>::AbstractForwardingParameterValue;
};

class ForwardingBoolParameterValue : public AbstractForwardingParameterValue<bool>
{
public:
    using AbstractForwardingParameterValue<bool>::AbstractForwardingParameterValue;
};

class ForwardingStringParameterValue : public AbstractForwardingParameterValue<juce::String>
{
public:
    using AbstractForwardingParameterValue<juce::String>::AbstractForwardingParameterValue;
};

// Makes the forwarding value of the kind of `type` for `source`.
ParameterValuePtr createForwardingValue (ParameterType& type, ParameterDef* owner, int role, ParameterValue* source);

// Read access to another parameter's list: size and get forward, changes are
// refused.
class ForwardingValueList : public ParameterValueList
{
public:
    ForwardingValueList (ParameterDef* owner, int listRole, ParameterValueList* sourceList)
        : parameter (owner), role (listRole), source (sourceList)
    {
    }

    ParameterDef* getParameter() override { return parameter; }
    int getRole() override { return role; }
    int size() override { return source != nullptr ? source->size() : 0; }
    ParameterValuePtr get (int index) override { return source != nullptr ? source->get (index) : nullptr; }
    ErrorCode set (int, ParameterValue*) override { return kUnsupported; }
    ParameterValuePtr add (ParameterValue*) override { return nullptr; }
    ParameterValuePtr addDefault() override { return nullptr; }
    ParameterValuePtr addFloat (double) override { return nullptr; }
    ParameterValuePtr addString (const juce::String&) override { return nullptr; }
    ParameterValuePtr addInt (int) override { return nullptr; }
    ParameterValuePtr addBool (bool) override { return nullptr; }
    ErrorCode remove (ParameterValue*) override { return kUnsupported; }
    ErrorCode removeAt (int) override { return kUnsupported; }
    void clear() override {}
    const juce::ReferenceCountedArray<ParameterValue>& getValues() override;
    ErrorCode replaceWith (ParameterValueList* other) override
    {
        return source != nullptr ? source->replaceWith (other) : kUnsupported;
    }
    ErrorCode setFrom (ParameterValueList* other) override
    {
        return source != nullptr ? source->setFrom (other) : kUnsupported;
    }

private:
    ParameterDef* parameter;
    int role;
    ParameterValueListPtr source;
    juce::ReferenceCountedArray<ParameterValue> empty;
};

// Tells a target parameter of every change of the parameter it listens to;
// with `updateChoices` set it first recomputes the target's choice indices.
class ForwardingChangeListener : public ParameterChangeListener
{
public:
    ForwardingChangeListener (ParameterDef* targetParameter, bool updateChoices)
        : target (targetParameter), updateChoiceIndices (updateChoices)
    {
    }

    void parameterChanged (ParameterDef*) override;

protected:
    ParameterDef* target;
    bool updateChoiceIndices;
};
} // namespace qvrControllableLib
