#include <gmock/gmock.h>

#include "host/RunStatistics.h"

namespace KR {
namespace {

using testing::ElementsAre;
using testing::Pair;
using Kind = TimelineEvent::Kind;

TEST(RunStatisticsTest, EachRuleIsCountedByWhatBecameOfIt)
{
    RunStatistics statistics;
    const vo::TimePoint start(std::chrono::hours(1));
    statistics.begin({"", "", {"z", "never", "b", "a"}, start});
    const auto count = [&](Kind kind, const char* rule, StepOutcome outcome = StepOutcome::done,
                           std::size_t rest = 0) {
        statistics.count({kind, {}, rule, "s", {}, {}, "r", {}, outcome, rest});
    };
    for (const char* rule : {"a", "b", "z", "z"})
        count(Kind::hit, rule);
    for (const Kind kind : {Kind::skip, Kind::drop, Kind::wait, Kind::resume})
        count(kind, "a");
    count(Kind::step, "z", StepOutcome::done, 1);
    count(Kind::step, "z", StepOutcome::done, 0);
    count(Kind::step, "z", StepOutcome::refused, 1);
    count(Kind::step, "b", StepOutcome::failed, 0);
    count(Kind::step, "b", StepOutcome::failed, 2);
    count(Kind::call, "", StepOutcome::done);
    count(Kind::call, "", StepOutcome::refused);
    count(Kind::call, "", StepOutcome::failed);
    count(Kind::error, "");
    count(Kind::skip, "never");

    const RunSummary summary = statistics.summary(start + std::chrono::hours(2), true);
    std::vector<std::vector<std::size_t>> rules;
    for (const auto& [name, rule] : summary.rules)
        rules.push_back(
            {std::size_t(name[0]), rule.hits, rule.done, rule.skipped, rule.refused, rule.failed});
    EXPECT_THAT(rules, ElementsAre(ElementsAre('z', 2, 1, 0, 1, 0), ElementsAre('a', 1, 0, 2, 0, 0),
                                   ElementsAre('b', 1, 0, 0, 0, 2)));
    EXPECT_THAT(summary.neverHit, ElementsAre("never"));
    EXPECT_THAT(summary.refused, ElementsAre(Pair("s: r", 1), Pair("z: s: r", 1)));
    EXPECT_THAT(summary.errors, ElementsAre(Pair("b: s: r", 2), Pair("s: r", 2)));
    EXPECT_EQ(summary.refusedCount, 2U);
    EXPECT_EQ(summary.errorCount, 4U);
    EXPECT_EQ(summary.end - summary.start, std::chrono::hours(2));
    EXPECT_TRUE(summary.interrupted);

    // Texts beyond a limit are counted, but not kept.
    for (std::size_t i = 0; i <= RunStatistics::kMaxTexts; ++i)
        statistics.count({Kind::error, {}, {}, std::to_string(i)});
    count(Kind::error, "");
    const RunSummary full = statistics.summary(start, false);
    EXPECT_EQ(full.errors.size(), RunStatistics::kMaxTexts);
    EXPECT_EQ(full.errors.at("s: r"), 3U);
    EXPECT_EQ(full.errorCount, 4 + RunStatistics::kMaxTexts + 2);
}

}  // namespace
}  // namespace KR
