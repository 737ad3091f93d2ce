#include "robot/PreferenceFile.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/packages/DurableFile.h"
#include "platform/vo/Log.h"

namespace KR {

using Json = nlohmann::json;

namespace {

const vo::Logger preferenceFileLog("KRPreferenceManager");

Json toJson(const KRValue& value, int depth)
{
    switch (value.getType()) {
        case KRValue::Type::boolean:
            return value.toBool();
        case KRValue::Type::integer:
            return value.toInt();
        case KRValue::Type::real:
            if (!std::isfinite(value.toFloat()))
                break;
            return value.toFloat();
        case KRValue::Type::string:
            return value.toString();
        case KRValue::Type::array: {
            if (depth == PreferenceFile::kMaxDepth)
                throw std::runtime_error("a preference is nested too deeply");
            Json array = Json::array();
            for (const KRValue& element : value.toArray())
                array.push_back(toJson(element, depth + 1));
            return array;
        }
        default:
            break;
    }
    throw std::runtime_error("a preference cannot be " + value.toDisplayString());
}

KRValue fromJson(const Json& json, int depth)
{
    if (json.is_boolean())
        return json.get<bool>();
    // Whole numbers beyond 63 bits are none of ours.
    if (json.is_number_integer() &&
        !(json.is_number_unsigned() && json.get<std::uint64_t>() > INT64_MAX))
        return json.get<std::int64_t>();
    if (json.is_number_float())
        return json.get<double>();
    if (json.is_string())
        return json.get<std::string>();
    if (!json.is_array() || depth == PreferenceFile::kMaxDepth)
        throw std::runtime_error("it holds what is no preference");
    KRValue::Array array;
    for (const Json& element : json)
        array.push_back(fromJson(element, depth + 1));
    return array;
}

Preferences parse(const std::string& text)
{
    Preferences preferences;
    const Json document = Json::parse(text);
    if (!document.is_object())
        throw std::runtime_error("it holds no domains");
    for (const auto& [domain, values] : document.items()) {
        if (!values.is_object())
            throw std::runtime_error("the domain '" + domain + "' holds no keys");
        for (const auto& [key, value] : values.items())
            preferences[domain][key] = fromJson(value, 0);
    }
    return preferences;
}

}  // namespace

Preferences PreferenceFile::read() const
{
    Preferences preferences;
    readDurableFile(path_, kMaxBytes, preferenceFileLog,
                    [&preferences](const std::string& text) { preferences = parse(text); });
    return preferences;
}

std::string PreferenceFile::text(const Preferences& preferences)
{
    Json document = Json::object();
    for (const auto& [domain, values] : preferences) {
        for (const auto& [key, value] : values)
            document[domain][key] = toJson(value, 0);
    }
    std::string text = document.dump(1) + "\n";
    if (text.size() > kMaxBytes)
        throw std::runtime_error("the preferences are larger than " + std::to_string(kMaxBytes) +
                                 " bytes");
    return text;
}

void PreferenceFile::write(const Preferences& preferences) const
{
    writeDurableFile(path_, text(preferences));
}

}  // namespace KR
