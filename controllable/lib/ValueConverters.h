#pragma once

#include "controllable/lib/DefaultValueConverter.h"
#include "controllable/lib/ShortcutValue.h"

namespace qvrControllableLib
{
// The converters the program ships: texts for numbers with units, and the
// named settings and modes. Each overrides only the conversions it names;
// everything else is DefaultValueConverter's, so a text a converter does not
// understand reads as juce::String parses it (0), except where a converter
// states its own fallback. SnapModeValueConverter is the only one that
// refuses a text.
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

// Shows stereo bus n (from 0) as "Output 2n+1/2n+2": bus 0 is "Output 1/2".
// The text is not parsed back: parsing stays DefaultValueConverter's.
class OutputBusValueConverter : public DefaultValueConverter
{
public:
    ErrorCode stringFromInt (const int& in, juce::String& out) override;
    // Reads its own text back ("Output 3/4" is bus 1), so that a bus stored
    // as text survives a restart; a plain number is taken as the bus.
    ErrorCode intFromString (const juce::String& in, int& out) override;
};

// Sizes in gigabytes: "4.0 GB". Parsing ignores case and a trailing "gb", and
// reads a lone decimal comma ("1,5") as a point.
class GigaByteValueConverter : public DefaultValueConverter
{
public:
    ErrorCode floatFromString (const juce::String& in, double& out) override;
    ErrorCode stringFromFloat (const double& in, juce::String& out) override;
};

// Window widths by name: 444 "Small", 525 "Medium", 700 "Large", any other
// width "Custom". Every text but "Small" and "Large" parses to 525, so an
// unknown name falls back to the medium window.
class GuiWidthValueConverter : public DefaultValueConverter
{
public:
    static constexpr int kSmall = 444;
    static constexpr int kMedium = 525;
    static constexpr int kLarge = 700;

    ErrorCode intFromString (const juce::String& in, int& out) override;
    ErrorCode stringFromInt (const int& in, juce::String& out) override;
};

// Tooltip delays: below 1000 ms as "250ms", from there in seconds as "1.5s";
// 4000 means disabled and prints as "(tooltips disabled)". A text with no
// unit parses to 4000.
class TooltipDelayValueConverter : public DefaultValueConverter
{
public:
    static constexpr int kDisabledMs = 4000;

    ErrorCode intFromString (const juce::String& in, int& out) override;
    ErrorCode stringFromInt (const int& in, juce::String& out) override;
};

// Prints a tempo with one decimal and drops a trailing ".0": 120 shows as
// "120", 120.5 as "120.5".
class OutputBpmConverter : public DefaultValueConverter
{
public:
    ErrorCode stringFromFloat (const double& in, juce::String& out) override;
};

// Grid divisions: n as "1/n", 1024 as "Off". Parsing reads "Off" in any case
// or the integer after the first "/"; a result below 1 is refused with
// kRefusedText and nothing is stored.
class SnapModeValueConverter : public DefaultValueConverter
{
public:
    static constexpr int kOff = 1024;
    static constexpr ErrorCode kRefusedText = kNotFound;

    ErrorCode intFromString (const juce::String& in, int& out) override;
    ErrorCode stringFromInt (const int& in, juce::String& out) override;
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

// Resampling modes by name. Printing shows every value but 0, 1 and 3 as
// "Looped"; an unknown text parses to 2 ("Looped").
class ResamplingModeValueConverter : public DefaultValueConverter
{
public:
    enum Mode : int
    {
        kVariSpeed = 0,
        kSliced = 1,
        kLooped = 2,
        kPitchSpeed = 3
    };

    ErrorCode intFromString (const juce::String& in, int& out) override;
    ErrorCode stringFromInt (const int& in, juce::String& out) override;
};
} // namespace qvrControllableLib
