#include <boost/algorithm/string.hpp>
#include <cmath>
#include <nlohmann/json.hpp>

#include "host/HumanTimeline.h"
#include "host/JsonTimeline.h"
#include "host/Text.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

using testing::Not;
using Kind = TimelineEvent::Kind;

TEST(TextTest, PrintableKeepsTextAndEscapesWhatSteersATerminal)
{
    const std::pair<const char*, const char*> rows[] = {
        {"Grüße, 日本 🙂", "Grüße, 日本 🙂"},
        {"a\nb\tc\rd", "a\\nb\\tc\\rd"},
        {"\x1b[31mred\x7f", "\\x1b[31mred\\x7f"},
        {"\xc2\x9b[31m", "\\xc2\\x9b[31m"},
        {"\xe2\x80\xae text", "\\xe2\\x80\\xae text"},
        {"\xff\xc3", "\\xff\\xc3"},
        {"\xc0\xaf", "\\xc0\\xaf"},
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(printable(text), expected);
}

TEST(TextTest, TimesAreWrittenInUtc)
{
    const vo::TimePoint time(std::chrono::microseconds(1795240800'250001));
    EXPECT_EQ(isoTime(time), "2026-11-21T06:00:00.250001Z");
    EXPECT_EQ(clockTime(time), "06:00:00.250");
    EXPECT_EQ(clockTime(vo::TimePoint(std::chrono::hours(5))), "05:00:00");
    EXPECT_EQ(dayTitle(time), "Saturday, 21 November 2026");
    EXPECT_EQ(isoTime(vo::TimePoint(vo::Duration(-1))), "1969-12-31T23:59:59.999999Z");
    const std::pair<double, const char*> lengths[] = {
        {0.0049, "0.004 s"},        {59.999, "59.999 s"},      {60, "1 min 00 s"},
        {3599.9, "59 min 59 s"},    {3600, "1 h 00 min"},      {86399, "23 h 59 min"},
        {86400, "1 d 00 h 00 min"}, {90300, "1 d 01 h 05 min"}};
    for (const auto& [seconds, text] : lengths)
        EXPECT_EQ(lengthText(vo::Duration(std::llround(seconds * 1e6))), text);
}

class HumanTimelineTest : public testing::Test {
protected:
    /// A periodic rule's hit, and what it came to.
    void hit(const char* rule, Kind kind, const char* reason, bool periodic = true)
    {
        TimelineEvent event{Kind::hit};
        event.rule = rule;
        event.periodic = periodic;
        timeline.event(event);
        event.kind = kind;
        event.reason = reason;
        event.outcome = StepOutcome::refused;
        timeline.event(event);
    }
    std::size_t linesWith(const std::string& part) const
    {
        std::vector<boost::iterator_range<std::string::const_iterator>> found;
        return boost::find_all(found, shown, part).size();
    }

    std::string shown;
    HumanTimeline timeline{[this](const std::string& text) { shown += text; }, false};
};

TEST_F(HumanTimelineTest, RepeatedFutileHitIsShownOnceUntilSomethingChanges)
{
    for (int i = 0; i < 3; ++i) {
        hit("R", Kind::skip, "while active: A");
        hit("S", Kind::step, "blocked");
    }
    EXPECT_EQ(linesWith("skipped"), 1U);
    EXPECT_EQ(linesWith("blocked"), 1U);
    EXPECT_EQ(linesWith("● "), 2U);

    hit("R", Kind::skip, "while active: B");
    EXPECT_EQ(linesWith("skipped"), 2U) << "another reason";
    TimelineEvent state{Kind::state};
    timeline.event(state);
    hit("R", Kind::skip, "while active: B");
    EXPECT_EQ(linesWith("skipped"), 3U) << "another state of life";
    hit("E", Kind::skip, "while active: B", false);
    hit("E", Kind::skip, "while active: B", false);
    EXPECT_EQ(linesWith("skipped"), 5U) << "an edge is an event of its own";
}

TEST_F(HumanTimelineTest, HitOfAPeriodicRuleIsShownBeforeWhatItBringsAbout)
{
    TimelineEvent event{Kind::hit};
    event.rule = "R";
    event.periodic = true;
    timeline.event(event);
    TimelineEvent focus{Kind::focus};
    focus.subject = "p/\x1b[2Ja";
    timeline.event(focus);
    EXPECT_LT(shown.find("● R"), shown.find("has the focus"));
    EXPECT_THAT(shown, HasSubstr("p/\\x1b[2Ja"));
    EXPECT_THAT(shown, Not(HasSubstr("\x1b")));
}

TEST(JsonTimelineTest, LinesAreValidJsonWhateverTheTextsHold)
{
    std::string line;
    JsonTimeline timeline([&](const std::string& text) { line = text; });
    TimelineEvent event{Kind::key};
    event.subject = "bad\xff\nkey";
    event.value = KRValue(KRValue::Array{
        std::numeric_limits<double>::quiet_NaN(), "\xc3", 1, {}, KRValue::Binary{1, 2}});
    timeline.event(event);
    const auto json = nlohmann::json::parse(line);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(json["key"], "bad\xef\xbf\xbd\nkey");
    EXPECT_TRUE(json["value"][0].is_null());
    EXPECT_EQ(json["value"][2], 1);
    EXPECT_EQ(json["time"], "1970-01-01T00:00:00.000000Z");
}

}  // namespace
}  // namespace KR
