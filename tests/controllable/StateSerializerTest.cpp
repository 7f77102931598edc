#include <gtest/gtest.h>

#include "controllable/api/ParameterValueList.h"
#include "controllable/handle/ParamDefHandle.h"
#include "controllable/lib/Controllables.h"
#include "controllable/lib/StateSerializers.h"
#include "tests/support/RecordingListener.h"

using namespace qvrControllableAPI;
using namespace qvrControllableHandle;
using namespace qvrControllableLib;
using tavrine::test::RecordingListener;

namespace
{
// One parameter of every kind, a float list and a string list, and a
// transient float; `fresh` leaves the defaults (lists with one entry).
struct EveryKind
{
    explicit EveryKind (bool fresh)
    {
        c->addParameter (f.getParameter());
        c->addParameter (i.getParameter());
        c->addParameter (b.getParameter());
        c->addParameter (s.getParameter());
        c->addParameter (fl.getParameter());
        c->addParameter (sl.getParameter());
        c->addParameter (meter.getParameter(), ParameterPersistence::transient);
        fl->getValueList()->addFloat (1.0);
        sl->getValueList()->addString ("x");
        if (fresh)
            return;
        f->getValue()->setFloat (0.1);
        i->getValue()->setInt (-42);
        b->getValue()->setBool (true);
        s->getValue()->setString ("with blank \\ and $HOME");
        fl->getValueList()->clear();
        for (double v : { 0.5, 1.0 / 3.0, 1.0e-7, 12345.25 })
            fl->getValueList()->addFloat (v);
        sl->getValueList()->clear();
        for (const char* v : { "a b", "c" })
            sl->getValueList()->addString (v);
        meter->getValue()->setFloat (7.0);
    }

    juce::String saveXml (const juce::String& prefix = "engine")
    {
        XmlStateSerializer::Ptr serializer (new XmlStateSerializer());
        serializer->addControllable (c.get(), prefix);
        return serializer->saveToString();
    }

    int loadXml (const juce::String& text, const juce::String& prefix = "engine")
    {
        XmlStateSerializer::Ptr serializer (new XmlStateSerializer());
        serializer->addControllable (c.get(), prefix);
        return serializer->loadFromString (text);
    }

    juce::ReferenceCountedObjectPtr<BasicControllable> c { new BasicControllable() };
    FloatParamDefHandle f { "f" };
    IntParamDefHandle i { "i" };
    BoolParamDefHandle b { "b" };
    StringParamDefHandle s { "s" };
    FloatParamDefHandle fl { "fl", ValueShape::list };
    StringParamDefHandle sl { "sl", ValueShape::list };
    FloatParamDefHandle meter { "meter" };
};
} // namespace

TEST (XmlState, SaveLoadSaveIsByteIdenticalForEveryKindOfParameter)
{
    EveryKind saved (false);
    const auto text = saved.saveXml();
    ASSERT_TRUE (text.startsWith ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>")) << text;

    EveryKind restored (true);
    ASSERT_EQ (restored.loadXml (text), 0);
    EXPECT_EQ (restored.saveXml(), text);
    EXPECT_EQ (restored.i->getValue()->getInt(), -42);
    EXPECT_TRUE (restored.b->getValue()->getBool());
    EXPECT_EQ (restored.s->getValue()->getString(), "with blank \\ and $HOME");
    EXPECT_EQ (restored.fl->getValueList()->size(), 4);
    EXPECT_DOUBLE_EQ (restored.fl->getValueList()->get (3)->getFloat(), 12345.25);
    EXPECT_EQ (restored.sl->getValueList()->get (0)->getString(), "a b");
}

TEST (XmlState, WritesTheDocumentShapeAndLeavesTransientParametersOut)
{
    EveryKind saved (false);
    const auto root = juce::parseXML (saved.saveXml());
    ASSERT_NE (root, nullptr);
    EXPECT_TRUE (root->hasTagName ("state"));
    ASSERT_EQ (root->getNumChildElements(), 1);
    const auto* section = root->getChildElement (0);
    EXPECT_TRUE (section->hasTagName ("c"));
    EXPECT_EQ (section->getStringAttribute ("prefix"), "engine");
    juce::StringArray names;
    for (auto* p : section->getChildIterator())
        names.add (p->getTagName() + ":" + p->getStringAttribute ("name"));
    EXPECT_EQ (names.joinIntoString (","), "p:f,p:i,p:b,p:s,p:fl,p:sl");
    const auto* list = section->getChildByAttribute ("name", "fl");
    EXPECT_EQ (list->getNumChildElements(), 4);
    EXPECT_TRUE (list->getChildElement (0)->hasTagName ("v"));

    // An empty prefix writes no prefix attribute, and the names stand bare.
    const auto bare = juce::parseXML (saved.saveXml ({}));
    EXPECT_FALSE (bare->getChildElement (0)->hasAttribute ("prefix"));
}

TEST (XmlState, FloatTextHasAtMostTenDecimalsAndNoExponent)
{
    EveryKind saved (false);
    const auto root = juce::parseXML (saved.saveXml());
    const auto* list = root->getChildElement (0)->getChildByAttribute ("name", "fl");
    juce::StringArray texts;
    for (auto* v : list->getChildIterator())
        texts.add (v->getAllSubText());
    EXPECT_EQ (texts.joinIntoString ("|"), "0.5000000000|0.3333333333|0.0000001000|12345.2500000000");
    EXPECT_EQ (root->getChildElement (0)->getChildByAttribute ("name", "f")->getStringAttribute ("value"),
               "0.1000000000");

    // Numbers far from 1 still print in positional notation.
    EveryKind extremes (true);
    for (double v : { 1.0e-12, -2.5e-11, 1.0e15 })
    {
        extremes.f->getValue()->setFloat (v);
        const auto text = ControllableStateSerializer::valueToString (extremes.f->getValue().get());
        EXPECT_FALSE (text.containsAnyOf ("eE")) << text;
        EXPECT_EQ (text.fromFirstOccurrenceOf (".", false, false).length(), 10) << text;
    }
}

// A document names only some parameters, in any order; what it leaves out,
// what it names but does not hold, and what is unknown all leave values alone.
TEST (XmlState, ApplyingAPartialDocumentTouchesOnlyWhatItHolds)
{
    struct Case
    {
        const char* body;
        const char* expected; // f|i|b|s after the load
    };
    const Case cases[] = {
        { "<p name=\"i\" value=\"7\"/>", "0.1|7|true|with blank \\ and $HOME" },
        { "<p name=\"unknown\" value=\"7\"/><p name=\"b\" value=\"TRUE\"/>", "0.1|-42|false|with blank \\ and $HOME" },
        { "<p name=\"f\"/><p name=\"s\" value=\"~ATTRIBUTE_NOT_FOUND~\"/>", "0.1|-42|true|with blank \\ and $HOME" },
        { "<p name=\"f\" value=\"0.25\"/><p name=\"s\" value=\"\"/>", "0.25|-42|true|" },
    };
    for (const auto& test : cases)
    {
        EveryKind older (false);
        older.loadXml (juce::String ("<state><c prefix=\"engine\">") + test.body + "</c></state>");
        const auto got = juce::String (older.f->getValue()->getFloat()) + "|"
                         + juce::String (older.i->getValue()->getInt()) + "|"
                         + (older.b->getValue()->getBool() ? "true" : "false") + "|" + older.s->getValue()->getString();
        EXPECT_EQ (got, test.expected) << test.body;
    }
}

TEST (XmlState, APrefixMismatchOrAnUnparsableDocumentChangesNothing)
{
    EveryKind saved (false);
    const auto withPrefix = saved.saveXml();
    for (const auto& [text, prefix, result] :
         { std::make_tuple (withPrefix, juce::String(), 0),
           std::make_tuple (saved.saveXml ({}), juce::String ("engine"), 0),
           std::make_tuple (withPrefix.dropLastCharacters (10), juce::String ("engine"), 1) })
    {
        EveryKind fresh (true);
        const auto before = fresh.saveXml();
        EXPECT_EQ (fresh.loadXml (text, prefix), result);
        EXPECT_EQ (fresh.saveXml(), before);
    }
}

TEST (XmlState, EachChangedParameterNotifiesOnceAfterAllValuesAreIn)
{
    EveryKind saved (false);
    const auto text = saved.saveXml();
    EveryKind restored (true);
    // Nothing of the new state may be missing when any listener hears of it.
    RecordingListener listener;
    juce::StringArray seenAtFirstCall;
    listener.onChange = [&] (ParameterDef*) {
        if (listener.calls == 1)
            seenAtFirstCall.add (juce::String (restored.i->getValue()->getInt()) + "/"
                                 + restored.s->getValue()->getString());
    };
    for (auto* p : restored.c->getParameters())
        p->addChangeListener (&listener, true);

    restored.loadXml (text);
    EXPECT_EQ (listener.calls.load(), 6); // f, i, b, s and both lists; the meter isn't in the state
    EXPECT_EQ (seenAtFirstCall.joinIntoString (","), "-42/with blank \\ and $HOME");

    // Loading the same state again changes nothing and tells nobody.
    restored.loadXml (text);
    EXPECT_EQ (listener.calls.load(), 6);
    for (auto* p : restored.c->getParameters())
        p->removeChangeListener (&listener, true);
}

TEST (CommandLineState, WritesChangedValuesQuotedWhereNeededAndReadsThemBack)
{
    EveryKind saved (false);
    CommandLineStateSerializer::Ptr writer (new CommandLineStateSerializer());
    writer->addControllable (saved.c.get(), "engine");
    const auto text = writer->saveToString();
    EXPECT_EQ (text, "--engine.f=0.1000000000 --engine.i=-42 --engine.b=true --engine.s=\"with blank \\ and $HOME\" "
                     "--engine.fl=0.5000000000 --engine.fl=0.3333333333 --engine.fl=0.0000001000 "
                     "--engine.fl=12345.2500000000 "
                     "--engine.sl=\"a b\" --engine.sl=c ");

    EveryKind restored (true);
    CommandLineStateSerializer::Ptr reader (new CommandLineStateSerializer());
    reader->addControllable (restored.c.get(), "engine");
    ASSERT_EQ (reader->loadFromString (text), 0);
    EXPECT_EQ (restored.saveXml(), saved.saveXml()) << "all values restored";
    EXPECT_EQ (restored.s->getValue()->getString(), "with blank \\ and $HOME");
    EXPECT_EQ (restored.sl->getValueList()->size(), 2);

    // Only what differs from the default is written; `bare` writes values alone.
    EveryKind fresh (true);
    CommandLineStateSerializer::Ptr quiet (new CommandLineStateSerializer());
    quiet->addControllable (fresh.c.get(), {});
    EXPECT_EQ (quiet->saveToString(), "--fl=1.0000000000 --sl=x ");
    quiet->writeArgument ("s", "a$b", true);
    EXPECT_EQ (quiet->getText(), "--fl=1.0000000000 --sl=x \"a$b\" ");
}

TEST (CommandLineState, SplitsAtBlanksOutsideQuotes)
{
    const auto args = CommandLineStateSerializer::splitArguments ("  --a=1   --b=\"x y\" --c=\"\" --d");
    EXPECT_EQ (args.joinIntoString ("|"), "--a=1|--b=x y|--c=|--d");
}
