#include <gtest/gtest.h>

#include <thread>

#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"
#include "controllable/lib/ValueConverters.h"
#include "controllable/toolbox/AutomatedAudioProcessor.h"
#include "controllable/toolbox/ControllableComponentConnector.h"
#include "controllable/toolbox/FileChooserTextEditor.h"
#include "controllable/toolbox/SliderResetMouseListener.h"
#include "tests/support/MessagePump.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using namespace qvrControllableLib;
using namespace qvrControllableToolbox;
using tavrine::test::pumpMessagesUntil;

namespace
{
// Shows a factor as a whole percentage ("50 %") and reads it back, so that a
// test can tell the converter's text from the default one.
class PercentConverter : public DefaultValueConverter
{
public:
    ErrorCode stringFromFloat (const double& in, juce::String& out) override
    {
        out = juce::String (juce::roundToInt (in * 100.0)) + " %";
        return kOk;
    }
    ErrorCode floatFromString (const juce::String& in, double& out) override
    {
        out = in.upToFirstOccurrenceOf ("%", false, false).trim().getDoubleValue() / 100.0;
        return kOk;
    }
};

// Remembers which TextEditor notifications have been delivered. Added before
// the binding, it hears each message after the binding did (JUCE calls the
// last-added listener first).
struct EditorProbe : juce::TextEditor::Listener
{
    void textEditorTextChanged (juce::TextEditor&) override { ++changes; }
    void textEditorReturnKeyPressed (juce::TextEditor&) override { ++returns; }
    int changes = 0, returns = 0;
};

// Runs the FIFO drain timers for as long as it lives, as a plug-in instance does.
struct AsyncUpdates
{
    AsyncUpdates() { ParameterTypes::startAllAsyncUpdates(); }
    ~AsyncUpdates() { ParameterTypes::stopAllAsyncUpdates(); }
};

class ConnectorTest : public ::testing::Test
{
protected:
    ConnectorTest()
    {
        gain.minimum = 0.0;
        gain.maximum = 2.0;
        gain.defaultValue = 1.0;
        gain->setConverter (new PercentConverter());
        ratio.choices.add (0.5).add (1.0).add (2.0);
        ratio.defaultValue = 1.0;
        slices.getValueList().add (0.1).add (0.2).add (0.3);
        key.choices.add ("Off").add ("C1").add ("C#1").add ("D1");
        key.defaultValue = juce::String ("Off");
        mode.choices.add (1).add (2).add (4);
        mode.defaultValue = 4;
        for (auto* p : { gain.get(), ratio.get(), slices.get(), reverse.get(), key.get(), mode.get() })
            root->addParameter (p);
    }

    ~ConnectorTest() override
    {
        // Whatever a test left bound, nothing may still listen afterwards.
        connector = nullptr;
    }

    juce::ReferenceCountedObjectPtr<BasicControllable> root { new BasicControllable() };
    ControllableComponentConnector::Ptr connector { new ControllableComponentConnector() };

    // Forwarded names as the engine publishes them.
    FloatParamDefHandle gain { "editLoop.gain" };
    FloatParamDefHandle ratio { "editLoop.ratio" };
    FloatParamDefHandle slices { "editLoop.slices", ValueShape::list };
    BoolParamDefHandle reverse { "editLoop.reverse" };
    StringParamDefHandle key { "targetKey" };
    IntParamDefHandle mode { "snapMode" };
};
} // namespace

//==============================================================================
TEST_F (ConnectorTest, BindsByPathThroughUnnamedComponentsWithPrefixAndListIndex)
{
    // screen (its name is not part of any path)
    //   (unnamed) / editLoop / (unnamed) / gain, slices[2], decoration
    juce::Component screen ("screen"), outer, editLoop ("editLoop"), group;
    juce::Slider gainSlider ("gain"), sliceSlider ("slices[2]");
    juce::Label decoration ("decoration", "text");
    screen.addChildComponent (outer);
    outer.addChildComponent (editLoop);
    editLoop.addChildComponent (group);
    for (auto* c : std::initializer_list<juce::Component*> { &gainSlider, &sliceSlider, &decoration })
        group.addChildComponent (c);

    connector->connectComponent (screen, *root);
    EXPECT_EQ (connector->getNumBindings(), 2);
    EXPECT_FALSE (connector->isConnected (decoration));
    EXPECT_DOUBLE_EQ (gainSlider.getValue(), 1.0); // shown at once
    EXPECT_DOUBLE_EQ (sliceSlider.getValue(), 0.3);

    sliceSlider.setValue (0.25, juce::sendNotificationSync);
    EXPECT_DOUBLE_EQ (slices.getValueList()[2], 0.25);
    EXPECT_DOUBLE_EQ (slices.getValueList()[1], 0.2);
    EXPECT_DOUBLE_EQ (slices->getValue()->getFloat(), 0.0);

    // A list reloaded with new entries keeps the slider on its index.
    auto reloaded = slices->getType()->createValueList (slices.get(), kRoleValueList);
    reloaded->addFloat (0.5);
    reloaded->addFloat (0.6);
    reloaded->addFloat (0.7);
    slices->getValueList()->setFrom (reloaded.get());
    EXPECT_DOUBLE_EQ (sliceSlider.getValue(), 0.7);

    // A prefix stands for the root; an unnamed child has no path of its own
    // even when its prefix names a parameter.
    juce::Component panel;
    juce::Slider ratioSlider ("ratio"), anonymous;
    juce::TextEditor overlayed ("gain_TextEditorDesktopOverlay");
    panel.addChildComponent (ratioSlider);
    panel.addChildComponent (overlayed);
    connector->connectComponent (panel, *root, "editLoop");
    EXPECT_TRUE (connector->isConnected (ratioSlider));
    EXPECT_EQ (overlayed.getText(), "100 %");

    juce::Component holder, gainPanel ("gain");
    holder.addChildComponent (gainPanel);
    gainPanel.addChildComponent (anonymous);
    connector->connectComponent (holder, *root, "editLoop");
    EXPECT_FALSE (connector->isConnected (anonymous));
    EXPECT_FALSE (connector->isConnected (gainPanel)); // found, but of no bindable type
}

//==============================================================================
TEST_F (ConnectorTest, SliderAndParameterFollowEachOther)
{
    const AsyncUpdates updates;
    juce::Slider slider ("editLoop.gain");
    connector->connectComponent (slider, *root);
    EXPECT_DOUBLE_EQ (slider.getMaximum(), 2.0);

    slider.setValue (1.5, juce::sendNotificationSync);
    EXPECT_DOUBLE_EQ (gain.read(), 1.5);

    gain->getValue()->setFloat (0.25); // on the message thread: direct
    EXPECT_DOUBLE_EQ (slider.getValue(), 0.25);

    std::thread writer ([this] { gain->getValue()->setFloat (0.75); }); // through the FIFO
    writer.join();
    EXPECT_TRUE (pumpMessagesUntil ([&] { return slider.getValue() == 0.75; }));

    // The slider shows what the parameter kept, not what the user asked for.
    slider.setRange (0.0, 10.0);
    slider.setValue (5.0, juce::sendNotificationSync);
    EXPECT_DOUBLE_EQ (gain.read(), 2.0);
    EXPECT_DOUBLE_EQ (slider.getValue(), 2.0);
}

TEST_F (ConnectorTest, SliderOnAParameterWithChoicesSnapsToTheChoices)
{
    juce::Slider slider ("editLoop.ratio");
    connector->connectComponent (slider, *root);
    EXPECT_DOUBLE_EQ (slider.getMaximum(), 2.0);
    EXPECT_DOUBLE_EQ (slider.getInterval(), 1.0);
    EXPECT_DOUBLE_EQ (slider.getValue(), 1.0);

    slider.setRange (0.0, 2.0, 0.0); // let the position fall between choices
    slider.setValue (1.6, juce::sendNotificationSync);
    EXPECT_DOUBLE_EQ (ratio.read(), 2.0);
    EXPECT_DOUBLE_EQ (slider.getValue(), 2.0);

    ratio->getValue()->setFloat (0.5);
    EXPECT_DOUBLE_EQ (slider.getValue(), 0.0);
    ratio->getValue()->setFloat (0.9); // no choice: shown at the nearest
    EXPECT_DOUBLE_EQ (slider.getValue(), 1.0);
}

//==============================================================================
TEST_F (ConnectorTest, ToggleButtonFollowsItsStateAndOtherButtonsNegateTheValue)
{
    juce::ToggleButton toggle ("editLoop.reverse");
    connector->connectComponent (toggle, *root);
    toggle.triggerClick();
    EXPECT_TRUE (pumpMessagesUntil ([&] { return reverse.read(); }));
    reverse->getValue()->setBool (false);
    EXPECT_FALSE (toggle.getToggleState());

    // A plain button never changes its own toggle state: the value flips.
    juce::TextButton button ("editLoop.reverse");
    connector->connectComponent (button, *root);
    button.triggerClick();
    EXPECT_TRUE (pumpMessagesUntil ([&] { return reverse.read(); }));
    EXPECT_TRUE (button.getToggleState());
    EXPECT_TRUE (toggle.getToggleState());
    button.triggerClick();
    EXPECT_TRUE (pumpMessagesUntil ([&] { return ! reverse.read(); }));
}

TEST_F (ConnectorTest, ChoiceButtonStepsThroughTheChoicesAndWrapsToTheFirst)
{
    juce::TextButton modeButton ("snapMode");
    connector->connectComponent (modeButton, *root);
    EXPECT_EQ (modeButton.getButtonText(), "4");

    modeButton.triggerClick();
    EXPECT_TRUE (pumpMessagesUntil ([&] { return mode.read() == 1; }));
    EXPECT_EQ (modeButton.getButtonText(), "1");
    modeButton.triggerClick();
    EXPECT_TRUE (pumpMessagesUntil ([&] { return mode.read() == 2; }));
}

//==============================================================================
TEST_F (ConnectorTest, ComboBoxShowsTheChoiceTextsAndWritesTheChosenOne)
{
    juce::ComboBox box ("targetKey");
    box.setEditableText (true);
    connector->connectComponent (box, *root);
    ASSERT_EQ (box.getNumItems(), 4);
    EXPECT_EQ (box.getItemText (2), "C#1");
    EXPECT_EQ (box.getSelectedItemIndex(), 0);

    box.setSelectedItemIndex (2, juce::sendNotificationSync);
    EXPECT_EQ (key->getValue()->getString(), "C#1");

    key->getValue()->setString ("D1");
    EXPECT_EQ (box.getSelectedItemIndex(), 3);

    box.setText ("E1", juce::sendNotificationSync); // typed by hand
    EXPECT_EQ (key->getValue()->getString(), "E1");
    EXPECT_EQ (box.getText(), "E1");
}

TEST_F (ConnectorTest, LabelShowsTheConvertersTextAndParsesTypedText)
{
    juce::Label label ("editLoop.gain");
    connector->connectComponent (label, *root);
    EXPECT_EQ (label.getText(), "100 %");

    label.setText ("50 %", juce::sendNotificationSync);
    EXPECT_DOUBLE_EQ (gain.read(), 0.5);

    label.setText ("400 %", juce::sendNotificationSync);
    EXPECT_DOUBLE_EQ (gain.read(), 2.0);
    EXPECT_EQ (label.getText(), "200 %");
}

TEST_F (ConnectorTest, TextEditorCommitsOnReturnAndKeepsTextBeingTyped)
{
    juce::TextEditor editor ("editLoop.gain");
    EditorProbe probe;
    editor.addListener (&probe);
    connector->connectComponent (editor, *root);
    EXPECT_EQ (editor.getText(), "100 %");

    editor.selectAll();
    editor.insertTextAtCaret ("25 %");
    EXPECT_TRUE (pumpMessagesUntil ([&] { return probe.changes == 1; }));
    gain->getValue()->setFloat (1.5); // elsewhere, while the user types
    EXPECT_EQ (editor.getText(), "25 %");
    EXPECT_DOUBLE_EQ (gain.read(), 1.5);

    editor.keyPressed (juce::KeyPress (juce::KeyPress::returnKey));
    EXPECT_TRUE (pumpMessagesUntil ([&] { return probe.returns == 1; }));
    EXPECT_DOUBLE_EQ (gain.read(), 0.25);
    EXPECT_EQ (editor.getText(), "25 %");
    EXPECT_EQ (editor.getCaretPosition(), 4);

    gain->getValue()->setFloat (0.5); // no longer typing: shown again
    EXPECT_EQ (editor.getText(), "50 %");
    editor.removeListener (&probe);
}

TEST_F (ConnectorTest, TextEditorCompletesTheOnlyMatchingChoice)
{
    juce::TextEditor editor ("targetKey");
    EditorProbe probe;
    editor.addListener (&probe);
    connector->connectComponent (editor, *root);
    auto type = [&] (const juce::String& text) {
        const int before = probe.changes;
        editor.insertTextAtCaret (text);
        return pumpMessagesUntil ([&] { return probe.changes > before; });
    };

    editor.selectAll();
    ASSERT_TRUE (type ("c"));
    EXPECT_EQ (editor.getText(), "c"); // "C1" and "C#1" both match

    ASSERT_TRUE (type ("#"));
    EXPECT_EQ (editor.getText(), "C#1");
    EXPECT_EQ (editor.getHighlightedRegion(), juce::Range<int> (2, 3));

    // Deleting the completed rest does not bring it back.
    editor.keyPressed (juce::KeyPress (juce::KeyPress::backspaceKey));
    ASSERT_TRUE (pumpMessagesUntil ([&] { return probe.changes == 3; }));
    EXPECT_EQ (editor.getText(), "C#");

    editor.selectAll();
    ASSERT_TRUE (type ("d"));
    EXPECT_EQ (editor.getText(), "D1");
    editor.keyPressed (juce::KeyPress (juce::KeyPress::returnKey));
    EXPECT_TRUE (pumpMessagesUntil ([&] { return probe.returns == 1; }));
    EXPECT_EQ (key->getValue()->getString(), "D1");
    editor.removeListener (&probe);
}

//==============================================================================
TEST_F (ConnectorTest, DisconnectingOrDeletingTheConnectorStopsUpdatesBothWays)
{
    for (const bool deleteConnector : { false, true })
    {
        SCOPED_TRACE (deleteConnector ? "connector deleted" : "panel disconnected");
        connector = new ControllableComponentConnector();
        gain->getValue()->setFloat (1.0);
        juce::Component panel, editLoop ("editLoop");
        juce::Slider slider ("gain");
        juce::TextEditor editor ("gain"); // its binding is owned differently
        panel.addChildComponent (editLoop);
        editLoop.addChildComponent (slider);
        editLoop.addChildComponent (editor);
        connector->connectComponent (panel, *root);
        ASSERT_EQ (connector->getNumBindings(), 2);

        if (deleteConnector)
            connector = nullptr; // the components outlive it
        else
            connector->disconnectComponent (panel);
        EXPECT_TRUE (connector == nullptr || connector->getNumBindings() == 0);
        EXPECT_FALSE (gain->hasChangeListeners());
        gain->getValue()->setFloat (0.5);
        EXPECT_DOUBLE_EQ (slider.getValue(), 1.0);
        slider.setValue (1.5, juce::sendNotificationSync);
        EXPECT_DOUBLE_EQ (gain.read(), 0.5);
    }
}

TEST_F (ConnectorTest, DeletedComponentsReleaseTheirBindingsAndMissTheirPendingChanges)
{
    const AsyncUpdates updates;
    auto panel = std::make_unique<juce::Component>();
    std::vector<std::unique_ptr<juce::Component>> parts;
    parts.push_back (std::make_unique<juce::Slider> ("editLoop.gain"));
    parts.push_back (std::make_unique<juce::TextEditor> ("editLoop.ratio"));
    parts.push_back (std::make_unique<juce::ComboBox> ("editLoop.ratio"));
    parts.push_back (std::make_unique<juce::Label> ("editLoop.gain"));
    parts.push_back (std::make_unique<juce::ToggleButton> ("editLoop.reverse"));
    auto field = std::make_unique<FileChooserTextEditor> ("editLoop.gain");
    for (auto& part : parts)
        panel->addChildComponent (*part);
    panel->addChildComponent (*field);
    connector->connectComponent (*panel, *root);
    ASSERT_EQ (connector->getNumBindings(), 6);

    // Changes made off the message thread wait in the FIFO while the
    // components go.
    std::thread writer ([this] {
        gain->getValue()->setFloat (0.5);
        ratio->getValue()->setFloat (2.0);
        reverse->getValue()->setBool (true);
    });
    writer.join();
    parts.clear();
    field.reset();
    EXPECT_EQ (connector->getNumBindings(), 0);
    EXPECT_FALSE (gain->hasChangeListeners());
    EXPECT_FALSE (ratio->hasChangeListeners());

    ParameterTypes::drainAll();
    gain->getValue()->setFloat (0.75);
    EXPECT_DOUBLE_EQ (gain.read(), 0.75);
}

//==============================================================================
namespace
{
// A host-facing processor over the test's root, with a listener that counts
// what a host would hear.
class HostProbe : public AutomatedAudioProcessor,
                  private juce::AudioProcessorListener
{
public:
    explicit HostProbe (Controllable& root) : AutomatedAudioProcessor (BusesProperties())
    {
        setAutomationRoot (&root);
        addListener (this);
    }
    ~HostProbe() override { removeListener (this); }

    int gestureBegins = 0, gestureEnds = 0, valueChanges = 0;

    const juce::String getName() const override { return "probe"; }
    void prepareToPlay (double, int) override {}
    void releaseResources() override {}
    void processBlock (juce::AudioBuffer<float>&, juce::MidiBuffer&) override {}
    double getTailLengthSeconds() const override { return 0.0; }
    bool acceptsMidi() const override { return false; }
    bool producesMidi() const override { return false; }
    juce::AudioProcessorEditor* createEditor() override { return nullptr; }
    bool hasEditor() const override { return false; }
    void getStateInformation (juce::MemoryBlock&) override {}
    void setStateInformation (const void*, int) override {}

private:
    void audioProcessorParameterChanged (juce::AudioProcessor*, int, float) override { ++valueChanges; }
    void audioProcessorChanged (juce::AudioProcessor*, const juce::AudioProcessorListener::ChangeDetails&) override {}
    void audioProcessorParameterChangeGestureBegin (juce::AudioProcessor*, int) override { ++gestureBegins; }
    void audioProcessorParameterChangeGestureEnd (juce::AudioProcessor*, int) override { ++gestureEnds; }
};
} // namespace

TEST_F (ConnectorTest, WritesOfAnAutomatedParameterGoToTheHostInsideGestures)
{
    HostProbe host (*root);
    ASSERT_EQ (host.addAutomation ("editLoop.gain", "Gain"), 0);
    ASSERT_EQ (host.addAutomation ("editLoop.ratio", "Ratio"), 1);

    juce::Slider slider ("editLoop.gain");
    juce::ComboBox box ("editLoop.ratio");
    connector->connectComponent (slider, *root);
    connector->connectComponent (box, *root);

    slider.setValue (1.5, juce::sendNotificationSync); // a wheel step: a gesture of its own
    EXPECT_NEAR (gain.read(), 1.5, 1e-6);
    EXPECT_EQ (host.valueChanges, 1);
    EXPECT_EQ (host.gestureBegins, 1);
    EXPECT_EQ (host.gestureEnds, 1);

    box.setSelectedItemIndex (2, juce::sendNotificationSync);
    EXPECT_DOUBLE_EQ (ratio.read(), 2.0);
    EXPECT_EQ (host.valueChanges, 2);
    EXPECT_EQ (host.gestureBegins, 2);
    EXPECT_EQ (host.gestureEnds, 2);

    SliderResetMouseListener reset (slider, BoundParameterValue (*gain.get(), -1));
    EXPECT_TRUE (reset.resetToDefault());
    EXPECT_NEAR (gain.read(), 1.0, 1e-6);
    EXPECT_NEAR (slider.getValue(), 1.0, 1e-6);
    EXPECT_EQ (host.gestureEnds, 3);

    // Entries of a list have no host slot: written directly.
    juce::Slider entry ("editLoop.slices[0]");
    connector->connectComponent (entry, *root);
    entry.setValue (0.4, juce::sendNotificationSync);
    EXPECT_DOUBLE_EQ (slices.getValueList()[0], 0.4);
    EXPECT_EQ (host.gestureBegins, 3);
}
