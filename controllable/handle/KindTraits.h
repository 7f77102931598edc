#pragma once

#include "controllable/api/ControllableAPI.h"
#include "controllable/lib/ParameterTypeImpl.h"

namespace qvrControllableHandle
{
using namespace qvrControllableAPI;

// Whether a handle made from a name asks for the plain type of its kind or
// for the list type, whose content lives in the value list (role 2).
enum class ValueShape
{
    single,
    list
};

// What the handles need to know about one of the four kinds: its two type
// singletons and the typed getter, setter and list append of a value.
template <typename T>
struct KindTraits;

template <>
struct KindTraits<double>
{
    static qvrControllableLib::ParameterTypeImpl& type() { return qvrControllableLib::ParameterTypes::floatType(); }
    static qvrControllableLib::ParameterTypeImpl& listType()
    {
        return qvrControllableLib::ParameterTypes::floatListType();
    }
    static double get (ParameterValue& v) { return v.getFloat(); }
    static ErrorCode set (ParameterValue& v, double x) { return v.setFloat (x); }
    static ParameterValuePtr add (ParameterValueList& l, double x) { return l.addFloat (x); }
};

template <>
struct KindTraits<int>
{
    static qvrControllableLib::ParameterTypeImpl& type() { return qvrControllableLib::ParameterTypes::intType(); }
    static qvrControllableLib::ParameterTypeImpl& listType()
    {
        return qvrControllableLib::ParameterTypes::intListType();
    }
    static int get (ParameterValue& v) { return v.getInt(); }
    static ErrorCode set (ParameterValue& v, int x) { return v.setInt (x); }
    static ParameterValuePtr add (ParameterValueList& l, int x) { return l.addInt (x); }
};

template <>
struct KindTraits<bool>
{
    static qvrControllableLib::ParameterTypeImpl& type() { return qvrControllableLib::ParameterTypes::boolType(); }
    static qvrControllableLib::ParameterTypeImpl& listType()
    {
        return qvrControllableLib::ParameterTypes::boolListType();
    }
    static bool get (ParameterValue& v) { return v.getBool(); }
    static ErrorCode set (ParameterValue& v, bool x) { return v.setBool (x); }
    static ParameterValuePtr add (ParameterValueList& l, bool x) { return l.addBool (x); }
};

template <>
struct KindTraits<juce::String>
{
    static qvrControllableLib::ParameterTypeImpl& type() { return qvrControllableLib::ParameterTypes::stringType(); }
    static qvrControllableLib::ParameterTypeImpl& listType()
    {
        return qvrControllableLib::ParameterTypes::stringListType();
    }
    static juce::String get (ParameterValue& v) { return v.getString(); }
    static ErrorCode set (ParameterValue& v, const juce::String& x) { return v.setString (x); }
    static ParameterValuePtr add (ParameterValueList& l, const juce::String& x) { return l.addString (x); }
};
} // namespace qvrControllableHandle
