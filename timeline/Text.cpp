#include "timeline/Text.h"

#include <array>
#include <ctime>

namespace KR {

namespace {

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
