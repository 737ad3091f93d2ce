#include "record/EventCodec.h"

#include <boost/algorithm/hex.hpp>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <simdjson.h>
#include <stdexcept>
#include <string_view>
#include <unordered_map>

#include "record/EventFields.h"

namespace KR {

namespace {

using Json = nlohmann::ordered_json;
using Element = simdjson::dom::element;
using Object = simdjson::dom::object;

// Numbers that JSON has no word for, texts that are no UTF-8, and bytes are objects with one of
// these names.
constexpr const char* kFloatName = "float";
constexpr const char* kBitsName = "bits";
constexpr const char* kTextName = "text";
constexpr const char* kBinaryName = "binary";

template <class T, template <class...> class Template>
constexpr bool isA = false;
template <template <class...> class Template, class... Of>
constexpr bool isA<Template<Of...>, Template> = true;

template <class T>
constexpr bool isList = isA<T, std::vector> || isA<T, std::list>;

/// Fields of these types say by themselves whether there is something.
template <class T>
constexpr bool tellsNothing = std::is_same_v<T, KRValue> || isA<T, std::optional>;

template <class Bytes>
std::string hexOf(const Bytes& bytes)
{
    return boost::algorithm::hex_lower(std::string(bytes.begin(), bytes.end()));
}

std::uint64_t bitsOf(double number)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

/// Makes JSON of the types that records are made of.
struct EventEncoder {
    static Json text(std::string_view text)
    {
        if (simdjson::validate_utf8(text))
            return text;
        return {{kTextName, hexOf(text)}};
    }

    static Json real(double number)
    {
        if (std::isfinite(number))
            return number;
        if (std::isinf(number))
            return {{kFloatName, number < 0 ? "-inf" : "inf"}};
        return {{kFloatName, "nan"}, {kBitsName, bitsOf(number)}};
    }

    static Json value(const KRValue& value, std::size_t depth = 0)
    {
        switch (value.getType()) {
            case KRValue::Type::boolean:
                return value.toBool();
            case KRValue::Type::integer:
                return value.toInt();
            case KRValue::Type::real:
                return real(value.toFloat());
            case KRValue::Type::string:
                return text(value.toText());
            case KRValue::Type::binary:
                return {{kBinaryName, hexOf(value.toBinary())}};
            case KRValue::Type::array: {
                if (depth == kMaxRecordedDepth)
                    throw std::length_error("a value is nested too deep");
                Json array = Json::array();
                for (const KRValue& element : value.toArray())
                    array.push_back(EventEncoder::value(element, depth + 1));
                return array;
            }
            case KRValue::Type::invalid:
                break;
        }
        return nullptr;
    }

    template <class T>
    static Json any(const T& what)
    {
        if constexpr (std::is_same_v<T, KRValue>)
            return value(what);
        else if constexpr (std::is_same_v<T, std::string>)
            return text(what);
        else if constexpr (std::is_same_v<T, vo::Duration>)
            return what.count();
        else if constexpr (std::is_enum_v<T>)
            return Words<T>::names.at(static_cast<std::size_t>(what));
        else if constexpr (std::is_integral_v<T>)
            return what;
        else if constexpr (isA<T, std::optional>)
            return what ? any(*what) : Json();
        else if constexpr (isA<T, std::pair>)
            return Json::array({any(what.first), any(what.second)});
        else if constexpr (isList<T> || isA<T, std::map>)
            return list(what);
        else
            return structure(what);
    }

    template <class List>
    static Json list(const List& list)
    {
        Json array = Json::array();
        for (const auto& element : list)
            array.push_back(any(element));
        return array;
    }

    /// `json` is what the fields are added to.
    template <class T>
    static Json structure(const T& what, Json json = Json::object())
    {
        std::apply([&](const auto&... each) { (add(json, each.name, what.*each.member), ...); },
                   kRecordFields<T>.fields);
        return json;
    }

    template <class T>
    static void add(Json& json, const char* name, const T& what)
    {
        Json made = any(what);
        if (tellsNothing<T> ? !made.is_null() : !isNothing(made))
            json[name] = std::move(made);
    }

    static bool isNothing(const Json& json)
    {
        if (json.is_boolean())
            return !json.get<bool>();
        if (json.is_string())
            return json.get_ref<const std::string&>().empty();
        return json.is_number() ? json == 0 : json.empty();
    }
};

[[noreturn]] void failAsExpected(const char* expected)
{
    throw std::runtime_error(std::string("expected ") + expected);
}

template <class T>
T get(const Element& json, const char* expected)
{
    T result;
    if (json.get(result) != simdjson::SUCCESS)
        failAsExpected(expected);
    return result;
}

std::string unhex(const Element& json)
{
    const auto digits = get<std::string_view>(json, "a text");
    std::string bytes;
    try {
        boost::algorithm::unhex(digits.begin(), digits.end(), std::back_inserter(bytes));
    } catch (const boost::algorithm::hex_decode_error&) {
        failAsExpected("pairs of hexadecimal digits");
    }
    return bytes;
}

/// Makes the types that records are made of from JSON.
struct EventDecoder {
    static std::string text(const Element& json)
    {
        Element bytes;
        if (json.is_object() && json[kTextName].get(bytes) == simdjson::SUCCESS)
            return unhex(bytes);
        return std::string(get<std::string_view>(json, "a text"));
    }

    static double realByName(const Object& json, const Element& name)
    {
        const auto word = get<std::string_view>(name, "a text");
        if (word == "nan") {
            std::uint64_t bits = 0;
            if (json[kBitsName].get(bits) != simdjson::SUCCESS)
                failAsExpected("bits");
            double number = 0;
            std::memcpy(&number, &bits, sizeof number);
            return number;
        }
        if (word != "inf" && word != "-inf")
            failAsExpected("nan, inf or -inf");
        constexpr double kInfinite = std::numeric_limits<double>::infinity();
        return word == "inf" ? kInfinite : -kInfinite;
    }

    static KRValue valueByName(const Object& json)
    {
        Element content;
        if (json[kFloatName].get(content) == simdjson::SUCCESS)
            return realByName(json, content);
        if (json[kTextName].get(content) == simdjson::SUCCESS)
            return unhex(content);
        if (json[kBinaryName].get(content) != simdjson::SUCCESS)
            failAsExpected("a value");
        const std::string bytes = unhex(content);
        return KRValue::Binary(bytes.begin(), bytes.end());
    }

    static KRValue value(const Element& json)
    {
        using Type = simdjson::dom::element_type;
        switch (json.type()) {
            case Type::NULL_VALUE:
                return {};
            case Type::BOOL:
                return get<bool>(json, "a truth");
            case Type::DOUBLE:
                return get<double>(json, "a number");
            case Type::STRING:
                return std::string(get<std::string_view>(json, "a text"));
            case Type::ARRAY: {
                KRValue::Array array;
                for (const Element& element : get<simdjson::dom::array>(json, "a list"))
                    array.push_back(value(element));
                return array;
            }
            case Type::OBJECT:
                return valueByName(get<Object>(json, "an object"));
            default:
                return get<std::int64_t>(json, "a number of 64 bits");
        }
    }

    template <class T>
    static void any(const Element& json, T& what)
    {
        if constexpr (std::is_same_v<T, KRValue>)
            what = value(json);
        else if constexpr (std::is_same_v<T, std::string>)
            what = text(json);
        else if constexpr (std::is_same_v<T, bool>)
            what = get<bool>(json, "true or false");
        else if constexpr (std::is_same_v<T, vo::Duration>)
            what = vo::Duration(get<std::int64_t>(json, "microseconds"));
        else if constexpr (std::is_enum_v<T>)
            what = word<T>(get<std::string_view>(json, "a word"));
        else if constexpr (std::is_unsigned_v<T>)
            what = number<T>(json);
        else if constexpr (isA<T, std::optional>)
            any(json, what.emplace());
        else if constexpr (isList<T>)
            list(json, what);
        else if constexpr (isA<T, std::map>)
            map(json, what);
        else
            structure(get<Object>(json, "an object"), what);
    }

    template <class T>
    static T number(const Element& json)
    {
        const auto wide = get<std::uint64_t>(json, "a number from 0 on");
        if (wide > std::numeric_limits<T>::max())
            failAsExpected("a smaller number");
        return static_cast<T>(wide);
    }

    template <class Enum>
    static Enum word(std::string_view text)
    {
        const auto& names = Words<Enum>::names;
        const auto found = std::find(names.begin(), names.end(), text);
        if (found == names.end())
            throw std::runtime_error("'" + std::string(text) + "' is not known");
        return static_cast<Enum>(found - names.begin());
    }

    template <class List>
    static void list(const Element& json, List& list)
    {
        list.clear();
        for (const Element& element : get<simdjson::dom::array>(json, "a list"))
            any(element, list.emplace_back());
    }

    template <class Map>
    static void map(const Element& json, Map& map)
    {
        map.clear();
        for (const Element& pair : get<simdjson::dom::array>(json, "a list")) {
            const auto both = get<simdjson::dom::array>(pair, "a pair");
            if (both.size() != 2)
                failAsExpected("a pair");
            any(both.at(1).value_unsafe(), map[text(both.at(0).value_unsafe())]);
        }
    }

    template <class T>
    static void structure(const Object& json, T& what)
    {
        std::apply([&](const auto&... each) { (field(json, each.name, what.*each.member), ...); },
                   kRecordFields<T>.fields);
    }

    template <class T>
    static void field(const Object& json, const char* name, T& what)
    {
        Element found;
        if (json[name].get(found) != simdjson::SUCCESS) {
            clear(what);
            return;
        }
        try {
            any(found, what);
        } catch (const std::runtime_error& e) {
            throw std::runtime_error(std::string("'") + name + "': " + e.what());
        }
    }

    /// What is not there is false, 0, empty or nothing, whatever a new record begins with.
    template <class T>
    static void clear(T& what)
    {
        if constexpr (std::is_class_v<T> && std::is_aggregate_v<T>)
            std::apply([&](const auto&... each) { (clear(what.*each.member), ...); },
                       kRecordFields<T>.fields);
        else
            what = T{};
    }
};

using Decode = Happening (*)(const Object&);

template <class... Records>
std::unordered_map<std::string_view, Decode> decodersOf(const std::variant<Records...>* /*type*/)
{
    return {{kRecordFields<Records>.kind, [](const Object& json) -> Happening {
                 Records record;
                 EventDecoder::structure(json, record);
                 return record;
             }}...};
}

}  // namespace

std::string encodeEvent(const Event& event)
{
    return std::visit(
        [&](const auto& record) {
            const Json head{{"event", kRecordFields<std::decay_t<decltype(record)>>.kind},
                            {"number", event.number},
                            {"time", event.time.time_since_epoch().count()},
                            {"uptime", event.uptime.count()}};
            return EventEncoder::structure(record, head).dump();
        },
        event.what);
}

Event decodeEvent(const simdjson::dom::object& json)
{
    static const auto decoders = decodersOf(static_cast<const Happening*>(nullptr));
    std::string_view kind;
    if (json["event"].get(kind) != simdjson::SUCCESS)
        throw std::runtime_error("'event' is missing");
    const auto decoder = decoders.find(kind);
    if (decoder == decoders.end())
        throw std::runtime_error("the event '" + std::string(kind) + "' is not known");
    Event event;
    vo::Duration time{};
    EventDecoder::field(json, "number", event.number);
    EventDecoder::field(json, "time", time);
    EventDecoder::field(json, "uptime", event.uptime);
    event.time = vo::TimePoint(time);
    event.what = decoder->second(json);
    return event;
}

Event decodeEvent(const std::string& json)
{
    simdjson::dom::parser parser;
    Object object;
    if (parser.parse(json).get(object) != simdjson::SUCCESS)
        throw std::runtime_error("no JSON object");
    return decodeEvent(object);
}

}  // namespace KR
