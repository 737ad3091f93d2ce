#include <future>

#include "platform/kr/KRError.h"
#include "tests/launchpad/LaunchpadTest.h"

namespace KR {
namespace {

TEST_F(LaunchpadTest, condition_isBoundOnceAndRepaired)
{
    logged();
    access.add("empty", "");
    EXPECT_TRUE(access.actions().empty());
    const unsigned first = access.add("a", "'K'");
    access.bind(3);
    EXPECT_THAT(access.conditions(), ElementsAre(testing::Pair(first, 3)));
    access.checker().removeCondition(first);
    access.bind(3);
    EXPECT_THAT(access.conditions(), ElementsAre(testing::Pair(first + 1, 3)));
    access.conditions().clear();
    access.bind(3);
    EXPECT_FALSE(access.checker().hasCondition(first + 1));
    EXPECT_THAT(access.conditions(), ElementsAre(testing::Pair(first + 2, 3)));

    EXPECT_EQ(access.add("bad", "'K' =="), 0U);
    const std::string did = ": _registerActionCondition ";
    EXPECT_THAT(
        logged(),
        ElementsAre("warning _registerActionCondition" + did +
                        "called with invalid action id: 2, or empty condition.  Will remove "
                        "action id",
                    "error _registerActionCondition: It appears that an action already has a "
                    "condition bound to it.  A new condition will not be registered for it.",
                    "warning _registerActionCondition" + did +
                        "found existing condition map but no actual condition, will replace map "
                        "value for action: a",
                    "warning _registerActionCondition" + did +
                        "found actual condition but no map, will replace condition for action: a",
                    testing::StartsWith("error _registerActionCondition: Cannot add condition: "
                                        "'K' ==, for action: bad: ")));
}

TEST_F(LaunchpadTest, actionsAreRemovedByOriginOrById)
{
    for (const char* name : {"a", "b", "c"})
        access.add(name, "'K'");
    access.actions()[3].origin = "Other";
    logged();
    EXPECT_FALSE(access.removeAll("Nobody"));
    access.actions()[9].origin = "Test";  // it has no condition, so nothing of it is removed
    EXPECT_TRUE(access.removeAll("Test"));
    EXPECT_THAT(logged(), ElementsAre("warning _unregisterActionCondition: "
                                      "_unregisterActionCondition called with invalid action id: "
                                      "9, or empty condition.  Will remove action id"));
    EXPECT_THAT(access.actions(), ElementsAre(testing::Key(3)));
    EXPECT_THAT(access.conditions(), ElementsAre(testing::Pair(2, 3)));
    EXPECT_FALSE(access.checker().hasCondition(1) || access.checker().hasCondition(3));
    access.add("d", "'K'");
    EXPECT_TRUE(access.removeAll("")) << "which stands for every origin";
    EXPECT_TRUE(access.actions().empty() && access.conditions().empty());
    access.add("e", "'K'");
    EXPECT_EQ(access.actions().count(6), 1U) << "ids are not reused";
    EXPECT_TRUE(access.remove(6));
    EXPECT_FALSE(access.remove(6));
}

TEST_F(LaunchpadTest, hits_reachTheResponderInOrderOnTheEventLoop)
{
    const unsigned a = access.add("a", "'K'");
    const unsigned b = access.add("b", "'K' || 'L'");
    const auto now = [&] {
        return std::uint64_t(platform.clock->now().time_since_epoch().count());
    };
    raiseK(5);
    const PersistentValues values{{"K", {now(), 5}}, {"L", {now() + 1, 7}}};
    platform.advance(std::chrono::microseconds(1));
    platform.memory().raiseEvent("L", 7);
    access.hit({{b, true}, {a, false}, {77, true}, {a, 1}, {b, true}});
    raiseK(6);
    EXPECT_TRUE(responder.calls.empty());
    platform.runPending();
    EXPECT_THAT(responder.calls, ElementsAre(ElementsAre("b", "a", "b")));
    EXPECT_EQ(responder.values, values) << "as of the hit";

    // The responder may use the launchpad, and its failures are its own.
    responder.onCall = [&] {
        load("AutonomousActions: []");
        throw std::runtime_error("no hands");
    };
    logged();
    access.actions().erase(2);
    access.hit({{a, true}, {b, true}});
    access.hit({{b, true}});
    platform.runPending();
    EXPECT_EQ(responder.calls.size(), 3U);
    const std::string failed = "error processActions: The responder failed: no hands";
    EXPECT_THAT(logged(),
                ElementsAre("error _conditionHit: Got a mapped action that does not exist.",
                            HasSubstr("info loadConfigFile: Using"), failed,
                            HasSubstr("info loadConfigFile: Using"), failed));
    launchpad.emplace(platform.broker, nullptr, nullptr);
    NimbraLaunchpadTestAccess its{*launchpad};
    its.hit({{its.add("a", "'K'"), true}});
    platform.runPending();
    EXPECT_EQ(responder.calls.size(), 3U) << "nobody is there to be told";
}

// Its memory is given back, so that the address sanitizer sees what still uses it.
TEST_F(LaunchpadTest, responderThatDestroysTheLaunchpad_isNotCalledAgain)
{
    const vo::PackageInfo plugins[] = {pluginPackage("p", {"b"}), pluginPackage("q", {"b"})};
    std::unique_ptr<NimbraLaunchpad> doomed;
    const std::function<void()> rows[] = {
        [&] {
            NimbraLaunchpadTestAccess its{*doomed};
            const unsigned id = its.add("a", "'K'");
            for (int i = 0; i < 2; ++i)
                its.hit({{id, true}});
        },
        [&] {
            for (const vo::PackageInfo& plugin : plugins)
                services.installed(plugin);
        },
        [&] {},  // it was told during construction
    };
    launchpad.reset();
    for (const auto& row : rows) {
        services.onPackages = {};
        if (&row == std::end(rows) - 1)
            services.onPackages = rows[1];
        doomed = std::make_unique<NimbraLaunchpad>(platform.broker, nullptr, &responder);
        int calls = 0;
        responder.onCall = [&] {
            ++calls;
            doomed.reset();
        };
        row();
        platform.runPending();
        EXPECT_EQ(calls, 1);
    }
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
    logged();
    launchpad->exit();
    EXPECT_EQ(logged().front(),
              "verbose _stopConditionChecker: NimbraLaunchpad conditions will be ignored.");
    EXPECT_FALSE(launchpad->isMonitoringConditions());
}

TEST_F(LaunchpadTest, afterExit_nothingIsMonitoredOrLoaded)
{
    const vo::PackageInfo package = pluginPackage("p", {"b"});
    launchpad->startMonitoringConditions();
    change(services.installed, package);
    launchpad->exit();
    EXPECT_EQ(errorOf<KRError>([&] { launchpad->startMonitoringConditions(); }),
              "NimbraLaunchpad::startMonitoringConditions: exit() was called before");
    EXPECT_FALSE(launchpad->isMonitoringConditions());
    logged();
    change(services.installed, package);
    EXPECT_TRUE(access.plugins().empty());
    EXPECT_THAT(logged(), ElementsAre("error _addBehaviorPlugin: Could not load Launchpad Plugin: "
                                      "p/b no longer waiting for KRBehaviorManager"));
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
