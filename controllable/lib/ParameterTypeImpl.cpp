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
    auto* parameter = new ValueHoldingParameter (name, this);
    if (boolType)
    {
        // A bool parameter is a choice parameter with the entries false and
        // true; its range is never consulted.
        parameter->getChoices()->addBool (false);
        parameter->getChoices()->addBool (true);
        parameter->getMinimum()->setBool (false);
        parameter->getMaximum()->setBool (false);
        parameter->getValue()->updateChoiceIndex();
    }
    return ParameterDefPtr (parameter);
}

ParameterValuePtr ParameterTypeImpl::createValue (ParameterDef* parameter, int role)
{
    if (floatType)  return new FloatParameterValue (parameter, role);
    if (intType)    return new IntParameterValue (parameter, role);
    if (boolType)   return new BoolParameterValue (parameter, role);
    return new StringParameterValue (parameter, role);
}

ParameterValueListPtr ParameterTypeImpl::createValueList (ParameterDef* parameter, int role)
{
    return new ParameterValueListImpl (parameter, role);
}

ParameterValuePtr ParameterTypeImpl::createDefaultValue (ParameterDef* parameter, int role)
{
    auto value = createValue (parameter, role);
    if (floatType)      value->setFloat (0.0);
    else if (intType)   value->setInt (0);
    else if (boolType)  value->setBool (false);
    else                value->setString ({});
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
        make (false, true, false, false, false),  // float
        make (true, false, false, false, false),  // string
        make (false, false, true, false, false),  // int
        make (false, false, false, true, false),  // bool
        make (false, true, false, false, true),   // float list
        make (true, false, false, false, true),   // string list
        make (false, false, true, false, true),   // int list
        make (false, false, false, true, true),   // bool list
    };

    ~TypeRegistry()
    {
        for (auto* t : types)
            t->decReferenceCount();
    }

    static ParameterTypeImpl* make (bool s, bool f, bool i, bool b, bool l)
    {
        auto* t = new ParameterTypeImpl (s, f, i, b, l);
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

ParameterTypeImpl& ParameterTypes::floatType()      { return *TypeRegistry::get().types[0]; }
ParameterTypeImpl& ParameterTypes::stringType()     { return *TypeRegistry::get().types[1]; }
ParameterTypeImpl& ParameterTypes::intType()        { return *TypeRegistry::get().types[2]; }
ParameterTypeImpl& ParameterTypes::boolType()       { return *TypeRegistry::get().types[3]; }
ParameterTypeImpl& ParameterTypes::floatListType()  { return *TypeRegistry::get().types[4]; }
ParameterTypeImpl& ParameterTypes::stringListType() { return *TypeRegistry::get().types[5]; }
ParameterTypeImpl& ParameterTypes::intListType()    { return *TypeRegistry::get().types[6]; }
ParameterTypeImpl& ParameterTypes::boolListType()   { return *TypeRegistry::get().types[7]; }

std::array<ParameterTypeImpl*, 8> ParameterTypes::all() { return TypeRegistry::get().types; }

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
