#pragma once

#include "controllable/lib/DefaultValueConverter.h"
#include "controllable/lib/ShortcutValue.h"

namespace qvrControllableLib
{
// General-purpose converters: texts for numbers with units, sizes and tempos.
// Converters of one product's values (its buses, modes, window sizes) live
// with the layer that owns those values. Each overrides only the conversions
// it names; everything else is DefaultValueConverter's, so a text a converter
// does not understand reads as juce::String parses it (0), except where a
// converter states its own fallback.
//
// Converters are stateless after construction (RelativeBpmConverter reads its
// tempo through a shortcut) and may be shared by several parameters. They
// build strings, so they are for the message thread and for setup, never for
// a render call.

// A number followed by a unit, for example "2.50 st". Printing multiplies by
// `factor`; with `decimals` 0 or less it prints the rounded integer. Parsing
// strips the unit and divides by `factor`. With `showPlus`, a positive value
// (before the factor) gets a leading "+".
class UnitAppendingConverter : public DefaultValueConverter
{
public:
    UnitAppendingConverter (const juce::String& unit, int decimals, bool showPlus = false, double factor = 1.0);

    ErrorCode intFromString (const juce::String& in, int& out) override;
    ErrorCode floatFromString (const juce::String& in, double& out) override;
    ErrorCode stringFromInt (const int& in, juce::String& out) override;
    ErrorCode stringFromFloat (const double& in, juce::String& out) override;

protected:
    // The text without a trailing unit (the unit's blanks are optional).
    juce::String stripUnit (const juce::String& text) const;

    juce::String unit;
    int decimals;
    bool showPlus;
    double factor;
};

// Decibels with a floor: a value at or below the floor prints as "-inf dB",
// and "-inf" (with or without " dB") parses to the floor. Positive values get
// a "+".
class DecibelValueConverter : public UnitAppendingConverter
{
public:
    DecibelValueConverter (double floorDb, int decimals);

    ErrorCode intFromString (const juce::String& in, int& out) override;
    ErrorCode floatFromString (const juce::String& in, double& out) override;
    ErrorCode stringFromInt (const int& in, juce::String& out) override;
    ErrorCode stringFromFloat (const double& in, juce::String& out) override;

protected:
    juce::String minusInfinityText { "-inf" };
    double floor;

private:
    bool isMinusInfinity (const juce::String& text) const;
};

// A compact gain in decibels: "+3.0dB", "-12dB". One decimal strictly
// between -10 and 10, the rounded integer elsewhere.
class GainDbValueConverter : public DefaultValueConverter
{
public:
    ErrorCode floatFromString (const juce::String& in, double& out) override;
    ErrorCode stringFromFloat (const double& in, juce::String& out) override;
};

// Sizes in gigabytes: "4.0 GB". Parsing ignores case and a trailing "gb", and
// reads a lone decimal comma ("1,5") as a point.
class GigaByteValueConverter : public DefaultValueConverter
{
public:
    ErrorCode floatFromString (const juce::String& in, double& out) override;
    ErrorCode stringFromFloat (const double& in, juce::String& out) override;
};

// A ratio to a tempo, shown as a tempo: ratio x tempo with two decimals, a
// trailing ".00" removed. Parsing divides by the tempo (a comma counts as a
// point) and gives 1 unless both the number and the tempo are above 0. The
// tempo is read through a shortcut (with the modifiers of its forwarding
// chain); while the shortcut is not connected the fallback tempo is used.
//
// connectTempo on the message thread before the converter is used.
class RelativeBpmConverter : public DefaultValueConverter
{
public:
    explicit RelativeBpmConverter (double fallbackTempo, ParameterValue* tempo = nullptr);

    void connectTempo (ParameterValue* tempo);
    double getTempo() const;

    ErrorCode floatFromString (const juce::String& in, double& out) override;
    ErrorCode stringFromFloat (const double& in, juce::String& out) override;

private:
    FloatShortcutValue masterTempo;
    double fallbackTempo;
};
} // namespace qvrControllableLib
