#include <boost/algorithm/string.hpp>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tests/support/Testing.h"
#include "timeline/HumanTimeline.h"
#include "timeline/JsonTimeline.h"
#include "timeline/RunStatistics.h"
#include "timeline/Text.h"

namespace KR {
namespace {

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
    void event(Happening what) { timeline.event({0, {}, std::move(what)}); }
    /// A rule's hit, and what it came to.
    void hit(const char* rule, Happening end, bool periodic = true)
    {
        event(RuleProposed{{rule, periodic}, {}});
        event(std::move(end));
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
    const RuleSkipped afterA{{"R"}, "while active: A"};
    const RuleSkipped afterB{{"R"}, "while active: B"};
    for (int i = 0; i < 3; ++i) {
        hit("R", afterA);
        hit("S", StepEnded{{"S"}, {}, {}, StepOutcome::refused, "blocked"});
    }
    EXPECT_EQ(linesWith("skipped"), 1U);
    EXPECT_EQ(linesWith("blocked"), 1U);
    EXPECT_EQ(linesWith("● "), 2U);

    hit("R", afterB);
    EXPECT_EQ(linesWith("skipped"), 2U) << "another reason";
    std::size_t shownSkips = 2;
    for (const Happening& change : std::vector<Happening>{
             FocusChanged{}, StateChanged{}, SleepChanged{}, FocusBlockChanged{}, ChainChanged{}}) {
        event(change);
        hit("R", afterB);
        EXPECT_EQ(linesWith("skipped"), ++shownSkips) << "the robot's life has changed";
    }
    event(RemarkMade{});
    hit("R", afterB);
    EXPECT_EQ(linesWith("skipped"), shownSkips);
    for (int i = 0; i < 2; ++i)
        hit("E", RuleSkipped{{"E"}, "while active: B"}, false);
    EXPECT_EQ(linesWith("skipped"), shownSkips + 2) << "an edge is an event of its own";
    hit("R", StepEnded{{"R"}, {}, {}, StepOutcome::done, "done"});
    EXPECT_EQ(linesWith("● R\n"), shownSkips + 1) << "what comes to something is shown";
}

TEST_F(HumanTimelineTest, EachKindOfEventIsShownInItsWayToPeopleAndMachines)
{
    const EventRule r{"R"};
    const std::string ruleStep = R"("step","rule":"R","step":"ApiCall","text":"M.m",)";
    const auto step = [&](StepOutcome outcome, std::size_t rest, const char* reason) {
        return StepEnded{r, "ApiCall", "M.m", outcome, reason, rest};
    };
    const struct {
        Happening what;
        std::string line;
        std::string json;
    } rows[] = {
        {RemarkMade{"a \x1b[2J"}, "» a \\x1b[2J", R"("say","text":"a \u001b[2J")"},
        {KeyWritten{"bad\xff\n", KRValue::Array{NAN, "\xc3", 1, {}, true, 0.5}},
         "  bad\\xff\\n" + std::string(31, ' ') + "[nan, \"\ufffd\", 1, none, true, 0.5]",
         "\"key\",\"key\":\"bad\ufffd\\n\",\"value\":[null,\"\ufffd\",1,null,true,0.5]"},
        {RuleProposed{r, ""}, "● R", R"("hit","rule":"R")"},
        {RuleProposed{r, "p/a"}, "● R  (before p/a)", R"("hit","rule":"R","before":"p/a")"},
        {RuleResumed{r}, "● R  (its turn has come)", R"("resume","rule":"R")"},
        {RuleSkipped{r, "y"}, "    – skipped  (y)", R"("skip","rule":"R","reason":"y")"},
        {RuleWaits{r, "y"}, "    … waits  (y)", R"("wait","rule":"R","reason":"y")"},
        {RuleDropped{r, "y"}, "– R waits no longer  (y)", R"("drop","rule":"R","reason":"y")"},
        {step(StepOutcome::done, 2, "= 5"), "    ✓ M.m  (= 5)",
         ruleStep + R"("outcome":"done","reason":"= 5")"},
        {step(StepOutcome::refused, 1, "y"), "    ✗ M.m refused: y  (the last 1 step dropped)",
         ruleStep + R"("outcome":"refused","reason":"y","dropped":1)"},
        {step(StepOutcome::failed, 0, "y"), "    ✗ M.m failed: y",
         ruleStep + R"("outcome":"failed","reason":"y","dropped":0)"},
        {CallMade{"M.m", StepOutcome::refused, "y"}, "» ✗ M.m refused: y",
         R"("call","text":"M.m","outcome":"refused","reason":"y")"},
        {PluginSwitched{"p", true}, "  plugin p starts", R"("plugin","plugin":"p","running":true)"},
        {PluginSwitched{"p", false}, "  plugin p stops",
         R"("plugin","plugin":"p","running":false)"},
        {FocusChanged{"b", "was", "y", 1, "R"}, "    ◆ b has the focus  (y)",
         R"("focus","activity":"b","previous":"was","rule":"R","reason":"y")"},
        {FocusChanged{"", "was", "", 1}, "◆ was ends", R"("focus","activity":"","previous":"was")"},
        {StateChanged{"is", "was"}, "◆ state was → is", R"("state","state":"is","previous":"was")"},
        {SleepChanged{true, "R"}, "    ◆ falls asleep", R"("asleep","asleep":true,"rule":"R")"},
        {SleepChanged{false}, "◆ wakes up", R"("asleep","asleep":false)"},
        {FocusBlockChanged{true, "R"}, "    ◆ autonomous focus is blocked",
         R"("autonomousFocus","blocked":true,"rule":"R")"},
        {FocusBlockChanged{false}, "◆ autonomous focus is free again",
         R"("autonomousFocus","blocked":false)"},
        {ChainChanged{"c", true, "y", "R"}, "    ◆ chain c is frozen  (y)",
         R"("chain","chain":"c","frozen":true,"rule":"R","reason":"y")"},
        {ChainChanged{"c", false, ""}, "◆ chain c can move again",
         R"("chain","chain":"c","frozen":false)"},
    };
    std::string json;
    JsonTimeline machine([&](const std::string& line) { json = line; });
    event(RemarkMade{});
    event(ErrorReported{});
    event(RemarkMade{});
    const std::string day = "\nThursday, 1 January 1970\n\n00:00:00      » \n              » \n";
    EXPECT_EQ(shown, day);
    timeline.event({0, vo::TimePoint(std::chrono::hours(24)), RemarkMade{}});
    EXPECT_THAT(shown, testing::EndsWith("\nFriday, 2 January 1970\n\n00:00:00      » \n"));
    event(RemarkMade{});
    for (const auto& row : rows) {
        shown.clear();
        event(row.what);
        machine.event({0, {}, row.what});
        EXPECT_EQ(shown, std::string(14, ' ') + row.line + "\n");
        EXPECT_EQ(json, R"({"time":"1970-01-01T00:00:00.000000Z","event":)" + row.json + "}\n");
    }
}

TEST_F(HumanTimelineTest, SummaryTellsWhatBecameOfEachRuleAndTextsUpToALimit)
{
    RunStatistics statistics;
    const vo::TimePoint start(std::chrono::hours(1));
    statistics.begin({"", "", {"z", "x", "b\n", "v", "a"}, start});
    const auto count = [&](Happening what) { statistics.count({0, {}, std::move(what)}); };
    const auto step = [&](const char* rule, StepOutcome outcome, std::size_t rest) {
        count(StepEnded{{rule}, {}, "s", outcome, "r", rest});
    };
    for (const char* rule : {"a", "b\n", "z", "z"})
        count(RuleProposed{{rule}, {}});
    const EventRule a{"a"};
    for (const Happening& what : std::vector<Happening>{RuleSkipped{a, "r"}, RuleDropped{a, "r"},
                                                        RuleWaits{a, "r"}, RuleResumed{a}})
        count(what);
    step("z", StepOutcome::done, 1);
    step("z", StepOutcome::done, 0);
    step("z", StepOutcome::refused, 1);
    step("b\n", StepOutcome::failed, 0);
    step("b\n", StepOutcome::failed, 2);
    for (const StepOutcome outcome : {StepOutcome::done, StepOutcome::refused, StepOutcome::failed})
        count(CallMade{"s", outcome, "r"});
    count(ErrorReported{"s", "r"});
    count(RuleSkipped{{"x"}, "r"});
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
            count(ErrorReported{std::to_string(errors), {}});
        timeline.end(statistics.summary(start, false));
        EXPECT_THAT(shown, testing::EndsWith(end));
    }
    // Texts beyond a limit are counted, but not kept.
    for (; errors <= RunStatistics::kMaxTexts; ++errors)
        count(ErrorReported{std::to_string(errors), {}});
    count(ErrorReported{"s", "r"});
    const RunSummary full = statistics.summary(start, false);
    EXPECT_EQ(full.errors.size(), RunStatistics::kMaxTexts);
    EXPECT_EQ(full.errors.at("s: r"), 3U);
    EXPECT_EQ(full.errorCount, 4 + RunStatistics::kMaxTexts);
}

TEST_F(HumanTimelineTest, ColoursAndLongTextsAreOfPeoplesKind)
{
    HumanTimeline coloured([&](const std::string& text) { shown += text; }, true);
    coloured.event({0, {}, RemarkMade{std::string(5000, 'x')}});
    EXPECT_THAT(shown, testing::EndsWith("xx... (904 bytes left out)\x1b[0m\n"));
    EXPECT_LT(shown.size(), 4300U);
}

}  // namespace
}  // namespace KR
