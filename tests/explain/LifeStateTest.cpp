#include "explain/LifeState.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

using Verdict = RuleHit::Verdict;

class LifeStateTest : public testing::Test {
protected:
    void happen(const Happening& what) { life.take({++number_, at(++second_), what}); }
    static vo::TimePoint at(int second) { return vo::TimePoint(std::chrono::seconds(second)); }
    /// A step of a rule, the last one where there is no rest.
    void step(const std::string& rule, std::size_t rest = 0,
              StepOutcome outcome = StepOutcome::done, const std::string& type = "StopAll")
    {
        happen(StepEnded{{rule}, type, type, outcome, "", rest});
    }
    std::string active() const
    {
        std::string rules;
        for (const char* rule : {"a", "b", "c"}) {
            const RuleState* const state = life.stateOf(rule);
            rules += state && state->active > 0 ? rule + std::to_string(state->active) : "";
        }
        return rules;
    }
    const RuleHit& last(const std::string& rule) const { return life.stateOf(rule)->hits.back(); }

    LifeState life{nullptr};

private:
    std::uint64_t number_ = 0;
    int second_ = 0;
};

TEST_F(LifeStateTest, RulesAreActiveUntilTheirStepsOrTheirActivityEnd)
{
    happen(RuleProposed{{"a"}, ""});
    EXPECT_EQ(active(), "a1");
    happen(FocusChanged{"x", "", "", 0, "a"});
    step("a");
    EXPECT_EQ(active(), "a1") << "its activity has the focus";
    happen(RuleProposed{{"a"}, ""});
    EXPECT_EQ(active(), "a2");
    step("a", 1, StepOutcome::refused);
    EXPECT_EQ(active(), "a1") << "what is refused is the last one";
    happen(RuleProposed{{"b"}, ""});
    happen(FocusChanged{"y", "x", "", 1, "b"});
    EXPECT_EQ(active(), "b1");
    happen(FocusChanged{"", "y", "", 2, ""});
    EXPECT_EQ(active(), "b1") << "its step goes on";
    step("b", 1);
    EXPECT_EQ(active(), "b1") << "there is another one";
    step("b");
    EXPECT_EQ(active(), "");
    EXPECT_EQ(life.focus().is, false);
}

TEST_F(LifeStateTest, HitsKnowTheirListAndWhatBecameOfThem)
{
    happen(HitsFound{7, 0, {{1, "a"}, {2, "b"}, {3, "c"}}});
    happen(HitsFound{8, 0, {{1, "a"}}});
    happen(HitsTaken{7});
    happen(RuleProposed{{"b"}, ""});
    step("b");
    happen(RuleProposed{{"a"}, ""});
    happen(RuleWaits{{"a"}, "for the end of: z"});
    happen(RuleProposed{{"c"}, "x"});
    happen(RuleSkipped{{"c"}, "cannot wait for: z"});
    EXPECT_EQ(active(), "");
    EXPECT_EQ(last("a").place, 2U);
    EXPECT_THAT(last("a").ahead, ElementsAre("b"));
    EXPECT_EQ(last("c").list, 0U) << "it comes before an activity";
    EXPECT_TRUE(last("b").isDone());
    EXPECT_EQ(last("c").verdict, Verdict::skipped);
    happen(HitsTaken{8});
    happen(RuleProposed{{"a"}, ""});
    EXPECT_EQ(last("a").of, 1U);
    happen(RuleResumed{{"a"}});
    happen(RuleSkipped{{"a"}, "while active: z"});
    EXPECT_EQ(life.stateOf("a")->hits.front().verdict, Verdict::skipped) << "that which waited";
    EXPECT_EQ(last("a").verdict, Verdict::run);
    EXPECT_EQ(active(), "a1");
    happen(RuleProposed{{"b"}, ""});
    happen(RuleWaits{{"b"}, "for the end of: a"});
    happen(RuleDropped{{"b"}, "everything was stopped"});
    EXPECT_EQ(last("b").because, "everything was stopped");
    for (int i = 0; i < 1000; ++i) {
        happen(RuleProposed{{"c"}, ""});
        step("c");
        happen(ErrorReported{"s", "t"});
    }
    EXPECT_EQ(life.stateOf("c")->hits.size(), LifeState::kMostHits);
    EXPECT_EQ(life.stateOf("c")->hitCount, 1001U);
    EXPECT_EQ(life.errors().size(), LifeState::kMostTold);
}

TEST_F(LifeStateTest, FactsHaveTheTimeAndTheRuleOfTheirBeginning)
{
    happen(RuleProposed{{"a"}, ""});
    happen(FocusBlockChanged{true, "a"});
    step("a", 0, StepOutcome::done, "BlockAutonomousFocus");
    happen(FocusBlockChanged{true, "b"});
    EXPECT_EQ(life.focusBlock().since, at(2)) << "it was blocked already";
    EXPECT_EQ(life.focusBlock().step, 1U);
    happen(KeyWritten{"K", 1});
    happen(KeyWritten{"K", 1, "w", 0, false});
    EXPECT_EQ(life.keys().at("K").since, at(5));
    EXPECT_EQ(life.keys().at("K").written, at(6));
    vo::PackageInfo package("p", "/p");
    vo::BehaviorInfo behavior("b");
    behavior.addCondition("launchTrigger", "'K'");
    package.addBehavior(behavior);
    happen(PackageChanged{package, true});
    ASSERT_NE(life.rule("Action swithFocus to behavior p/b"), nullptr);
    happen(PackageChanged{package, false});
    EXPECT_EQ(life.rule("Action swithFocus to behavior p/b"), nullptr);
}

}  // namespace
}  // namespace KR
