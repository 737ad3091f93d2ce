
#include "host/RuleScheduler.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

using Kind = RuleScheduler::Verdict::Kind;

/// One hit: a rule and those that it names in executeAfterIfSimultaneouslyTrue.
struct Hit {
    std::string rule;
    std::vector<std::string> after;
};

PendingAction pending(const Hit& hit, std::uint64_t hitList = 1, std::uint64_t turn = 0)
{
    PendingAction result;
    result.action.description = hit.rule;
    result.action.executeAfterIfSimultaneouslyTrue = hit.after;
    result.hitList = hitList;
    result.turn = turn;
    return result;
}

std::vector<std::string> namesOf(const std::vector<PendingAction>& actions)
{
    std::vector<std::string> names;
    names.reserve(actions.size());
    for (const PendingAction& each : actions)
        names.push_back(each.action.description);
    return names;
}

TEST(HitListOrder, IsThatOfTheNamedRulesAndOtherwiseUnchanged)
{
    using Names = std::vector<std::string>;
    const struct {
        const char* description;
        std::vector<Hit> hits;
        Names order;
        std::vector<Names> cycles = {};
    } rows[] = {
        {"nothing named", {{"c", {}}, {"a", {}}, {"b", {}}}, {"c", "a", "b"}},
        {"behind a later one, the rest stays",
         {{"a", {"c"}}, {"b", {}}, {"c", {}}, {"d", {}}},
         {"b", "c", "a", "d"}},
        {"a chain", {{"a", {"b"}}, {"b", {"c"}}, {"c", {}}}, {"c", "b", "a"}},
        {"several named, one not hit",
         {{"a", {"b", "absent", "c"}}, {"b", {}}, {"c", {}}},
         {"b", "c", "a"}},
        {"itself named", {{"a", {"a"}}, {"b", {}}}, {"a", "b"}},
        {"behind both hits of one rule", {{"b", {}}, {"a", {"b"}}, {"b", {}}}, {"b", "b", "a"}},
        {"two in a circle", {{"a", {"b"}}, {"b", {"a"}}}, {"a", "b"}, {{"a", "b"}}},
        {"only the circle is broken, not what is behind it",
         {{"d", {"a"}}, {"a", {"b"}}, {"b", {"c"}}, {"c", {"a"}}},
         {"a", "d", "c", "b"},
         {{"a", "b", "c"}}},
        {"two circles",
         {{"a", {"b"}}, {"b", {"a"}}, {"x", {"y"}}, {"y", {"x"}}},
         {"a", "b", "x", "y"},
         {{"a", "b"}, {"x", "y"}}},
    };
    for (const auto& row : rows) {
        std::vector<PendingAction> actions;
        for (const Hit& hit : row.hits)
            actions.push_back(pending(hit));
        RuleScheduler::Order order = RuleScheduler::inOrder(actions);
        EXPECT_EQ(namesOf(order.actions), row.order) << row.description;
        for (Names& cycle : order.cycles)
            std::sort(cycle.begin(), cycle.end());
        EXPECT_EQ(order.cycles, row.cycles) << row.description;
    }
}

class RuleSchedulerTest : public testing::Test {
protected:
    RuleScheduler scheduler;
};

TEST_F(RuleSchedulerTest, RuleIsActiveUntilItsStepsHaveEndedAndTheFocusThatTheyTookIsLost)
{
    scheduler.begin("a");
    EXPECT_TRUE(scheduler.isActive("a"));
    scheduler.end("a", 0);
    EXPECT_FALSE(scheduler.isActive("a")) << "it took no focus";

    scheduler.begin("a");
    scheduler.end("a", 2);
    scheduler.focusLost(1);
    EXPECT_TRUE(scheduler.isActive("a")) << "an older focus was lost";
    scheduler.begin("a");
    scheduler.end("a", 0);
    EXPECT_TRUE(scheduler.isActive("a")) << "one of two runs has ended";
    scheduler.focusLost(2);
    EXPECT_FALSE(scheduler.isActive("a"));

    scheduler.begin("a");
    scheduler.focusLost(3);
    EXPECT_TRUE(scheduler.isActive("a")) << "the steps go on";
    scheduler.end("a", 3);
    EXPECT_FALSE(scheduler.isActive("a"));
}

TEST_F(RuleSchedulerTest, SkipBeatsWaitAndNamesTheActiveRules)
{
    PendingAction action = pending({"a", {}});
    action.action.skipIfRulesActive = {"x", "a"};
    action.action.executeAfterActiveRules = {"y", "z"};
    EXPECT_EQ(scheduler.judge(action).kind, Kind::run);

    scheduler.begin("y");
    EXPECT_EQ(scheduler.judge(action).kind, Kind::wait);
    EXPECT_THAT(scheduler.judge(action).because, ElementsAre("y"));

    scheduler.begin("a");
    EXPECT_EQ(scheduler.judge(action).kind, Kind::skip) << "a rule may name itself";
    EXPECT_THAT(scheduler.judge(action).because, ElementsAre("a"));
}

TEST_F(RuleSchedulerTest, WaitingActionIsReadyWhenAllItsRulesHaveEnded)
{
    PendingAction action = pending({"a", {}});
    action.action.executeAfterActiveRules = {"x", "y"};
    scheduler.begin("x");
    scheduler.begin("y");
    EXPECT_TRUE(scheduler.wait(action));
    EXPECT_FALSE(scheduler.wait(action)) << "it waits already";

    scheduler.end("x", 0);
    EXPECT_FALSE(scheduler.hasReady());
    EXPECT_THAT(scheduler.takeReady(), IsEmpty());
    scheduler.end("y", 0);
    EXPECT_TRUE(scheduler.hasReady());
    EXPECT_THAT(namesOf(scheduler.takeReady()), ElementsAre("a"));
    EXPECT_FALSE(scheduler.hasReady());
}

TEST_F(RuleSchedulerTest, ActionBehindAWaitingOneOfItsHitListWaitsWithIt)
{
    PendingAction leader = pending({"leader", {}}, 1, 1);
    leader.action.executeAfterActiveRules = {"x"};
    const PendingAction follower = pending({"follower", {"leader"}}, 1, 2);
    scheduler.begin("x");
    scheduler.wait(leader);
    ASSERT_EQ(scheduler.judge(follower).kind, Kind::wait);
    EXPECT_THAT(scheduler.judge(follower).because, ElementsAre("leader"));
    EXPECT_EQ(scheduler.judge(pending({"follower", {"leader"}}, 2, 3)).kind, Kind::run)
        << "of another hit list";
    scheduler.wait(follower);
    EXPECT_THAT(scheduler.takeReady(), IsEmpty());

    scheduler.end("x", 0);
    EXPECT_THAT(namesOf(scheduler.takeReady()), ElementsAre("leader", "follower"));
}

TEST_F(RuleSchedulerTest, CircleInWhichOneWaitsDoesNotWaitForever)
{
    PendingAction first = pending({"first", {"second"}}, 1, 1);
    first.action.executeAfterActiveRules = {"x"};
    const PendingAction second = pending({"second", {"first"}}, 1, 2);
    scheduler.begin("x");
    scheduler.wait(first);
    scheduler.wait(second);
    scheduler.end("x", 0);
    EXPECT_THAT(namesOf(scheduler.takeReady()), ElementsAre("first", "second"));

    scheduler.begin("x");
    scheduler.wait(first);
    EXPECT_THAT(namesOf(scheduler.dropWaiting()), ElementsAre("first"));
    scheduler.end("x", 0);
    EXPECT_FALSE(scheduler.hasReady());
}

}  // namespace
}  // namespace KR
