#include "controllable/lib/ParameterValueListImpl.h"

#include "controllable/api/ParameterType.h"
#include "controllable/api/ParameterValue.h"
#include "controllable/lib/ChangeStrategies.h"

namespace qvrControllableLib
{
template <typename Setter>
ParameterValuePtr ParameterValueListImpl::appendNew (Setter&& setter)
{
    auto value = parameter->getType()->createValue (parameter, role);
    setter (*value);
    values.add (value);
    return value;
}

ErrorCode ParameterValueListImpl::set (int index, ParameterValue* value)
{
    if (index < 0 || index >= values.size())
        return kNotFound;
    return values.getUnchecked (index)->setFrom (value);
}

ParameterValuePtr ParameterValueListImpl::add (ParameterValue* value)
{
    return appendNew ([value] (ParameterValue& v) { v.setFrom (value); });
}

ParameterValuePtr ParameterValueListImpl::addDefault()
{
    auto def = parameter->getDefault();
    return appendNew ([&def] (ParameterValue& v) { v.setFrom (def.get()); });
}

ParameterValuePtr ParameterValueListImpl::addFloat (double x)
{
    return appendNew ([x] (ParameterValue& v) { v.setFloat (x); });
}

ParameterValuePtr ParameterValueListImpl::addString (const juce::String& x)
{
    return appendNew ([&x] (ParameterValue& v) { v.setString (x); });
}

ParameterValuePtr ParameterValueListImpl::addInt (int x)
{
    return appendNew ([x] (ParameterValue& v) { v.setInt (x); });
}

ParameterValuePtr ParameterValueListImpl::addBool (bool x)
{
    return appendNew ([x] (ParameterValue& v) { v.setBool (x); });
}

ErrorCode ParameterValueListImpl::remove (ParameterValue* value)
{
    const int index = values.indexOf (value);
    if (index < 0)
        return kNotFound;
    values.remove (index);
    return kOk;
}

ErrorCode ParameterValueListImpl::removeAt (int index)
{
    if (index < 0 || index >= values.size())
        return kNotFound;
    values.remove (index);
    return kOk;
}

ErrorCode ParameterValueListImpl::replaceWith (ParameterValueList* other)
{
    parameter->replaceValueList (this, other);
    return kOk;
}

ErrorCode ParameterValueListImpl::setFrom (ParameterValueList* other)
{
    // One notification for the whole copy, not one per entry.
    PostponedUpdates postponed;
    postponed.add (parameter);
    clear();
    if (other != nullptr)
        for (auto* entry : other->getValues())
            add (entry);
    postponed.release();
    return kOk;
}
} // namespace qvrControllableLib
