#include "controllable/lib/ParameterValues.h"

namespace qvrControllableLib
{
ValueModifier* AbstractParameterValue::getValueModifier()
{
    auto modifier = parameter->getModifier();
    if (modifier == nullptr || ! modifier->appliesTo (this))
        return nullptr;
    // The parameter keeps the modifier alive for as long as it is installed.
    return modifier.get();
}

ErrorCode AbstractParameterValue::setFrom (ParameterValue* other)
{
    if (other == nullptr || other->isNull())
        return setNull();

    if (auto choices = parameter->getChoices(); choices != nullptr && choices->size() > 0)
        choiceIndex = other->getChoiceIndex();

    auto type = parameter->getType();
    if (type->isFloat())
        return setFloat (other->getFloat());
    if (type->isInt())
        return setInt (other->getInt());
    if (type->isBool())
        return setBool (other->getBool());
    return setString (other->getString());
}

void AbstractParameterValue::informStrategy()
{
    if (auto strategy = parameter->getChangeStrategy())
        strategy->valueChanged();
}
} // namespace qvrControllableLib
