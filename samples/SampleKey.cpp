#include "samples/SampleKey.h"

#include <juce_cryptography/juce_cryptography.h>

namespace
{
juce::String md5Hex (const juce::String& text)
{
    // The UTF-8 bytes without the terminator; toHexString is lower case.
    return juce::MD5 (text.toUTF8()).toHexString();
}
} // namespace

juce::String SampleKey::make (const juce::String& url, const juce::String& renderSignature)
{
    auto key = md5Hex (url);
    if (renderSignature.isNotEmpty())
        key << "-" << md5Hex (renderSignature);
    return key;
}

bool SampleKey::isRenderedVariant (const juce::String& key)
{
    return key.containsChar ('-');
}
