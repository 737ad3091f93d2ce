#include "platform/config/YamlValue.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>
#include <yaml-cpp/yaml.h>

#include "platform/config/YamlError.h"

namespace KR {
namespace {

constexpr const char* kDigits = "0123456789";

// What yaml-cpp gives as the tag of an untagged node, and of a quoted or block scalar.
constexpr const char* kPlainTag = "?";
constexpr const char* kQuotedTag = "!";

template <class T, class... Format>
T parsed(const YAML::Node& node, std::string_view text, Format... format)
{
    T value{};
    const char* const end = text.data() + text.size();
    if (std::from_chars(text.data(), end, value, format...).ec != std::errc())
        throw YamlError(node, "the number does not fit in 64 bits");
    return value;
}

bool isAnyOf(const std::string& text, std::initializer_list<const char*> words)
{
    for (const char* word : words) {
        if (text == word)
            return true;
    }
    return false;
}

/// Holds for an empty text, too.
bool consistsOf(std::string_view text, const char* characters)
{
    return text.find_first_not_of(characters) == std::string_view::npos;
}

std::string_view withoutSign(std::string_view text)
{
    const bool isSigned = !text.empty() && (text.front() == '-' || text.front() == '+');
    return text.substr(isSigned ? 1 : 0);
}

/// Digits with an optional point, then an optional exponent.
bool isFloat(std::string_view text)
{
    text = withoutSign(text);
    const auto exponent = text.find_first_of("eE");
    if (exponent != std::string_view::npos) {
        const std::string_view power = withoutSign(text.substr(exponent + 1));
        if (power.empty() || !consistsOf(power, kDigits))
            return false;
        text = text.substr(0, exponent);
    }
    const auto point = text.find('.');
    const std::string_view whole = text.substr(0, point);
    const std::string_view fraction =
        point == std::string_view::npos ? std::string_view() : text.substr(point + 1);
    return !(whole.empty() && fraction.empty()) && consistsOf(whole, kDigits) &&
           consistsOf(fraction, kDigits);
}

/// The number that a plain scalar means; the invalid value when it is none.
KRValue toNumber(const YAML::Node& node, const std::string& text)
{
    // from_chars knows no plus sign.
    const std::string_view number = std::string_view(text).substr(text[0] == '+' ? 1 : 0);
    const std::string_view digits = withoutSign(text);
    if (!digits.empty() && consistsOf(digits, kDigits))
        return parsed<std::int64_t>(node, number, 10);

    const std::string_view prefix = number.substr(0, 2);
    const std::string_view rest = number.size() > 2 ? number.substr(2) : std::string_view();
    if (prefix == "0o" && !rest.empty() && consistsOf(rest, "01234567"))
        return parsed<std::int64_t>(node, rest, 8);
    if (prefix == "0x" && !rest.empty() && consistsOf(rest, "0123456789abcdefABCDEF"))
        return parsed<std::int64_t>(node, rest, 16);

    const std::string unsignedText(digits);
    if (isAnyOf(unsignedText, {".inf", ".Inf", ".INF"})) {
        const double infinity = std::numeric_limits<double>::infinity();
        return text[0] == '-' ? -infinity : infinity;
    }
    if (isAnyOf(text, {".nan", ".NaN", ".NAN"}))
        return std::numeric_limits<double>::quiet_NaN();
    if (isFloat(text))
        return parsed<double>(node, number);
    return {};
}

KRValue toScalar(const YAML::Node& node)
{
    const std::string& text = node.Scalar();
    if (node.Tag() == kQuotedTag)
        return text;
    if (isAnyOf(text, {"", "~", "null", "Null", "NULL"}))
        return {};
    if (isAnyOf(text, {"true", "True", "TRUE"}))
        return true;
    if (isAnyOf(text, {"false", "False", "FALSE"}))
        return false;
    KRValue number = toNumber(node, text);
    return number.isValid() ? number : KRValue(text);
}

/// `depth` counts the arrays around the node, `budget` the values that may still come.
KRValue convert(const YAML::Node& node, std::size_t depth, std::size_t& budget)
{
    if (!node.IsDefined())
        throw YamlError(node, "there is no value");
    if (!isAnyOf(node.Tag(), {"", kPlainTag, kQuotedTag}))
        throw YamlError(node, "a value has no tag, this one has " + node.Tag());
    if (node.IsNull())
        return {};
    if (node.IsScalar())
        return toScalar(node);
    if (!node.IsSequence())
        throw YamlError(node, "a mapping is no value");

    if (depth == kMaxYamlDepth)
        throw YamlError(node, "arrays are nested deeper than " + std::to_string(kMaxYamlDepth));
    if (node.size() > budget)
        throw YamlError(node, "more than " + std::to_string(kMaxYamlValues) + " values");
    budget -= node.size();

    KRValue::Array elements;
    elements.reserve(node.size());
    for (const YAML::Node& element : node)
        elements.push_back(convert(element, depth + 1, budget));
    return elements;
}

}  // namespace

KRValue yamlToKRValue(const YAML::Node& node)
{
    std::size_t budget = kMaxYamlValues;
    return convert(node, 0, budget);
}

}  // namespace KR
