#include "controllable/toolbox/ControllableComponentConnector.h"

#include <algorithm>

#include "controllable/toolbox/CombinedTextEditorListener.h"
#include "controllable/toolbox/ComponentListeners.h"
#include "controllable/toolbox/FileChooserTextEditor.h"
#include "controllable/toolbox/SliderResetMouseListener.h"
#include "controllable/toolbox/TextEditorDesktopOverlay.h"

namespace qvrControllableToolbox
{
// Opens the desktop overlay of a text editor on a click and hands its result
// to the editor's binding, which commits or drops the text.
class ControllableComponentConnector::OverlayOpener : public juce::MouseListener,
                                                      private TextEditorDesktopOverlay::Listener
{
public:
    OverlayOpener (juce::TextEditor& e, CombinedTextEditorListener& b) : editor (&e), binding (b)
    {
        e.addMouseListener (this, false);
    }

    ~OverlayOpener() override
    {
        overlay.reset();
        if (auto* e = editor.getComponent())
            e->removeMouseListener (this);
    }

    void mouseDown (const juce::MouseEvent&) override
    {
        auto* e = dynamic_cast<juce::TextEditor*> (editor.getComponent());
        if (e == nullptr)
            return;
        if (overlay == nullptr)
            overlay = std::make_unique<TextEditorDesktopOverlay> (
                *e, static_cast<TextEditorDesktopOverlay::Listener&> (*this));
        overlay->show();
    }

private:
    void overlayFinished (TextEditorDesktopOverlay&, bool accepted) override
    {
        if (accepted)
            binding.commit();
        else
            binding.revert();
    }

    juce::Component::SafePointer<juce::Component> editor;
    CombinedTextEditorListener& binding;
    std::unique_ptr<TextEditorDesktopOverlay> overlay;
};

// One binding. The parameter-side listener is owned here, or, for a text
// editor, is the component-side object itself. Members are destroyed in
// reverse order: the overlay and the reset listener go before the listener
// they use.
struct ControllableComponentConnector::Binding
{
    juce::Component* component = nullptr;
    std::unique_ptr<ParameterComponentListenerBase> componentListener;
    ParameterDefPtr parameter;
    ParameterToolboxListener* parameterListener = nullptr;
    std::unique_ptr<ParameterToolboxListener> ownedParameterListener;
    bool hasSliderResetListener = false;
    std::unique_ptr<SliderResetMouseListener> sliderResetListener;
    std::unique_ptr<OverlayOpener> overlayOpener;
};

ControllableComponentConnector::ControllableComponentConnector() = default;

ControllableComponentConnector::~ControllableComponentConnector()
{
    for (auto& binding : bindings)
        release (*binding);
    bindings.clear();
}

juce::String ControllableComponentConnector::joinPath (const juce::String& prefix, const juce::String& name)
{
    return prefix.isEmpty() ? name : prefix + "." + name;
}

ControllableComponentConnector::NameAndIndex
ControllableComponentConnector::splitName (const juce::String& componentName)
{
    NameAndIndex result { componentName, -1 };
    if (componentName.containsChar ('[') && componentName.containsChar (']'))
    {
        result.name = componentName.upToFirstOccurrenceOf ("[", false, false);
        result.index = componentName.fromFirstOccurrenceOf ("[", false, false)
                           .upToFirstOccurrenceOf ("]", false, false)
                           .trim()
                           .getIntValue();
    }
    return result;
}

void ControllableComponentConnector::connectComponent (juce::Component& component, Controllable& controllable,
                                                       const juce::String& prefix)
{
    JUCE_ASSERT_MESSAGE_THREAD
    connectSubtree (component, controllable, prefix, prefix);
}

void ControllableComponentConnector::connectSubtree (juce::Component& component, Controllable& controllable,
                                                     const juce::String& ownPrefix, const juce::String& childPrefix)
{
    // By index, re-reading the count: connectSpecial may add parts as it binds.
    for (int i = 0; i < component.getNumChildComponents(); ++i)
    {
        auto* child = component.getChildComponent (i);
        const auto name = child->getName();
        connectSubtree (*child, controllable, childPrefix, name.isEmpty() ? childPrefix : joinPath (childPrefix, name));
    }
    connectOne (component, controllable, ownPrefix);
}

void ControllableComponentConnector::connectOne (juce::Component& component, Controllable& controllable,
                                                 const juce::String& prefix)
{
    auto componentName = component.getName();
    if (dynamic_cast<juce::TextEditor*> (&component) != nullptr)
        componentName = TextEditorDesktopOverlay::getCoveredName (componentName);

    const auto [name, index] = splitName (componentName);
    // An unnamed component has no path of its own: it must not pick up the
    // parameter its prefix happens to name.
    ParameterDefPtr parameter;
    if (name.isNotEmpty())
        parameter = controllable.findParameter (joinPath (prefix, name));

    if (connectSpecial (component, controllable))
        return;
    if (parameter != nullptr)
        connectToParameter (component, *parameter, index);
}

bool ControllableComponentConnector::connectSpecial (juce::Component&, Controllable&)
{
    return false;
}

bool ControllableComponentConnector::connectToParameter (juce::Component& component, ParameterDef& parameter,
                                                         int listIndex)
{
    JUCE_ASSERT_MESSAGE_THREAD
    disconnectOne (component);

    const BoundParameterValue bound (parameter, listIndex);
    const bool hasChoices = bound.getChoices() != nullptr;
    auto binding = std::make_unique<Binding>();
    binding->component = &component;
    binding->parameter = &parameter;

    auto own = [&binding] (ParameterComponentListenerBase* componentSide, ParameterToolboxListener* parameterSide) {
        binding->componentListener.reset (componentSide);
        binding->ownedParameterListener.reset (parameterSide);
        binding->parameterListener = parameterSide;
    };
    auto bindText = [&binding, &bound] (juce::TextEditor& editor) {
        auto* combined = new CombinedTextEditorListener (editor, bound);
        binding->componentListener.reset (combined);
        binding->parameterListener = combined;
        return combined;
    };

    if (auto* editor = dynamic_cast<juce::TextEditor*> (&component))
    {
        auto* combined = bindText (*editor);
        if (TextEditorDesktopOverlay::hasOverlayName (*editor))
            binding->overlayOpener = std::make_unique<OverlayOpener> (*editor, *combined);
    }
    else if (auto* slider = dynamic_cast<juce::Slider*> (&component))
    {
        if (hasChoices)
            own (new ParameteChoiceSliderListener (*slider, bound), new ChoiceSliderChangeListener (*slider, bound));
        else
            own (new ParameterSliderListener (*slider, bound), new SliderChangeListener (*slider, bound));
        binding->hasSliderResetListener = true;
        binding->sliderResetListener = std::make_unique<SliderResetMouseListener> (*slider, bound);
    }
    else if (auto* toggle = dynamic_cast<juce::ToggleButton*> (&component))
    {
        own (new ParameterToggleButtonListener (*toggle, bound), new ToggleButtonChangeListener (*toggle, bound));
    }
    else if (auto* button = dynamic_cast<juce::Button*> (&component))
    {
        if (parameter.getType()->isBool())
            own (new ParameterButtonListener (*button, bound), new ButtonChangeListener (*button, bound));
        else if (hasChoices)
            own (new ParameterChoiceButtonListener (*button, bound), new ChoiceButtonChangeListener (*button, bound));
    }
    else if (auto* comboBox = dynamic_cast<juce::ComboBox*> (&component))
    {
        own (new ParameterComboBoxListener (*comboBox, bound), new ComboBoxChangeListener (*comboBox, bound));
    }
    else if (auto* fileField = dynamic_cast<FileChooserTextEditor*> (&component))
    {
        bindText (fileField->getTextEditor());
    }
    else if (auto* label = dynamic_cast<juce::Label*> (&component))
    {
        own (new ParameterLabelListener (*label, bound), new LabelChangeListener (*label, bound));
    }
    else
    {
        return false;
    }

    if (binding->parameterListener != nullptr)
        parameter.addChangeListener (binding->parameterListener, false);
    component.addComponentListener (this);
    bindings.push_back (std::move (binding));

    parameter.notifyChanged (false, false);
    return true;
}

bool ControllableComponentConnector::isConnected (const juce::Component& component) const
{
    return std::any_of (bindings.begin(), bindings.end(), [&] (const auto& b) { return b->component == &component; });
}

void ControllableComponentConnector::disconnectComponent (juce::Component& component)
{
    JUCE_ASSERT_MESSAGE_THREAD
    for (int i = 0; i < component.getNumChildComponents(); ++i)
        disconnectComponent (*component.getChildComponent (i));
    disconnectOne (component);
}

void ControllableComponentConnector::disconnectOne (juce::Component& component)
{
    auto it = std::find_if (bindings.begin(), bindings.end(),
                            [&] (const auto& b) { return b->component == &component; });
    if (it == bindings.end())
        return;
    // Out of the array first: releasing may run code that asks about bindings.
    auto binding = std::move (*it);
    bindings.erase (it);
    release (*binding);
}

void ControllableComponentConnector::release (Binding& binding)
{
    if (binding.parameterListener != nullptr)
        binding.parameter->removeChangeListener (binding.parameterListener, false);
    binding.component->removeComponentListener (this);
    // The listeners unregister from the component in their destructors,
    // unless its typed part is already gone.
    binding.overlayOpener.reset();
    binding.sliderResetListener.reset();
    binding.ownedParameterListener.reset();
    binding.componentListener.reset();
    binding.parameterListener = nullptr;
}

void ControllableComponentConnector::componentBeingDeleted (juce::Component& component)
{
    // Called from Component's destructor: the derived parts of the component
    // are gone, only its Component part may be touched.
    disconnectOne (component);
}
} // namespace qvrControllableToolbox
