#pragma once

#include <memory>
#include <vector>
#include <juce_gui_basics/juce_gui_basics.h>

#include "controllable/api/ControllableAPI.h"

namespace qvrControllableToolbox
{
using namespace qvrControllableAPI;

class ParameterComponentListenerBase;
class ParameterToolboxListener;

// Binds a tree of components to the parameters of a Controllable by the
// components' names, so that a slider named "gain" inside a panel named
// "editLoop" drives `editLoop.gain` without further code.
//
// Paths. connectComponent(root, controllable, prefix) walks the tree depth
// first, children in order before their parent. A component's path is its
// prefix, ".", and its name (the name alone under an empty prefix). The root's
// prefix is the one given; a child's prefix is its parent's prefix extended by
// the parent's name, except that the root's name and empty names add nothing.
// A name "gain[2]" stands for entry 2 of the value list of `gain`. A text
// editor named "gain_TextEditorDesktopOverlay" is bound to `gain` and also
// opens a desktop overlay when clicked (TextEditorDesktopOverlay).
//
// Binding. connectSpecial is asked first for every component, whether or not
// its path names a parameter; when it answers true the component is left to
// it. Otherwise a component whose path is found is bound by its dynamic type,
// tested in the order TextEditor, Slider, ToggleButton, Button, ComboBox,
// FileChooserTextEditor, Label (see ComponentListeners.h for what each does);
// a Button on a parameter that is neither bool nor has choices is recorded
// without listeners. Each binding ends with the parameter's
// notifyChanged(false, false), so the component shows the present value at
// once. An empty name or a path that isn't found leaves the component alone:
// that is the normal state of decorative components.
//
// Lifetime. The connector watches every bound component: when one is
// deleted, its binding is released (its parameter listener is removed, so no
// later change reaches it). Destroying the connector releases everything.
// Binding a component again replaces its binding. Parameters are counted by
// the bindings; components are not owned.
//
// Message thread only: the parameter-side listeners are registered as
// asynchronous listeners for this reason.
class ControllableComponentConnector : public juce::ReferenceCountedObject,
                                       private juce::ComponentListener
{
public:
    using Ptr = juce::ReferenceCountedObjectPtr<ControllableComponentConnector>;

    ControllableComponentConnector();
    ~ControllableComponentConnector() override;

    void connectComponent (juce::Component& component, Controllable& controllable, const juce::String& prefix = {});
    // Releases the bindings of the component and of every component below it.
    void disconnectComponent (juce::Component& component);

    // Binds one component to the current value (listIndex < 0) or to a list
    // entry of a parameter, by the component's type, and shows the value.
    // Composite components use it to bind their parts. Returns whether a
    // binding was recorded (false for a component of none of the types).
    bool connectToParameter (juce::Component& component, ParameterDef& parameter, int listIndex = -1);

    bool isConnected (const juce::Component& component) const;
    int getNumBindings() const noexcept { return (int) bindings.size(); }

    // "gain[2]" -> ("gain", 2); "gain" -> ("gain", -1). The index is the
    // integer between the brackets; the name is what stands before "[".
    struct NameAndIndex
    {
        juce::String name;
        int index = -1;
    };
    static NameAndIndex splitName (const juce::String& componentName);
    static juce::String joinPath (const juce::String& prefix, const juce::String& name);

protected:
    // Lets a subclass bind composite components by itself. True means the
    // component has been dealt with. The base deals with nothing.
    virtual bool connectSpecial (juce::Component& component, Controllable& controllable);

private:
    struct Binding;
    class OverlayOpener;

    void connectSubtree (juce::Component& component, Controllable& controllable, const juce::String& ownPrefix,
                         const juce::String& childPrefix);
    void connectOne (juce::Component& component, Controllable& controllable, const juce::String& prefix);
    void disconnectOne (juce::Component& component);
    void release (Binding& binding);
    void componentBeingDeleted (juce::Component& component) override;

    std::vector<std::unique_ptr<Binding>> bindings;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (ControllableComponentConnector)
};
} // namespace qvrControllableToolbox
