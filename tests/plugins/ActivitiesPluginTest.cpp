#include "plugins/builtin/ActivitiesPlugin.h"
#include "tests/plugins/SenseTest.h"

namespace KR {

using Names = std::vector<std::string>;

struct ActivitiesPluginTest : SenseTest<ActivitiesPlugin> {
    FakeService life{
        platform, "KRNimbra",
        "getFocusHistory/1 getStateHistory/1 getAutonomousActivityStatistics getLifeTime"};

    /// An activity with a negative count has none in its statistics.
    void live(const Names& focus, const Names& states, const std::map<std::string, int>& counts)
    {
        std::map<std::string, std::map<std::string, int>> statistics;
        for (const auto& [activity, count] : counts)
            statistics[activity] = {{count < 0 ? "other" : "focusCount", count}, {"z", 9}};
        life.set("getFocusHistory:2", focus);
        life.set("getStateHistory:2", states);
        life.set("getAutonomousActivityStatistics", statistics);
    }
    void SetUp() override
    {
        live({"a"}, {"solitary"}, {{"a", 1}, {"b", 5}});
        life.set("getLifeTime", 7);
        make();
        follow(
            "FocusedActivity PreviousActivity State PreviousState FocusCount/a FocusCount/b "
            "FocusCount/c LifeTime");
    }
    std::string change()
    {
        return inTurn({write("Nimbra/FocusedActivity"), write("Nimbra/State")});
    }
};

TEST_F(ActivitiesPluginTest, publishes_nothing_until_a_start_after_the_platform_is_ready)
{
    make();
    EXPECT_EQ(raised(), "LifeTime=none");  // it is not the process's first
    plugin->startPlugin();
    EXPECT_EQ(inTurn({start(), change()}), "");
    stop();
    EXPECT_EQ(
        start(),
        "FocusCount/a=1 FocusCount/b=5 FocusedActivity='a' PreviousActivity='' PreviousState='' "
        "State='solitary' LifeTime=7");
    EXPECT_EQ(after(seconds(1) - kMoment), "");
    life.fail("getLifeTime");
    EXPECT_EQ(after(kMoment), "");
    life.set("getLifeTime", "old");  // kept as delivered
    EXPECT_EQ(after(seconds(1)), "LifeTime='old'");
    plugin->exit();
    EXPECT_EQ(inTurn({change(), after(seconds(5))}), "");
}

TEST_F(ActivitiesPluginTest, change_raises_only_what_differs_and_stop_blanks_everything)
{
    start();
    EXPECT_EQ(change(), "");
    live({"a", "b"}, {"solitary"}, {{"b", 6}});  // the count of a is dropped, not blanked
    EXPECT_EQ(change(), "FocusCount/b=6 FocusedActivity='b' PreviousActivity='a'");
    live({"x", "b", "y"}, {"solitary", "interactive"}, {{"a", 1}, {"b", 6}, {"c", -1}});
    EXPECT_EQ(change(),
              "FocusCount/a=1 FocusCount/c=none FocusedActivity='y' PreviousActivity='b' "
              "PreviousState='solitary' State='interactive'");
    live({}, {}, {{"a", 1}, {"b", 7}});
    EXPECT_EQ(change(),
              "FocusCount/b=7 FocusedActivity='' PreviousActivity='' PreviousState='' State=''");
    EXPECT_EQ(inTurn({stop(), after(seconds(5)), change()}),
              "FocusCount/a=none FocusCount/b=none FocusedActivity=none PreviousActivity=none "
              "PreviousState=none State=none LifeTime=none");
}

TEST_F(ActivitiesPluginTest, report_that_fails_is_logged_and_raises_nothing)
{
    start();
    const std::function<void()> faults[] = {
        [&] { life.set("getStateHistory:2", 5); },
        [&] { life.set("getAutonomousActivityStatistics", Names{"a"}); }, [&] { life.die(); }};
    for (const auto& fault : faults) {
        live({"b"}, {"solitary"}, {{"b", 1}});
        fault();
        EXPECT_EQ(change(), "");
        expectComplaint("error Nimbra/_doReport: Cannot do report: ");
    }
    write("TesselReady");
    expectComplaint("error LaunchpadPluginActivities/_onReady: Cannot initiate, data will ");
}

}  // namespace KR
