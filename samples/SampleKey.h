#pragma once

#include <juce_core/juce_core.h>

// The pool's name for a sample: 32 lower-case hex digits of the MD5 of the
// URL's UTF-8 text and, for a rendered variant, "-" and 32 more of the MD5 of
// its render signature. The "-" is what marks a variant as worth writing to
// the render cache. Pure functions, callable from any thread.
namespace SampleKey
{
juce::String make (const juce::String& url, const juce::String& renderSignature);

bool isRenderedVariant (const juce::String& key);
} // namespace SampleKey
