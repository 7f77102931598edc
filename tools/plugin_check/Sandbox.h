#pragma once

#include <juce_core/juce_core.h>

namespace pluginCheck
{
// A private directory for the run. HOME points into it before JUCE starts, so
// that neither the plug-in's files nor ~/.lv2 of the user take part; for LV2
// it also holds the only search folder, with a link to the bundle under test.
// Made before JUCE starts; removed, without following the link, on destruction.
class Sandbox
{
public:
    Sandbox();
    // Never follows the link: the bundle under test stays untouched.
    ~Sandbox();

    bool isReady() const { return ready; }
    juce::File getHome() const { return root.getChildFile ("home"); }
    juce::File getLv2Folder() const { return root.getChildFile ("lv2"); }

    bool linkIntoLv2Folder (const juce::File& bundle) const;

private:
    juce::File root;
    bool ready = false;

    JUCE_DECLARE_NON_COPYABLE (Sandbox)
};
} // namespace pluginCheck
