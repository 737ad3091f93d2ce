#include <boost/algorithm/string.hpp>
#include <cmath>
#include <nlohmann/json.hpp>

#include "host/HumanTimeline.h"
#include "host/JsonTimeline.h"
#include "host/PermissionText.h"
#include "host/RunStatistics.h"
#include "host/Table.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

using Kind = TimelineEvent::Kind;

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
    void hit(const char* rule, Kind kind, const char* reason, bool periodic = true,
             StepOutcome outcome = StepOutcome::refused)
    {
        TimelineEvent event{Kind::hit};
        event.rule = rule;
        event.periodic = periodic;
        timeline.event(event);
        event.kind = kind;
        event.reason = reason;
        event.outcome = outcome;
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
    std::size_t shownSkips = 2;
    for (const Kind change :
         {Kind::focus, Kind::state, Kind::asleep, Kind::autonomousFocus, Kind::chain}) {
        timeline.event({change});
        hit("R", Kind::skip, "while active: B");
        EXPECT_EQ(linesWith("skipped"), ++shownSkips) << "the robot's life has changed";
    }
    timeline.event({Kind::say});
    hit("R", Kind::skip, "while active: B");
    EXPECT_EQ(linesWith("skipped"), shownSkips);
    hit("E", Kind::skip, "while active: B", false);
    hit("E", Kind::skip, "while active: B", false);
    EXPECT_EQ(linesWith("skipped"), shownSkips + 2) << "an edge is an event of its own";
    hit("R", Kind::step, "done", true, StepOutcome::done);
    EXPECT_EQ(linesWith("● R\n"), shownSkips + 1) << "what comes to something is shown";
}

TEST_F(HumanTimelineTest, EachKindOfEventIsShownInItsWayToPeopleAndMachines)
{
    const auto rule = [](Kind kind, const char* subject, const char* reason) {
        return TimelineEvent{kind, {}, "R", subject, {}, {}, reason};
    };
    const auto step = [](Kind kind, StepOutcome outcome, std::size_t rest, const char* reason) {
        return TimelineEvent{kind, {}, "R", "M.m", "ApiCall", {}, reason, {}, outcome, rest};
    };
    const auto life = [](Kind kind, const char* subject, bool on, const char* reason = "") {
        TimelineEvent event{kind, {}, on ? "R" : "", subject, {}, "was", reason};
        event.on = on;
        return event;
    };
    const std::string ruleStep = R"("step","rule":"R","step":"ApiCall","text":"M.m",)";
    const struct {
        TimelineEvent event;
        std::string line;
        std::string json;
    } rows[] = {
        {rule(Kind::say, "a \x1b[2J", ""), "» a \\x1b[2J", R"("say","text":"a \u001b[2J")"},
        {{Kind::key,
          {},
          {},
          "bad\xff\n",
          {},
          {},
          {},
          KRValue::Array{NAN, "\xc3", 1, {}, true, 0.5}},
         "  bad\\xff\\n" + std::string(31, ' ') + "[nan, \"\ufffd\", 1, none, true, 0.5]",
         "\"key\",\"key\":\"bad\ufffd\\n\",\"value\":[null,\"\ufffd\",1,null,true,0.5]"},
        {rule(Kind::hit, "", ""), "● R", R"("hit","rule":"R")"},
        {rule(Kind::hit, "p/a", ""), "● R  (before p/a)", R"("hit","rule":"R","before":"p/a")"},
        {rule(Kind::resume, "", ""), "● R  (its turn has come)", R"("resume","rule":"R")"},
        {rule(Kind::skip, "", "y"), "    – skipped  (y)", R"("skip","rule":"R","reason":"y")"},
        {rule(Kind::wait, "", "y"), "    … waits  (y)", R"("wait","rule":"R","reason":"y")"},
        {rule(Kind::drop, "", "y"), "– R waits no longer  (y)",
         R"("drop","rule":"R","reason":"y")"},
        {step(Kind::step, StepOutcome::done, 2, "= 5"), "    ✓ M.m  (= 5)",
         ruleStep + R"("outcome":"done","reason":"= 5")"},
        {step(Kind::step, StepOutcome::refused, 1, "y"),
         "    ✗ M.m refused: y  (the last 1 step dropped)",
         ruleStep + R"("outcome":"refused","reason":"y","dropped":1)"},
        {step(Kind::step, StepOutcome::failed, 0, "y"), "    ✗ M.m failed: y",
         ruleStep + R"("outcome":"failed","reason":"y","dropped":0)"},
        {step(Kind::call, StepOutcome::refused, 0, "y"), "» ✗ M.m refused: y",
         R"("call","text":"M.m","outcome":"refused","reason":"y")"},
        {life(Kind::plugin, "p", true), "  plugin p starts",
         R"("plugin","plugin":"p","running":true)"},
        {life(Kind::plugin, "p", false), "  plugin p stops",
         R"("plugin","plugin":"p","running":false)"},
        {life(Kind::focus, "b", true, "y"), "    ◆ b has the focus  (y)",
         R"("focus","activity":"b","previous":"was","rule":"R","reason":"y")"},
        {life(Kind::focus, "", false), "◆ was ends", R"("focus","activity":"","previous":"was")"},
        {life(Kind::state, "is", false), "◆ state was → is",
         R"("state","state":"is","previous":"was")"},
        {life(Kind::asleep, "", true), "    ◆ falls asleep",
         R"("asleep","asleep":true,"rule":"R")"},
        {life(Kind::asleep, "", false), "◆ wakes up", R"("asleep","asleep":false)"},
        {life(Kind::autonomousFocus, "", true), "    ◆ autonomous focus is blocked",
         R"("autonomousFocus","blocked":true,"rule":"R")"},
        {life(Kind::autonomousFocus, "", false), "◆ autonomous focus is free again",
         R"("autonomousFocus","blocked":false)"},
        {life(Kind::chain, "c", true, "y"), "    ◆ chain c is frozen  (y)",
         R"("chain","chain":"c","frozen":true,"rule":"R","reason":"y")"},
        {life(Kind::chain, "c", false), "◆ chain c can move again",
         R"("chain","chain":"c","frozen":false)"},
    };
    std::string json;
    JsonTimeline machine([&](const std::string& line) { json = line; });
    timeline.event({Kind::say});
    for (TimelineEvent event : {TimelineEvent{Kind::error}, TimelineEvent{Kind::say}})
        timeline.event(event);
    const std::string day = "\nThursday, 1 January 1970\n\n00:00:00      » \n              » \n";
    EXPECT_EQ(shown, day);
    timeline.event({Kind::say, vo::TimePoint(std::chrono::hours(24))});
    EXPECT_THAT(shown, testing::EndsWith("\nFriday, 2 January 1970\n\n00:00:00      » \n"));
    timeline.event({Kind::say});
    for (const auto& row : rows) {
        shown.clear();
        timeline.event(row.event);
        machine.event(row.event);
        EXPECT_EQ(shown, std::string(14, ' ') + row.line + "\n");
        EXPECT_EQ(json, R"({"time":"1970-01-01T00:00:00.000000Z","event":)" + row.json + "}\n");
    }
}

TEST_F(HumanTimelineTest, SummaryTellsWhatBecameOfEachRuleAndTextsUpToALimit)
{
    RunStatistics statistics;
    const vo::TimePoint start(std::chrono::hours(1));
    statistics.begin({"", "", {"z", "x", "b\n", "v", "a"}, start});
    const auto count = [&](Kind kind, const char* rule, StepOutcome outcome = StepOutcome::done,
                           std::size_t rest = 0) {
        statistics.count({kind, {}, rule, "s", {}, {}, "r", {}, outcome, rest});
    };
    for (const char* rule : {"a", "b\n", "z", "z"})
        count(Kind::hit, rule);
    for (const Kind kind : {Kind::skip, Kind::drop, Kind::wait, Kind::resume})
        count(kind, "a");
    count(Kind::step, "z", StepOutcome::done, 1);
    count(Kind::step, "z", StepOutcome::done, 0);
    count(Kind::step, "z", StepOutcome::refused, 1);
    count(Kind::step, "b\n", StepOutcome::failed, 0);
    count(Kind::step, "b\n", StepOutcome::failed, 2);
    for (const StepOutcome outcome : {StepOutcome::done, StepOutcome::refused, StepOutcome::failed})
        count(Kind::call, "", outcome);
    count(Kind::error, "");
    count(Kind::skip, "x");
    timeline.end(statistics.summary(start + std::chrono::hours(2), true));
    EXPECT_EQ(shown, R"(
Summary: 2 h 00 min of life, 4 hits of 5 rules, interrupted

  hits  done  skipped  refused  failed  rule
     2     1        -        1       -  z
     1     -        2        -       -  a
     1     -        -        -       2  b\n

Never hit: 2
  x
  v
Refused: 2
  1 × s: r
  1 × z: s: r
Errors: 4
  2 × b\n: s: r
  2 × s: r
)");
    std::size_t errors = 2;
    for (const auto& [listed, end] : {std::pair<std::size_t, const char*>(20, "  2 × s: r\n"),
                                      {21, "  2 × b\\n: s: r\n  and 1 more\n"}}) {
        for (; errors < listed; ++errors)
            statistics.count({Kind::error, {}, {}, std::to_string(errors)});
        timeline.end(statistics.summary(start, false));
        EXPECT_THAT(shown, testing::EndsWith(end));
    }
    // Texts beyond a limit are counted, but not kept.
    for (; errors <= RunStatistics::kMaxTexts; ++errors)
        statistics.count({Kind::error, {}, {}, std::to_string(errors)});
    count(Kind::error, "");
    const RunSummary full = statistics.summary(start, false);
    EXPECT_EQ(full.errors.size(), RunStatistics::kMaxTexts);
    EXPECT_EQ(full.errors.at("s: r"), 3U);
    EXPECT_EQ(full.errorCount, 4 + RunStatistics::kMaxTexts);
}

TEST_F(HumanTimelineTest, ColoursAndLongTextsAreOfPeoplesKind)
{
    HumanTimeline coloured([&](const std::string& text) { shown += text; }, true);
    TimelineEvent event{Kind::say};
    event.subject = std::string(5000, 'x');
    coloured.event(event);
    EXPECT_THAT(shown, testing::EndsWith("xx... (904 bytes left out)\x1b[0m\n"));
    EXPECT_LT(shown.size(), 4300U);
}

TEST(TableTest, CellsGoOnBelowWhereTheTableWouldBeTooWide)
{
    const std::vector<TableRow> rows{{"name", "ok", "texts"},
                                     {"a/bc", "yes", "Grüße an alle, die da sind"},
                                     {"", "-", "first/second/third"}};
    const std::pair<std::size_t, const char*> cases[] = {
        {37,
         "name  ok   texts\na/bc  yes  Grüße an alle, die da sind\n      -    "
         "first/second/third\n"},
        {1,
         "name  ok   text\n           s\na/bc  yes  Grüß\n           e an\n           alle\n       "
         "    ,\n"
         "           die\n           da\n           sind\n"
         "      -    firs\n           t/\n           seco\n           nd/\n           thir\n       "
         "    d\n"},
    };
    for (const auto& [width, text] : cases)
        EXPECT_EQ(tableText(rows, width), text) << width;
    EXPECT_EQ(tableText({}, 10), "");
}

}  // namespace
}  // namespace KR
