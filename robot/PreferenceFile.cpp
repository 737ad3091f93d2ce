#include "robot/PreferenceFile.h"

#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/packages/FileDescriptor.h"
#include "platform/vo/Log.h"

namespace KR {

namespace fs = std::filesystem;
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

void writeAll(const FileDescriptor& file, const std::string& text, const std::string& path)
{
    std::size_t written = 0;
    while (written < text.size()) {
        const auto size = ::write(file.get(), text.data() + written, text.size() - written);
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0)
            failWithErrno(path);
        written += static_cast<std::size_t>(size);
    }
    syncToDisk(file, path);
}

}  // namespace

Preferences PreferenceFile::read() const
{
    if (!fs::exists(path_))
        return {};
    // Opening a pipe would wait for its writer.
    if (!fs::is_regular_file(path_))
        throw std::runtime_error(path_ + " is no regular file");
    std::ifstream file(path_, std::ios::binary);
    if (!file)
        failWithErrno(path_);
    try {
        if (fs::file_size(path_) > kMaxBytes)
            throw std::runtime_error("it is larger than " + std::to_string(kMaxBytes) + " bytes");
        return parse(std::string(std::istreambuf_iterator<char>(file), {}));
    } catch (const std::exception& e) {
        const std::string aside = path_ + ".damaged";
        fs::rename(path_, aside);
        preferenceFileLog.error("read",
                                path_ + " is damaged, and is now " + aside + ": " + e.what());
        return {};
    }
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
    const std::string content = text(preferences);
    const std::string temporary = path_ + ".new";
    {
        const FileDescriptor file(
            ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644),
            temporary);
        writeAll(file, content, temporary);
    }
    fs::rename(temporary, path_);
    const fs::path folder = fs::absolute(path_).parent_path();
    syncToDisk(FileDescriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), folder),
               folder);
}

}  // namespace KR
