#include "platform/packages/PackageNames.h"

#include <algorithm>
#include <boost/locale/utf.hpp>

namespace KR {

namespace {

using Utf8 = boost::locale::utf::utf_traits<char>;

/// Longest name of a file.
constexpr std::size_t kMaxNameBytes = 255;
/// Of a quoted text: enough to recognise it by.
constexpr std::size_t kMaxQuotedBytes = 200;

bool isReadable(boost::locale::utf::code_point character)
{
    const bool isControl = character < 0x20 || (character >= 0x7f && character < 0xa0);
    return boost::locale::utf::is_valid_codepoint(character) && !isControl;
}

bool isUuidCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-';
}

std::string componentProblem(const std::string& component)
{
    if (component.empty())
        return "holds an empty name";
    if (component == "." || component == "..")
        return "holds the name '" + component + "'";
    if (component.size() > kMaxNameBytes)
        return "holds a name of more than " + std::to_string(kMaxNameBytes) + " bytes";
    return {};
}

}  // namespace

bool isReadableText(const std::string& text)
{
    for (auto at = text.begin(); at != text.end();) {
        const bool isBlank = *at == '\n' || *at == '\t';
        if (!isReadable(Utf8::decode(at, text.end())) && !isBlank)
            return false;
    }
    return true;
}

std::string inQuotes(const std::string& text)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string result = "'";
    for (auto at = text.begin(); at != text.end();) {
        if (result.size() > kMaxQuotedBytes)
            return result + "...'";
        auto end = at;
        if (isReadable(Utf8::decode(end, text.end()))) {
            result.append(at, end);
            at = end;
        } else {
            const auto byte = static_cast<unsigned char>(*at++);
            result.append({'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xf]});
        }
    }
    return result + "'";
}

std::string uuidProblem(const std::string& uuid)
{
    if (uuid.empty())
        return "is empty";
    if (uuid == "." || uuid == "..")
        return "is the name of a folder above";
    if (uuid.size() > kMaxUuidBytes)
        return "is longer than " + std::to_string(kMaxUuidBytes) + " bytes";
    if (!std::all_of(uuid.begin(), uuid.end(), isUuidCharacter))
        return "holds other characters than letters, digits, '.', '_' and '-'";
    return {};
}

std::string packagePathProblem(const std::string& path)
{
    if (path.empty())
        return "is empty";
    if (path.front() == '/')
        return "is absolute";
    if (path.size() > kMaxPackagePathBytes)
        return "is longer than " + std::to_string(kMaxPackagePathBytes) + " bytes";
    if (!isReadableText(path) || path.find_first_of("\n\t") != std::string::npos)
        return "is not readable text in UTF-8";

    std::size_t depth = 0;
    for (std::size_t begin = 0; begin <= path.size(); ++depth) {
        const auto end = std::min(path.find('/', begin), path.size());
        auto problem = componentProblem(path.substr(begin, end - begin));
        if (!problem.empty())
            return problem;
        begin = end + 1;
    }
    if (depth > kMaxPackagePathDepth)
        return "is nested deeper than " + std::to_string(kMaxPackagePathDepth) + " folders";
    return {};
}

}  // namespace KR
