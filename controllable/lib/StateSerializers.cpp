#include "controllable/lib/StateSerializers.h"

#include "controllable/api/Controllable.h"
#include "controllable/api/ParameterType.h"
#include "controllable/api/ParameterValue.h"
#include "controllable/api/ParameterValueList.h"
#include "controllable/lib/ChangeStrategies.h"

namespace qvrControllableLib
{
const juce::String StateDocumentNames::state ("state");
const juce::String StateDocumentNames::c ("c");
const juce::String StateDocumentNames::p ("p");
const juce::String StateDocumentNames::v ("v");
const juce::String StateDocumentNames::prefix ("prefix");
const juce::String StateDocumentNames::name ("name");
const juce::String StateDocumentNames::value ("value");

namespace
{
// The default of a missing "value" attribute; a value that is literally this
// text is taken as absent too, and so is never restored.
const juce::String kAttributeNotFound ("~ATTRIBUTE_NOT_FOUND~");

juce::String joinName (const juce::String& prefix, const juce::String& name)
{
    return prefix.isEmpty() ? name : prefix + "." + name;
}
} // namespace

//==============================================================================
void ControllableStateSerializer::addControllable (Controllable* controllable, const juce::String& prefix)
{
    const juce::ScopedLock sl (lock);
    controllables.add (controllable);
    prefixes.add (prefix);
}

void ControllableStateSerializer::saveState()
{
    beginState();
    for (int i = 0; i < controllables.size(); ++i)
    {
        const auto controllable = controllables.getUnchecked (i);
        const auto& prefix = prefixes[i];
        beginControllable (controllable.get(), prefix);
        for (auto* parameter : controllable->getParameters())
            if (! parameter->isTransient())
                writeParameter (parameter, joinName (prefix, parameter->getName()));
    }
}

int ControllableStateSerializer::saveToFile (const juce::File& file)
{
    const juce::ScopedLock sl (lock);
    saveState();
    return file.replaceWithText (getDocumentText(), false, false, nullptr) ? 0 : 1;
}

int ControllableStateSerializer::loadFromFile (const juce::File& file)
{
    const juce::ScopedLock sl (lock);
    if (! file.existsAsFile())
        return 1;
    return applyText (file.loadFileAsString());
}

juce::String ControllableStateSerializer::saveToString()
{
    const juce::ScopedLock sl (lock);
    saveState();
    return getDocumentText();
}

int ControllableStateSerializer::loadFromString (const juce::String& text)
{
    const juce::ScopedLock sl (lock);
    return applyText (text);
}

juce::String ControllableStateSerializer::valueToString (ParameterValue* value)
{
    if (value == nullptr || value->isNull())
        return {};
    auto* parameter = value->getParameter();
    const auto type = parameter != nullptr ? parameter->getType() : ParameterTypePtr();
    if (type == nullptr || type->isString())
        return value->getString();
    if (type->isBool())
        return value->getBool() ? "true" : "false";
    if (type->isInt())
        return juce::String (value->getInt());
    // juce::String (double, 10): always 10 decimals, never an exponent.
    return juce::String (value->getFloat(), 10);
}

void ControllableStateSerializer::stringToValue (ParameterValue* value, const juce::String& text)
{
    if (value == nullptr)
        return;
    auto* parameter = value->getParameter();
    const auto type = parameter != nullptr ? parameter->getType() : ParameterTypePtr();
    if (type == nullptr || type->isString())
        value->setString (text);
    else if (type->isBool())
        value->setBool (text == "true");
    else if (type->isInt())
        value->setInt (text.trim().getIntValue());
    else
        value->setFloat (text.trim().getDoubleValue());
}

ParameterDefPtr ControllableStateSerializer::findByFullName (const juce::String& fullName)
{
    for (int i = 0; i < controllables.size(); ++i)
    {
        const auto& prefix = prefixes[i];
        juce::String localName = fullName;
        if (prefix.isNotEmpty())
        {
            const auto head = prefix + ".";
            if (! fullName.startsWith (head))
                continue;
            localName = fullName.substring (head.length());
        }
        if (auto found = controllables.getUnchecked (i)->findParameter (localName))
            return found;
    }
    return {};
}

//==============================================================================
XmlStateSerializer::XmlStateSerializer() : root (std::make_unique<juce::XmlElement> (StateDocumentNames::state)) {}

void XmlStateSerializer::beginState()
{
    root->deleteAllChildElements();
    section = nullptr;
}

void XmlStateSerializer::beginControllable (Controllable*, const juce::String& prefix)
{
    section = root->createNewChildElement (StateDocumentNames::c);
    if (prefix.isNotEmpty())
        section->setAttribute (StateDocumentNames::prefix, prefix);
}

void XmlStateSerializer::writeParameter (ParameterDef* parameter, const juce::String&)
{
    jassert (section != nullptr);
    auto* element = section->createNewChildElement (StateDocumentNames::p);
    element->setAttribute (StateDocumentNames::name, parameter->getName());
    if (auto list = parameter->getValueList())
        for (auto* entry : list->getValues())
            writeListEntry (*element, entry);
    const auto value = parameter->getValue();
    if (value != nullptr && ! value->isNull())
        element->setAttribute (StateDocumentNames::value, valueToString (value.get()));
}

void XmlStateSerializer::writeListEntry (juce::XmlElement& parent, ParameterValue* value)
{
    parent.createNewChildElement (StateDocumentNames::v)->addTextElement (valueToString (value));
}

juce::String XmlStateSerializer::getDocumentText()
{
    // The default format: the XML header with the encoding "UTF-8", no DTD,
    // lines wrapped at 60, not on one line.
    return root->toString();
}

std::unique_ptr<juce::XmlElement> XmlStateSerializer::saveToXml()
{
    const juce::ScopedLock sl (lock);
    saveState();
    return std::make_unique<juce::XmlElement> (*root);
}

int XmlStateSerializer::loadFromXml (const juce::XmlElement& element)
{
    const juce::ScopedLock sl (lock);
    applyState (element);
    return 0;
}

int XmlStateSerializer::loadFromDocument (juce::XmlDocument& document)
{
    const juce::ScopedLock sl (lock);
    const auto parsed = document.getDocumentElement();
    if (parsed == nullptr)
        return 1;
    applyState (*parsed);
    return 0;
}

int XmlStateSerializer::applyText (const juce::String& text)
{
    juce::XmlDocument document (text);
    const auto parsed = document.getDocumentElement();
    if (parsed == nullptr)
        return 1;
    applyState (*parsed);
    return 0;
}

void XmlStateSerializer::applyState (const juce::XmlElement& state)
{
    // Listeners hear of the load only once every value is in place, and each
    // changed parameter exactly once, however many of its roles changed.
    PostponedUpdates postponed;
    for (auto* controllable : controllables)
        postponed.addAll (controllable);

    for (auto* section : state.getChildIterator())
    {
        auto prefix = section->getStringAttribute (StateDocumentNames::prefix);
        if (prefix.isNotEmpty())
            prefix << ".";
        for (auto* element : section->getChildIterator())
        {
            const auto parameter = findByFullName (prefix + element->getStringAttribute (StateDocumentNames::name));
            if (parameter == nullptr)
                continue;

            // Only a list that has entries is restored from the "v" children.
            if (auto list = parameter->getValueList(); list != nullptr && list->size() > 0)
            {
                juce::StringArray saved, present;
                for (auto* entry : element->getChildIterator())
                    saved.add (entry->getAllSubText());
                for (auto* entry : list->getValues())
                    present.add (valueToString (entry));
                if (saved != present)
                {
                    list->clear();
                    for (const auto& text : saved)
                        list->addString (text);
                }
            }

            const auto text = element->getStringAttribute (StateDocumentNames::value, kAttributeNotFound);
            if (text == kAttributeNotFound)
                continue;
            // Comparing texts rather than numbers: a float within 10 decimals
            // of the saved one is not rewritten, so loops at play are left alone.
            const auto value = parameter->getValue();
            if (value != nullptr && (value->isNull() || valueToString (value.get()) != text))
                stringToValue (value.get(), text);
        }
    }
    postponed.release();
}

//==============================================================================
void CommandLineStateSerializer::beginState()
{
    text.clear();
}

void CommandLineStateSerializer::beginControllable (Controllable*, const juce::String&) {}

void CommandLineStateSerializer::writeArgument (const juce::String& fullName, const juce::String& valueText, bool bare)
{
    if (! bare)
        text << "--" << fullName << "=";
    if (valueText.containsAnyOf (" \\$"))
        text << "\"" << valueText << "\"";
    else
        text << valueText;
    text << " ";
}

void CommandLineStateSerializer::writeParameter (ParameterDef* parameter, const juce::String& fullName)
{
    if (parameter->isTransient())
        return;
    if (parameter->getType()->isList())
    {
        if (auto list = parameter->getValueList())
            for (auto* entry : list->getValues())
                writeArgument (fullName, valueToString (entry), false);
        return;
    }
    const auto value = parameter->getValue();
    if (value == nullptr || value->isNull())
        return;
    const auto valueText = valueToString (value.get());
    if (valueText != valueToString (parameter->getDefault().get()))
        writeArgument (fullName, valueText, false);
}

juce::StringArray CommandLineStateSerializer::splitArguments (const juce::String& source)
{
    juce::StringArray arguments;
    juce::String current;
    bool inQuotes = false, hasArgument = false;
    for (auto p = source.getCharPointer(); ! p.isEmpty(); ++p)
    {
        const auto ch = *p;
        if (ch == '"')
        {
            inQuotes = ! inQuotes;
            hasArgument = true;
        }
        else if (! inQuotes && juce::CharacterFunctions::isWhitespace (ch))
        {
            if (hasArgument)
                arguments.add (current);
            current.clear();
            hasArgument = false;
        }
        else
        {
            current << juce::String::charToString (ch);
            hasArgument = true;
        }
    }
    if (hasArgument)
        arguments.add (current);
    return arguments;
}

ParameterDefPtr CommandLineStateSerializer::applyArgument (const juce::String& argument)
{
    const auto body = argument.startsWith ("--") ? argument.substring (2) : argument;
    const int equals = body.indexOfChar ('=');
    if (equals < 0)
        return {};
    const auto parameter = findByFullName (body.substring (0, equals));
    if (parameter == nullptr)
        return {};
    const auto valueText = body.substring (equals + 1);
    if (parameter->getType()->isList())
    {
        const auto list = parameter->getValueList();
        if (list == nullptr)
            return {};
        if (! clearedLists.contains (parameter.get()))
        {
            list->clear();
            clearedLists.add (parameter.get());
        }
        // Each entry is parsed by the list's type through a fresh default entry.
        if (auto entry = list->addDefault())
            stringToValue (entry.get(), valueText);
        return parameter;
    }
    stringToValue (parameter->getValue().get(), valueText);
    return parameter;
}

int CommandLineStateSerializer::applyText (const juce::String& source)
{
    clearedLists.clear();
    for (const auto& argument : splitArguments (source))
        applyArgument (argument);
    clearedLists.clear();
    return 0;
}
} // namespace qvrControllableLib
