#include <future>

#include "tests/launchpad/LaunchpadTest.h"

namespace KR {
namespace {

using vo::LogLevel;

TEST_F(LaunchpadTest, condition_isBoundOnceAndRepaired)
{
    const auto last = [&](LogLevel level) { return platform.log.lines(level).back(); };
    access.add("empty", "");
    EXPECT_TRUE(access.actions().empty());
    EXPECT_THAT(last(LogLevel::warning), HasSubstr("invalid action id: 2, or empty condition.  W"));

    const unsigned first = access.add("a", "'K'");
    access.bind(3);
    EXPECT_THAT(access.conditions(), ElementsAre(testing::Pair(first, 3)));
    EXPECT_THAT(last(LogLevel::error), HasSubstr("already has a condition bound to it.  A new"));

    access.checker().removeCondition(first);
    access.bind(3);
    EXPECT_THAT(access.conditions(), ElementsAre(testing::Pair(first + 1, 3)));
    access.conditions().clear();
    access.bind(3);
    EXPECT_FALSE(access.checker().hasCondition(first + 1));
    EXPECT_THAT(access.conditions(), ElementsAre(testing::Pair(first + 2, 3)));

    EXPECT_EQ(access.add("bad", "'K' =="), 0U);
    EXPECT_THAT(last(LogLevel::error),
                HasSubstr("Cannot add condition: 'K' ==, for action: bad: "));
    EXPECT_FALSE(access.removeAll("Other"));
    EXPECT_TRUE(access.removeAll("")) << "which stands for every origin";
    EXPECT_TRUE(access.actions().empty() && access.conditions().empty());
    access.add("c", "'K'");
    EXPECT_EQ(access.actions().count(5), 1U) << "ids are not reused";
}

TEST_F(LaunchpadTest, hits_reachTheResponderInOrderOnTheEventLoop)
{
    const unsigned a = access.add("a", "'K'");
    const unsigned b = access.add("b", "'K'");
    access.hit({{b, true}, {a, false}, {77, true}, {a, 1}, {b, true}});
    EXPECT_TRUE(responder.calls.empty());
    platform.runPending();
    EXPECT_THAT(responder.calls, ElementsAre(ElementsAre("b", "a", "b")));

    // The responder may use the launchpad, and its failures are its own.
    responder.onCall = [&] {
        load("AutonomousActions: []");
        throw std::runtime_error("no hands");
    };
    platform.log.clear();
    access.actions().erase(2);
    access.hit({{a, true}, {b, true}});
    access.hit({{b, true}});
    platform.runPending();
    EXPECT_EQ(responder.calls.size(), 3U);
    EXPECT_THAT(platform.log.lines(LogLevel::error),
                ElementsAre(HasSubstr("Got a mapped action that does not exist."),
                            HasSubstr("no hands"), HasSubstr("no hands")));
    access.hit({{b, true}});
    launchpad.reset();
    platform.runPending();
    EXPECT_EQ(responder.calls.size(), 3U) << "what is queued goes with the launchpad";
}

TEST_F(LaunchpadTest, copiesAreLentAgainForNoActionButTheirOwn)
{
    for (const std::string round : {"1", "2"}) {
        const unsigned a = access.add("a" + round, "'K'");
        const unsigned b = access.add("b" + round, "'K'");
        responder.calls.clear();
        for (int i = 0; i < 1000; ++i) {  // more than are kept
            access.hit({{b, true}, {a, true}, {b, true}});
            if (i % 2)
                platform.runPending();
        }
        platform.runPending();
        EXPECT_EQ(responder.calls.size(), 1000U);
        EXPECT_THAT(responder.calls,
                    testing::Each(ElementsAre("b" + round, "a" + round, "b" + round)));
        for (int i = 0; i < 1000; ++i)
            access.hit({{b, true}, {a, true}});
        platform.runPending();
        access.removeAll("");
    }
}

TEST_F(LaunchpadTest, monitoring_reportsEachActionInItsManner)
{
    access.add("while", "'K' == 1", 0x1 | 0x2);
    access.add("edge", "'K' == 1", 0x2 | 0x4);
    access.add("never", "'K' == 1", 0x4);
    access.add("unmarked", "'K' == 1", 0);
    raiseK(1);
    launchpad->startMonitoringConditions();
    launchpad->startMonitoringConditions();
    platform.advance(std::chrono::microseconds(5'999'999));
    EXPECT_THAT(responder.calls, ElementsAre(ElementsAre("while", "edge", "unmarked")));
    platform.advance(std::chrono::microseconds(1));
    EXPECT_THAT(responder.calls.back(), ElementsAre("while", "unmarked"));

    launchpad->stopMonitoringConditions();
    raiseK(0);
    raiseK(1);
    platform.runPending();
    EXPECT_EQ(responder.calls.size(), 2U);
    launchpad->startMonitoringConditions();
    platform.runPending();
    EXPECT_THAT(responder.calls.back(), ElementsAre("while", "edge", "unmarked"));
    launchpad->exit();
    EXPECT_FALSE(launchpad->isMonitoringConditions());
}

TEST_F(LaunchpadThreads, everythingAtOnce_leavesALaunchpadThatWorks)
{
    const std::string file = folder.write("storm.cfg", kOneAction);
    FakeServices services(application.session());
    std::promise<void> reached;
    std::once_flag once;
    NimbraLaunchpad launchpad(broker, nullptr, &responder);
    responder.onCall = [&] {
        if (launchpad.getAction("a").conditionId && broker->memory().hasData("Done"))
            std::call_once(once, [&] { reached.set_value(); });
    };
    const auto package = launchedPackage("p");
    const std::function<void(int)> jobs[] = {
        [&](int i) { broker->memory().raiseEvent("K", i % 2); },
        [&](int) { launchpad.loadConfigFile(file); },
        [&](int) { launchpad.getActionSuggestions(7); },
        [&](int) { launchpad.startMonitoringConditions(); },
        [&](int) { launchpad.stopMonitoringConditions(); },
        [&](int) { launchpad.checkConditions(); },
        [&](int i) { (i % 2 ? services.removed : services.installed)(package); },
    };
    std::vector<std::future<void>> done;
    for (const auto& job : jobs)
        done.push_back(std::async(std::launch::async, [&job] {
            for (int i = 0; i < 300; ++i)
                job(i);
        }));
    done.clear();  // waits for them
    launchpad.stopMonitoringConditions();
    broker->memory().raiseEvent("Done", 1);
    broker->memory().raiseEvent("K", 1);
    launchpad.startMonitoringConditions();
    EXPECT_EQ(reached.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
}

}  // namespace
}  // namespace KR
