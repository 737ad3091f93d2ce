#include "host/Text.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace KR {

namespace {

std::string escaped(unsigned char byte)
{
    switch (byte) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default: {
            std::array<char, 8> text{};
            std::snprintf(text.data(), text.size(), "\\x%02x", unsigned{byte});
            return text.data();
        }
    }
}

/// Length of the well-formed UTF-8 sequence at a place; 0 when there is none.
std::size_t sequenceLength(const std::string& text, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const unsigned char first = byte(0);
    std::size_t length = 0;
    if (first < 0x80)
        return 1;
    if (first >= 0xC2 && first <= 0xDF)
        length = 2;
    else if ((first & 0xF0) == 0xE0)
        length = 3;
    else if (first >= 0xF0 && first <= 0xF4)
        length = 4;
    if (length == 0 || at + length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    }
    const bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    const bool surrogate = first == 0xED && byte(1) > 0x9F;
    const bool tooLarge = first == 0xF4 && byte(1) > 0x8F;
    return overlong || surrogate || tooLarge ? 0 : length;
}

/// C0 and C1 controls, and the marks that turn the direction of what follows.
bool isControl(const std::string& text, std::size_t at, std::size_t length)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    if (length == 1)
        return byte(0) < 0x20 || byte(0) == 0x7F;
    if (length == 2)
        return byte(0) == 0xC2 && byte(1) < 0xA0;
    return length == 3 && byte(0) == 0xE2 &&
           ((byte(1) == 0x80 && byte(2) >= 0xA8 && byte(2) <= 0xAE) ||
            (byte(1) == 0x81 && byte(2) >= 0xA6 && byte(2) <= 0xA9));
}

std::tm civil(vo::TimePoint time)
{
    const std::time_t seconds =
        std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
    std::tm result{};
    gmtime_r(&seconds, &result);
    return result;
}

std::string formatted(const char* format, const std::tm& time)
{
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), format, &time);
    return {text.data(), length};
}

std::string digits(std::int64_t number, std::size_t width)
{
    std::string text = std::to_string(number);
    return text.size() < width ? std::string(width - text.size(), '0') + text : text;
}

std::int64_t microsecondsOf(vo::TimePoint time)
{
    const auto whole = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch());
    return (time.time_since_epoch() - whole).count();
}

}  // namespace

std::string printable(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = sequenceLength(text, at);
        const std::size_t step = length == 0 ? 1 : length;
        if (length == 0 || isControl(text, at, length)) {
            for (std::size_t i = 0; i < step; ++i)
                result += escaped(static_cast<unsigned char>(text[at + i]));
        } else {
            result.append(text, at, length);
        }
        at += step;
    }
    return result;
}

std::size_t displayWidth(const std::string& text)
{
    std::size_t width = 0;
    for (const char c : text)
        width += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    return width;
}

std::string isoTime(vo::TimePoint time)
{
    return formatted("%Y-%m-%dT%H:%M:%S", civil(time)) + "." + digits(microsecondsOf(time), 6) +
           "Z";
}

std::string clockTime(vo::TimePoint time)
{
    const std::int64_t milliseconds = microsecondsOf(time) / 1000;
    const std::string text = formatted("%H:%M:%S", civil(time));
    return milliseconds == 0 ? text : text + "." + digits(milliseconds, 3);
}

std::string dayTitle(vo::TimePoint time)
{
    const std::tm day = civil(time);
    return formatted("%A, ", day) + std::to_string(day.tm_mday) + formatted(" %B %Y", day);
}

std::string lengthText(vo::Duration length)
{
    const std::int64_t milliseconds = length.count() / 1000;
    const std::int64_t seconds = milliseconds / 1000;
    const std::int64_t minutes = seconds / 60;
    const std::int64_t hours = minutes / 60;
    if (hours >= 24) {
        return std::to_string(hours / 24) + " d " + digits(hours % 24, 2) + " h " +
               digits(minutes % 60, 2) + " min";
    }
    if (hours > 0)
        return std::to_string(hours) + " h " + digits(minutes % 60, 2) + " min";
    if (minutes > 0)
        return std::to_string(minutes) + " min " + digits(seconds % 60, 2) + " s";
    return std::to_string(seconds) + "." + digits(milliseconds % 1000, 3) + " s";
}

}  // namespace KR
