#pragma once

#include <juce_core/juce_core.h>

#include "controllable/api/ControllableAPI.h"
#include "controllable/api/Parameter.h"

namespace qvrControllableLib
{
using namespace qvrControllableAPI;

// The element and attribute names of a saved state, made once when the
// library loads so that every save and load shares the same strings.
struct StateDocumentNames
{
    static const juce::String state;  // the root
    static const juce::String c;      // one per controllable
    static const juce::String p;      // one per parameter
    static const juce::String v;      // one per entry of a list parameter
    static const juce::String prefix; // attribute of c, absent for an empty prefix
    static const juce::String name;   // attribute of p, the name without prefix
    static const juce::String value;  // attribute of p, absent for a null value
};

// Writes the non-transient parameters of a set of controllables in some
// syntax and applies such a text back. Each controllable has a prefix; a
// parameter's full name is "prefix.name", or the bare name with an empty
// prefix.
//
// Threads: any one thread at a time per serializer (the public operations
// hold the serializer's lock only against a second caller). Parameters are
// not locked: audio goes on during a load and values change one by one.
class ControllableStateSerializer : public juce::ReferenceCountedObject
{
public:
    using Ptr = juce::ReferenceCountedObjectPtr<ControllableStateSerializer>;

    ~ControllableStateSerializer() override = default;

    void addControllable (Controllable* controllable, const juce::String& prefix);

    // These return 0 on success and 1 on failure.
    int saveToFile (const juce::File& file);
    int loadFromFile (const juce::File& file);
    juce::String saveToString();
    int loadFromString (const juce::String& text);

    // The text of a value as saved: empty for null, "true"/"false", decimal
    // digits, a float with 10 decimals and never an exponent, or the
    // string itself. Built from the typed getters, so a modified parameter is
    // saved in its outer units.
    static juce::String valueToString (ParameterValue* value);
    // The inverse, by the parameter's type; a bool is true only for exactly "true".
    static void stringToValue (ParameterValue* value, const juce::String& text);

    // The first parameter whose full name matches, in the order of addition.
    ParameterDefPtr findByFullName (const juce::String& fullName);

protected:
    ControllableStateSerializer() = default;

    // The saving steps: beginState, then per controllable beginControllable
    // and per non-transient parameter writeParameter.
    void saveState();
    virtual void beginState() = 0;
    virtual void beginControllable (Controllable* controllable, const juce::String& prefix) = 0;
    virtual void writeParameter (ParameterDef* parameter, const juce::String& fullName) = 0;
    virtual juce::String getDocumentText() = 0;
    virtual int applyText (const juce::String& text) = 0;

    ControllableArray controllables;
    juce::StringArray prefixes;
    juce::CriticalSection lock;
};

// The XML syntax: root "state", one "c" per controllable, one "p" per
// parameter with its entries as "v" children.
class XmlStateSerializer : public ControllableStateSerializer
{
public:
    using Ptr = juce::ReferenceCountedObjectPtr<XmlStateSerializer>;

    XmlStateSerializer();

    // A copy of the whole state document.
    std::unique_ptr<juce::XmlElement> saveToXml();
    // Applies a document; 0 on success.
    int loadFromXml (const juce::XmlElement& element);
    // Parses and applies; 1 and nothing touched if the document does not parse.
    int loadFromDocument (juce::XmlDocument& document);

protected:
    void beginState() override;
    void beginControllable (Controllable* controllable, const juce::String& prefix) override;
    void writeParameter (ParameterDef* parameter, const juce::String& fullName) override;
    juce::String getDocumentText() override;
    int applyText (const juce::String& text) override;

    // Applies `root`, comparing each value with the present one so that an
    // equal value is not rewritten; every changed parameter notifies once,
    // after all values are in place.
    void applyState (const juce::XmlElement& root);
    void writeListEntry (juce::XmlElement& parent, ParameterValue* value);

    std::unique_ptr<juce::XmlElement> root;
    juce::XmlElement* section = nullptr;
};

// The command-line syntax: `--full.name=value ` per parameter that differs
// from its default, one argument per entry of a list parameter; a value with
// a blank, a backslash or a dollar sign is put between double quotes.
class CommandLineStateSerializer : public ControllableStateSerializer
{
public:
    using Ptr = juce::ReferenceCountedObjectPtr<CommandLineStateSerializer>;

    CommandLineStateSerializer() = default;

    // Appends one argument to the text; `bare` writes only the value.
    void writeArgument (const juce::String& fullName, const juce::String& valueText, bool bare);
    const juce::String& getText() const noexcept { return text; }

    // Applies one `--name=value` argument (without outer quotes). Returns the
    // parameter it named, null if the name is unknown or there is no "=".
    ParameterDefPtr applyArgument (const juce::String& argument);

    // Cuts a text at blanks, honouring double quotes, which are removed.
    static juce::StringArray splitArguments (const juce::String& text);

protected:
    void beginState() override;
    void beginControllable (Controllable* controllable, const juce::String& prefix) override;
    void writeParameter (ParameterDef* parameter, const juce::String& fullName) override;
    juce::String getDocumentText() override { return text; }
    int applyText (const juce::String& text) override;

    juce::String text;
    // The list parameters already cleared during the current load.
    juce::Array<ParameterDef*> clearedLists;
};
} // namespace qvrControllableLib
