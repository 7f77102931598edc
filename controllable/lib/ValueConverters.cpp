#include "controllable/lib/ValueConverters.h"

namespace qvrControllableLib
{
//==============================================================================
UnitAppendingConverter::UnitAppendingConverter (const juce::String& unitText, int numDecimals, bool showPlusSign,
                                                double scaleFactor)
    : unit (unitText), decimals (numDecimals), showPlus (showPlusSign), factor (scaleFactor)
{
}

juce::String UnitAppendingConverter::stripUnit (const juce::String& text) const
{
    // The unit is usually appended with a blank (" dB"); a typed "3dB" or
    // "3 dB " must strip the same way.
    auto trimmed = text.trim();
    const auto bareUnit = unit.trim();
    if (bareUnit.isNotEmpty() && trimmed.endsWith (bareUnit))
        trimmed = trimmed.dropLastCharacters (bareUnit.length()).trimEnd();
    return trimmed;
}

ErrorCode UnitAppendingConverter::intFromString (const juce::String& in, int& out)
{
    // Parsed as a double so that a factor below 1 still reaches every int.
    out = roundHalfEven (stripUnit (in).getDoubleValue() / factor);
    return kOk;
}

ErrorCode UnitAppendingConverter::floatFromString (const juce::String& in, double& out)
{
    out = stripUnit (in).getDoubleValue() / factor;
    return kOk;
}

ErrorCode UnitAppendingConverter::stringFromInt (const int& in, juce::String& out)
{
    out = juce::String (roundHalfEven ((double) in * factor)) + unit;
    if (showPlus && in > 0)
        out = "+" + out;
    return kOk;
}

ErrorCode UnitAppendingConverter::stringFromFloat (const double& in, juce::String& out)
{
    const double scaled = in * factor;
    // The integer path avoids iostream's "-0" and exponent forms.
    out = (decimals <= 0 ? juce::String (roundHalfEven (scaled)) : juce::String (scaled, decimals)) + unit;
    // The sign follows the value before scaling: a negative factor flips the
    // number but not the "+".
    if (showPlus && in > 0.0)
        out = "+" + out;
    return kOk;
}

//==============================================================================
DecibelValueConverter::DecibelValueConverter (double floorDb, int numDecimals)
    : UnitAppendingConverter (" dB", numDecimals, true, 1.0), floor (floorDb)
{
}

bool DecibelValueConverter::isMinusInfinity (const juce::String& text) const
{
    return stripUnit (text) == minusInfinityText;
}

ErrorCode DecibelValueConverter::intFromString (const juce::String& in, int& out)
{
    if (isMinusInfinity (in))
    {
        out = roundHalfEven (floor);
        return kOk;
    }
    return UnitAppendingConverter::intFromString (in, out);
}

ErrorCode DecibelValueConverter::floatFromString (const juce::String& in, double& out)
{
    if (isMinusInfinity (in))
    {
        out = floor;
        return kOk;
    }
    return UnitAppendingConverter::floatFromString (in, out);
}

ErrorCode DecibelValueConverter::stringFromInt (const int& in, juce::String& out)
{
    if ((double) in <= floor)
    {
        out = minusInfinityText + unit;
        return kOk;
    }
    return UnitAppendingConverter::stringFromInt (in, out);
}

ErrorCode DecibelValueConverter::stringFromFloat (const double& in, juce::String& out)
{
    if (in <= floor)
    {
        out = minusInfinityText + unit;
        return kOk;
    }
    return UnitAppendingConverter::stringFromFloat (in, out);
}

//==============================================================================
ErrorCode GainDbValueConverter::floatFromString (const juce::String& in, double& out)
{
    out = in.replaceFirstOccurrenceOf ("dB", {}).getDoubleValue();
    return kOk;
}

ErrorCode GainDbValueConverter::stringFromFloat (const double& in, juce::String& out)
{
    // A decimal only where it carries weight: a tenth of a dB matters near
    // unity, not at -40 dB.
    out = (in > -10.0 && in < 10.0) ? juce::String (in, 1) : juce::String (roundHalfEven (in));
    if (in > 0.0)
        out = "+" + out;
    out += "dB";
    return kOk;
}

//==============================================================================
ErrorCode GigaByteValueConverter::floatFromString (const juce::String& in, double& out)
{
    auto text = in.toLowerCase().trim();
    if (text.endsWith ("gb"))
        text = text.dropLastCharacters (2);
    // "1,5" is a decimal comma; "1,500.5" is a thousands separator that
    // getDoubleValue stops at, and stays as it is.
    if (text.containsChar (',') && ! text.containsChar ('.'))
        text = text.replaceCharacter (',', '.');
    out = text.getDoubleValue();
    return kOk;
}

ErrorCode GigaByteValueConverter::stringFromFloat (const double& in, juce::String& out)
{
    out = juce::String (in, 1) + " GB";
    return kOk;
}

//==============================================================================
RelativeBpmConverter::RelativeBpmConverter (double fallback, ParameterValue* tempo) : fallbackTempo (fallback)
{
    if (tempo != nullptr)
        masterTempo.connect (tempo);
}

void RelativeBpmConverter::connectTempo (ParameterValue* tempo)
{
    if (tempo != nullptr)
        masterTempo.connect (tempo);
    else
        masterTempo.disconnect();
}

double RelativeBpmConverter::getTempo() const
{
    return masterTempo.isConnected() ? masterTempo.get() : fallbackTempo;
}

ErrorCode RelativeBpmConverter::floatFromString (const juce::String& in, double& out)
{
    const double typed = in.replaceCharacter (',', '.').getDoubleValue();
    const double tempo = getTempo();
    // A tempo of 0 means "not known yet": the ratio stays neutral rather
    // than becoming infinite.
    out = (typed > 0.0 && tempo > 0.0) ? typed / tempo : 1.0;
    return kOk;
}

ErrorCode RelativeBpmConverter::stringFromFloat (const double& in, juce::String& out)
{
    out = juce::String (in * getTempo(), 2);
    if (out.endsWith (".00"))
        out = out.dropLastCharacters (3);
    return kOk;
}
} // namespace qvrControllableLib
