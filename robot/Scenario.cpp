#include "robot/Scenario.h"

#include <ctime>
#include <set>
#include <yaml-cpp/yaml.h>

#include "platform/life/YamlFile.h"
#include "platform/life/YamlValue.h"

namespace KR {

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr const char* kLifeKeyPrefix = "Nimbra/";

[[noreturn]] void fail(const YAML::Node& node, const std::string& problem)
{
    throw ScenarioError(yamlPlace(node) + problem);
}

std::string textOf(const YAML::Node& node, const std::string& what)
{
    if (!node.IsScalar())
        fail(node, what + " must be a text");
    return node.Scalar();
}

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

/// "2026-11-21 06:00[:00]", or with a T between date and time.
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

class ScenarioReader {
public:
    Scenario read(const YAML::Node& document)
    {
        if (!document.IsMap())
            fail(document, "a scenario is a mapping with Scenario, Start and Timeline");
        checkKeys(document, {"Scenario", "Start", "End", "Timeline"});
        scenario_.title = textOf(required(document, "Scenario"), "Scenario");
        readStart(required(document, "Start"));
        const YAML::Node timeline = required(document, "Timeline");
        if (!timeline.IsSequence())
            fail(timeline, "Timeline must be a sequence");
        for (const YAML::Node& entry : timeline)
            readEntry(entry);
        if (const YAML::Node end = document["End"])
            readEnd(end);
        return std::move(scenario_);
    }

private:
    static void checkKeys(const YAML::Node& mapping, const std::set<std::string>& known)
    {
        std::set<std::string> seen;
        for (const auto& pair : mapping) {
            const std::string key = textOf(pair.first, "a key");
            if (!known.count(key))
                fail(pair.first, "unknown key '" + key + "'");
            if (!seen.insert(key).second)
                fail(pair.first, "'" + key + "' is given twice");
        }
    }

    static YAML::Node required(const YAML::Node& mapping, const char* key)
    {
        const YAML::Node node = mapping[key];
        if (!node)
            fail(mapping, std::string("'") + key + "' is missing");
        return node;
    }

    void readStart(const YAML::Node& node)
    {
        const auto start = parseDateTime(textOf(node, "Start"));
        if (!start)
            fail(node, "Start must be a date and time like 2026-11-21 06:00:00");
        scenario_.start = latest_ = *start;
    }

    void readEnd(const YAML::Node& node)
    {
        const std::string text = textOf(node, "End");
        const auto date = parseDateTime(text);
        const vo::TimePoint end = date ? *date : timeOf(node, text, "End");
        if (end < latest_)
            fail(node, "End lies before the last entry of the Timeline");
        if (end - scenario_.start > hours(24) * kMaxScenarioDays)
            fail(node, "a scenario takes " + std::to_string(kMaxScenarioDays) + " days at most");
        scenario_.end = end;
    }

    vo::TimePoint timeOf(const YAML::Node& node, const std::string& text, const std::string& what)
    {
        const auto time = parseDayTime(text);
        if (!time)
            fail(node, what + " must be a time like \"07:30\", \"07:30:15.250\" or \"2 07:30\"");
        const vo::TimePoint midnight = midnightOf(scenario_.start);
        day_ = time->day.value_or(day_);
        return midnight + time->sinceFirstMidnight(day_);
    }

    void readEntry(const YAML::Node& node)
    {
        if (!node.IsMap())
            fail(node, "an entry of the Timeline is a mapping");
        checkKeys(node, {"At", "Say", "Raise", "Pulse", "Call"});
        const YAML::Node at = required(node, "At");
        ScenarioEntry entry;
        entry.time = timeOf(at, textOf(at, "At"), "At");
        if (entry.time < scenario_.start)
            fail(at, "At lies before the Start");
        if (entry.time < latest_)
            fail(at, "At lies before the entry above it (another day is written \"2 07:30\")");
        latest_ = entry.time;
        for (const auto& pair : node)
            readDeed(pair.first.Scalar(), pair.second, entry.deeds);
        if (entry.deeds.empty())
            fail(node, "an entry needs a Say, Raise, Pulse or Call");
        scenario_.timeline.push_back(std::move(entry));
    }

    static void readDeed(const std::string& kind, const YAML::Node& node,
                         std::vector<ScenarioDeed>& deeds)
    {
        using Kind = ScenarioDeed::Kind;
        if (kind == "Say") {
            deeds.push_back({Kind::say, textOf(node, "Say"), {}, {}});
        } else if (kind == "Raise") {
            if (!node.IsMap())
                fail(node, "Raise must be a mapping of keys to values");
            for (const auto& pair : node)
                readRaise(pair.first, pair.second, deeds);
        } else if (kind == "Pulse") {
            const std::string name = keyOf(node);
            deeds.push_back({Kind::raise, name, KRValue(0), {}});
            deeds.push_back({Kind::raise, name, KRValue(1), {}});
        } else if (kind == "Call") {
            deeds.push_back({Kind::call, {}, {}, ApiWrapper(node)});
        }
    }

    static void readRaise(const YAML::Node& key, const YAML::Node& node,
                          std::vector<ScenarioDeed>& deeds)
    {
        deeds.push_back({ScenarioDeed::Kind::raise, keyOf(key), yamlToKRValue(node), {}});
    }

    static std::string keyOf(const YAML::Node& node)
    {
        const std::string key = textOf(node, "a memory key");
        if (key.empty())
            fail(node, "a memory key must not be empty");
        if (key.rfind(kLifeKeyPrefix, 0) == 0)
            fail(node, "'" + key + "' is written by the life service: Call KRNimbra instead");
        return key;
    }

    Scenario scenario_;
    vo::TimePoint latest_;
    int day_ = 1;
};

}  // namespace

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

std::vector<std::string> Scenario::keys() const
{
    std::set<std::string> keys;
    for (const ScenarioEntry& entry : timeline) {
        for (const ScenarioDeed& deed : entry.deeds) {
            if (deed.kind == ScenarioDeed::Kind::raise)
                keys.insert(deed.text);
        }
    }
    return {keys.begin(), keys.end()};
}

Scenario loadScenario(const std::string& path)
{
    const std::string prefix = path + ": ";
    try {
        return ScenarioReader().read(loadYamlFile(path, kMaxScenarioBytes));
    } catch (const YAML::Exception& e) {
        // What is wrong with the file as a whole names it already.
        const std::size_t named = e.msg.find(prefix);
        const YAML::Mark& mark = e.mark;
        const std::string place = mark.is_null()
                                      ? std::string()
                                      : "line " + std::to_string(mark.line + 1) + ", column " +
                                            std::to_string(mark.column + 1) + ": ";
        throw ScenarioError(
            prefix + place +
            (named == std::string::npos ? e.msg : e.msg.substr(named + prefix.size())));
    } catch (const std::exception& e) {
        throw ScenarioError(prefix + e.what());
    }
}

}  // namespace KR
