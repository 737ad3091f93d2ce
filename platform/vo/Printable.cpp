#include "platform/vo/Printable.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace vo {

namespace {

/// A character and its bytes; none, and length 0, where there is no well-formed UTF-8.
struct Character {
    std::uint32_t code = 0;
    std::size_t length = 0;
};

Character characterAt(const std::string& text, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const unsigned char first = byte(0);
    if (first < 0x80)
        return {first, 1};
    const std::size_t length = first < 0xC2   ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF5 ? 4
                                              : 0;
    if (length == 0 || at + length > text.size())
        return {};
    std::uint32_t code = first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return {};
        code = code << 6 | (byte(i) & 0x3FU);
    }
    static constexpr std::uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < kLeast[length] || isSurrogate || code > 0x10FFFF)
        return {};
    return {code, length};
}

/// Controls, and what Unicode has as format characters but the two joiners (U+200C and U+200D).
bool steers(std::uint32_t code)
{
    struct Range {
        std::uint32_t first;
        std::uint32_t last;
    };
    static constexpr Range kRanges[] = {
        {0x00, 0x1F},       {0x7F, 0x9F},       {0xAD, 0xAD},     {0x61C, 0x61C},
        {0x180E, 0x180E},   {0x200B, 0x200B},   {0x200E, 0x200F}, {0x2028, 0x202E},
        {0x2060, 0x206F},   {0xFEFF, 0xFEFF},   {0xFFF9, 0xFFFB}, {0x1BCA0, 0x1BCA3},
        {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
    };
    return std::any_of(std::begin(kRanges), std::end(kRanges), [code](const Range& range) {
        return code >= range.first && code <= range.last;
    });
}

void appendEscaped(std::string& result, unsigned char byte)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    switch (byte) {
        case '\n':
            result += "\\n";
            break;
        case '\r':
            result += "\\r";
            break;
        case '\t':
            result += "\\t";
            break;
        default:
            result.append({'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]});
    }
}

}  // namespace

std::string printable(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const Character character = characterAt(text, at);
        const std::size_t length = std::max<std::size_t>(character.length, 1);
        if (character.length != 0 && !steers(character.code)) {
            result.append(text, at, length);
        } else {
            for (std::size_t i = 0; i < length; ++i)
                appendEscaped(result, static_cast<unsigned char>(text[at + i]));
        }
        at += length;
    }
    return result;
}

std::string shortened(const std::string& text, std::size_t maxBytes)
{
    if (text.size() <= maxBytes)
        return text;
    constexpr std::size_t kMaxFollowing = 3;  // of one character in UTF-8
    std::size_t end = maxBytes;
    while (end > 0 && maxBytes - end < kMaxFollowing &&
           (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return text.substr(0, end) + "... (" + std::to_string(text.size() - end) + " bytes left out)";
}

}  // namespace vo
