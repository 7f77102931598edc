#include "Sandbox.h"

#include <cstdlib>

namespace pluginCheck
{
Sandbox::Sandbox()
    : root (juce::File::getSpecialLocation (juce::File::tempDirectory)
                .getChildFile ("tavrine-plugin-check-"
                               + juce::String::toHexString (juce::Random::getSystemRandom().nextInt64())))
{
    ready = root.createDirectory() && getHome().createDirectory() && getLv2Folder().createDirectory()
            && setenv ("HOME", getHome().getFullPathName().toRawUTF8(), 1) == 0;
}

Sandbox::~Sandbox()
{
    root.deleteRecursively (false);
}

bool Sandbox::linkIntoLv2Folder (const juce::File& bundle) const
{
    return bundle.createSymbolicLink (getLv2Folder().getChildFile (bundle.getFileName()), true);
}
} // namespace pluginCheck
