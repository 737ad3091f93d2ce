#include "robot/ScenarioTime.h"

#include <ctime>

namespace KR {

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

/// Reads a short text from left to right. After a mismatch everything else is one too.
class Cursor {
public:
    explicit Cursor(const std::string& text) : text_(text) {}

    /// A number of so many digits, 9 at most; 0 on a mismatch.
    int number(std::size_t minDigits, std::size_t maxDigits)
    {
        int value = 0;
        const std::size_t begin = at_;
        while (at_ < text_.size() && at_ - begin < maxDigits && text_[at_] >= '0' &&
               text_[at_] <= '9')
            value = value * 10 + (text_[at_++] - '0');
        ok_ = ok_ && at_ - begin >= minDigits;
        return ok_ ? value : 0;
    }
    bool next(char c)
    {
        const bool isNext = at_ < text_.size() && text_[at_] == c;
        at_ += isNext ? 1 : 0;
        return isNext;
    }
    void expect(char c)
    {
        if (!next(c))
            ok_ = false;
    }
    std::size_t position() const { return at_; }
    /// Whether the whole text was read and was as expected.
    bool isComplete() const { return ok_ && at_ == text_.size(); }

private:
    const std::string& text_;
    std::size_t at_ = 0;
    bool ok_ = true;
};

}  // namespace

std::optional<vo::TimePoint> parseDateTime(const std::string& text)
{
    Cursor cursor(text);
    std::tm date{};
    date.tm_year = cursor.number(4, 4) - 1900;
    cursor.expect('-');
    date.tm_mon = cursor.number(2, 2) - 1;
    cursor.expect('-');
    date.tm_mday = cursor.number(2, 2);
    if (!cursor.next('T'))
        cursor.expect(' ');
    date.tm_hour = cursor.number(2, 2);
    cursor.expect(':');
    date.tm_min = cursor.number(2, 2);
    if (cursor.next(':'))
        date.tm_sec = cursor.number(2, 2);
    if (!cursor.isComplete())
        return std::nullopt;
    std::tm normal = date;
    const std::time_t time = timegm(&normal);
    const bool exists = normal.tm_mday == date.tm_mday && normal.tm_mon == date.tm_mon &&
                        normal.tm_hour == date.tm_hour && normal.tm_min == date.tm_min &&
                        normal.tm_sec == date.tm_sec;
    if (!exists || time < 0)
        return std::nullopt;
    return vo::TimePoint(seconds(time));
}

vo::Duration DayTime::sinceFirstMidnight(int defaultDay) const
{
    return hours(24) * (day.value_or(defaultDay) - 1) + time;
}

std::optional<DayTime> parseDayTime(const std::string& text)
{
    Cursor cursor(text);
    DayTime result;
    int hour = cursor.number(1, 3);
    if (cursor.next(' ')) {
        result.day = hour;
        while (cursor.next(' ')) {
        }
        hour = cursor.number(1, 2);
    }
    cursor.expect(':');
    const int minute = cursor.number(2, 2);
    int second = 0;
    int millisecond = 0;
    if (cursor.next(':')) {
        second = cursor.number(2, 2);
        if (cursor.next('.')) {
            const std::size_t begin = cursor.position();
            millisecond = cursor.number(1, 3);
            for (std::size_t digits = cursor.position() - begin; digits < 3; ++digits)
                millisecond *= 10;
        }
    }
    result.time = hours(hour) + minutes(minute) + seconds(second) + milliseconds(millisecond);
    const int day = result.day.value_or(1);
    if (!cursor.isComplete() || minute > 59 || second > 59 || result.time > hours(24) || day < 1 ||
        day > kMaxScenarioDays)
        return std::nullopt;
    return result;
}

vo::TimePoint midnightOf(vo::TimePoint time)
{
    using Days = std::chrono::duration<std::int64_t, std::ratio<86400>>;
    return vo::TimePoint(std::chrono::floor<Days>(time.time_since_epoch()));
}

}  // namespace KR
