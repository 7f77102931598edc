#include "controllable/lib/ParameterTypeImpl.h"

#include "controllable/lib/DefaultValueConverter.h"
#include "controllable/lib/ParameterValueListImpl.h"
#include "controllable/lib/ParameterValues.h"
#include "controllable/lib/ValueHoldingParameter.h"

namespace qvrControllableLib
{
class ParameterTypeImpl::AsyncUpdateTimer : public juce::Timer
{
public:
    explicit AsyncUpdateTimer (ParameterTypeImpl& t) : type (t) {}
    ~AsyncUpdateTimer() override { stopTimer(); }
    void timerCallback() override { type.drainChanges(); }

private:
    ParameterTypeImpl& type;
};

ParameterTypeImpl::ParameterTypeImpl (bool isStringType, bool isFloatType, bool isIntType, bool isBoolType,
                                      bool isListType)
    : stringType (isStringType), floatType (isFloatType), intType (isIntType), boolType (isBoolType),
      listType (isListType), defaultConverter (new DefaultValueConverter())
{
}

ParameterTypeImpl::~ParameterTypeImpl() = default;

ParameterDefPtr ParameterTypeImpl::createParameter (const juce::String& name)
{
    return ParameterDefPtr (new ValueHoldingParameter (name, this));
}

ParameterDefPtr ParameterTypeBool::createParameter (const juce::String& name)
{
    auto parameter = ParameterTypeImpl::createParameter (name);
    parameter->getChoices()->addBool (false);
    parameter->getChoices()->addBool (true);
    parameter->getMinimum()->setBool (false);
    parameter->getMaximum()->setBool (false);
    parameter->getValue()->updateChoiceIndex();
    return parameter;
}

ParameterValuePtr ParameterTypeImpl::createValue (ParameterDef* parameter, int role)
{
    if (floatType)
        return new FloatParameterValue (parameter, role);
    if (intType)
        return new IntParameterValue (parameter, role);
    if (boolType)
        return new BoolParameterValue (parameter, role);
    return new StringParameterValue (parameter, role);
}

ParameterValueListPtr ParameterTypeImpl::createValueList (ParameterDef* parameter, int role)
{
    return new ParameterValueListImpl (parameter, role);
}

ParameterValuePtr ParameterTypeImpl::createDefaultValue (ParameterDef* parameter, int role)
{
    auto value = createValue (parameter, role);
    if (floatType)
        value->setFloat (0.0);
    else if (intType)
        value->setInt (0);
    else if (boolType)
        value->setBool (false);
    else
        value->setString ({});
    return value;
}

void ParameterTypeImpl::startAsyncUpdates()
{
    const juce::ScopedLock sl (timerLock);
    if (++asyncUpdateCount == 1)
    {
        timer = std::make_unique<AsyncUpdateTimer> (*this);
        timer->startTimer (20);
    }
}

void ParameterTypeImpl::stopAsyncUpdates()
{
    const juce::ScopedLock sl (timerLock);
    if (--asyncUpdateCount == 0)
        timer.reset();
}

void ParameterTypeImpl::drainChanges()
{
    fifo.drain ([] (ParameterDef* parameter) { parameter->notifyChanged (false, true); });
}

bool ParameterTypeImpl::isTimerRunning() const
{
    return timer != nullptr && timer->isTimerRunning();
}

namespace
{
struct TypeRegistry
{
    // Created with new and held by one reference that is never released
    // before unload: parameters alive at exit may still use their type.
    std::array<ParameterTypeImpl*, 8> types {
        hold (new ParameterTypeFloat (false)), hold (new ParameterTypeString (false)),
        hold (new ParameterTypeInt (false)),   hold (new ParameterTypeBool (false)),
        hold (new ParameterTypeFloat (true)),  hold (new ParameterTypeString (true)),
        hold (new ParameterTypeInt (true)),    hold (new ParameterTypeBool (true)),
    };

    ~TypeRegistry()
    {
        for (auto* t : types)
            t->decReferenceCount();
    }

    static ParameterTypeImpl* hold (ParameterTypeImpl* t)
    {
        t->incReferenceCount();
        return t;
    }

    static TypeRegistry& get()
    {
        static TypeRegistry registry;
        return registry;
    }
};
} // namespace

ParameterTypeImpl& ParameterTypes::floatType()
{
    return *TypeRegistry::get().types[0];
}
ParameterTypeImpl& ParameterTypes::stringType()
{
    return *TypeRegistry::get().types[1];
}
ParameterTypeImpl& ParameterTypes::intType()
{
    return *TypeRegistry::get().types[2];
}
ParameterTypeImpl& ParameterTypes::boolType()
{
    return *TypeRegistry::get().types[3];
}
ParameterTypeImpl& ParameterTypes::floatListType()
{
    return *TypeRegistry::get().types[4];
}
ParameterTypeImpl& ParameterTypes::stringListType()
{
    return *TypeRegistry::get().types[5];
}
ParameterTypeImpl& ParameterTypes::intListType()
{
    return *TypeRegistry::get().types[6];
}
ParameterTypeImpl& ParameterTypes::boolListType()
{
    return *TypeRegistry::get().types[7];
}

std::array<ParameterTypeImpl*, 8> ParameterTypes::all()
{
    return TypeRegistry::get().types;
}

void ParameterTypes::startAllAsyncUpdates()
{
    for (auto* t : all())
        t->startAsyncUpdates();
}

void ParameterTypes::stopAllAsyncUpdates()
{
    for (auto* t : all())
        t->stopAsyncUpdates();
}

void ParameterTypes::drainAll()
{
    for (auto* t : all())
        t->drainChanges();
}
} // namespace qvrControllableLib
