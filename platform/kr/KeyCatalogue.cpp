#include "platform/kr/KeyCatalogue.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace KR {

namespace {

using Type = KeyDescription::Type;

bool isOfType(const KRValue& value, Type type)
{
    switch (type) {
        case Type::boolean:
        case Type::integer:
        case Type::number:
            return value.isBool() || value.isNumber();
        case Type::text:
            return value.isString();
        case Type::list:
            return value.isArray();
        case Type::any:
            return true;
    }
    return true;
}

double numberOf(const KRValue& value)
{
    return value.isBool() ? double(value.toBool()) : value.toFloat();
}

bool isEqual(const KRValue& a, const KRValue& b)
{
    const auto isNumeric = [](const KRValue& v) { return v.isBool() || v.isNumber(); };
    return isNumeric(a) && isNumeric(b) ? numberOf(a) == numberOf(b) : a == b;
}

/// Whether a pattern, whose "*" stands for any text, stands for a key.
bool matches(const std::string& pattern, const std::string& key)
{
    const std::size_t star = pattern.find('*');
    if (star == std::string::npos || key.size() < pattern.size() - 1)
        return false;
    const std::size_t rest = pattern.size() - star - 1;
    return key.compare(0, star, pattern, 0, star) == 0 &&
           key.compare(key.size() - rest, rest, pattern, star + 1, rest) == 0;
}

std::string numberText(double number)
{
    std::ostringstream text;
    text << number;
    return text.str();
}

}  // namespace

const char* keyTypeName(Type type)
{
    switch (type) {
        case Type::boolean:
            return "boolean";
        case Type::integer:
            return "integer";
        case Type::number:
            return "number";
        case Type::text:
            return "text";
        case Type::list:
            return "list";
        case Type::any:
            return "any";
    }
    return "";
}

KeyDescription KeyDescription::boolean(const std::string& key, const std::string& meaning)
{
    return {key, Type::boolean, meaning};
}

KeyDescription KeyDescription::integer(const std::string& key, const std::string& meaning)
{
    return {key, Type::integer, meaning};
}

KeyDescription KeyDescription::number(const std::string& key, const std::string& meaning)
{
    return {key, Type::number, meaning};
}

KeyDescription KeyDescription::text(const std::string& key, const std::string& meaning)
{
    return {key, Type::text, meaning};
}

KeyDescription KeyDescription::list(const std::string& key, const std::string& meaning)
{
    return {key, Type::list, meaning};
}

KeyDescription& KeyDescription::oneOf(std::vector<KRValue> all)
{
    values = std::move(all);
    return *this;
}

KeyDescription& KeyDescription::atLeast(double least)
{
    min = least;
    return *this;
}

KeyDescription& KeyDescription::between(double least, double most)
{
    max = most;
    return atLeast(least);
}

KeyDescription& KeyDescription::stepping(vo::Duration longest)
{
    step = longest;
    return *this;
}

KeyDescription& KeyDescription::emptyAs(const KRValue& value)
{
    empty = value;
    return *this;
}

bool KeyDescription::canHold(const KRValue& value) const
{
    if (empty && isEqual(*empty, value))
        return true;
    if (!isOfType(value, type))
        return false;
    if (!values.empty())
        return std::any_of(values.begin(), values.end(),
                           [&](const KRValue& each) { return isEqual(each, value); });
    if (type == Type::boolean)
        return numberOf(value) == 0 || numberOf(value) == 1;
    if (type != Type::integer && type != Type::number)
        return true;
    const double number = numberOf(value);
    return !(min && number < *min) && !(max && number > *max) &&
           (type == Type::number || std::trunc(number) == number);
}

std::string KeyDescription::describeValues() const
{
    std::string text = keyTypeName(type);
    for (std::size_t i = 0; i < values.size(); ++i)
        text += (i == 0                   ? ", "
                 : i + 1 == values.size() ? " or "
                                          : ", ") +
                values[i].toDisplayString();
    if (min && max)
        text += ", " + numberText(*min) + " to " + numberText(*max);
    else if (min)
        text += ", " + numberText(*min) + " or more";
    else if (max)
        text += ", " + numberText(*max) + " or less";
    return text;
}

void KeyCatalogue::addPublished(const KeyDescription& description, const std::string& publisher)
{
    const vo::Lock lock(mutex_);
    Entry& entry = entries_[description.key];
    if (entry.publishers.empty())
        entry.description = description;
    entry.publishers.insert(publisher);
    ++version_;
}

void KeyCatalogue::addRead(const std::string& key, const std::string& reader)
{
    const vo::Lock lock(mutex_);
    Entry& entry = entries_[key];
    if (entry.publishers.empty())
        entry.description.key = key;
    entry.readers.insert(reader);
}

std::vector<KeyCatalogue::Entry> KeyCatalogue::entries() const
{
    const vo::Lock lock(mutex_);
    std::vector<Entry> entries;
    for (const auto& [key, entry] : entries_)
        entries.push_back(entry);
    return entries;
}

std::optional<KeyCatalogue::Entry> KeyCatalogue::find(const std::string& key) const
{
    const vo::Lock lock(mutex_);
    const Entry* const entry = entryOf(key);
    return entry ? std::optional(*entry) : std::nullopt;
}

/// Of a key, or of the pattern that it is one of.
const KeyCatalogue::Entry* KeyCatalogue::entryOf(const std::string& key) const
{
    if (const auto place = entries_.find(key); place != entries_.end())
        return &place->second;
    const auto place = std::find_if(entries_.begin(), entries_.end(),
                                    [&key](const auto& each) { return matches(each.first, key); });
    return place == entries_.end() ? nullptr : &place->second;
}

std::string KeyCatalogue::onlyPublisher(const std::string& key) const
{
    const vo::Lock lock(mutex_);
    const Entry* const entry = entryOf(key);
    return entry && entry->publishers.size() == 1 ? *entry->publishers.begin() : std::string();
}

}  // namespace KR
