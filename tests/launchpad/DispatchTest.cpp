#include <future>

#include "platform/kr/KRError.h"
#include "tests/launchpad/LaunchpadTest.h"
#include "tests/support/Happenings.h"

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
    platform.runPending();
    EXPECT_THAT(
        logged(),
        testing::StartsWith(
            R"(warning _registerActionCondition: _registerActionCondition called with invalid action id: 2, or empty condition.  Will remove action id
error _registerActionCondition: It appears that an action already has a condition bound to it.  A new condition will not be registered for it.
warning _registerActionCondition: _registerActionCondition found existing condition map but no actual condition, will replace map value for action: a
warning _registerActionCondition: _registerActionCondition found actual condition but no map, will replace condition for action: a
error _registerActionCondition: Cannot add condition: 'K' ==, for action: bad: )"));
}

TEST_F(LaunchpadTest, actions_goByTheirOriginOrAllOfThem)
{
    for (const char* name : {"a", "b", "c"})
        access.add(name, "'K'");
    access.actions()[3].origin = "Other";
    access.actions()[9].origin = "Test";  // without a condition, so that nothing of it is removed
    EXPECT_TRUE(access.removeAll("Test"));
    EXPECT_THAT(access.actions(), ElementsAre(testing::Key(3)));
    EXPECT_THAT(access.conditions(), ElementsAre(Pair(2, 3)));
    EXPECT_FALSE(access.checker().hasCondition(1) || access.checker().hasCondition(3));
    EXPECT_TRUE(access.removeAll("")) << "which stands for every origin";
    EXPECT_TRUE(access.actions().empty() && access.conditions().empty());
    access.add("d", "'K'");
    EXPECT_EQ(access.actions().count(5), 1U) << "ids are not reused";
}

TEST_F(LaunchpadTest, hits_reachTheResponderInOrderOnTheEventLoop)
{
    const unsigned a = access.add("a", "'K'");
    const unsigned b = access.add("b", "'K' || 'L'");
    raiseK(5);
    platform.memory().raiseEvent("L", 7);
    const auto now = std::uint64_t(platform.clock->now().time_since_epoch().count());
    const PersistentValues values{{"K", {now, 5}}, {"L", {now, 7}}};
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
    EXPECT_THAT(logged(),
                testing::MatchesRegex("error _conditionHit: Got a mapped action that does "
                                      "not exist.\n(info.*\nerror processActions: The "
                                      "responder failed: no hands\n){2}"));
}

TEST_F(LaunchpadTest, responderThatDestroysTheLaunchpad_isNotCalledAgain)
{
    launchpad.reset();
    const auto install = [&] {
        for (const char* uuid : {"p", "q"})
            services.installed(pluginPackage(uuid, {"b"}));
    };
    for (const std::string when : {"hit", "installed", "installed during construction"}) {
        if (when == "installed during construction")
            services.onPackages = install;
        // In memory of its own, so that the address sanitizer sees who uses it afterwards.
        auto doomed = std::make_unique<NimbraLaunchpad>(platform.broker, nullptr, &responder);
        responder = {};
        responder.onCall = [&] {
            doomed.reset();
            throw std::runtime_error("too late");  // nobody is told of it
        };
        NimbraLaunchpadTestAccess its{*doomed};
        for (int i = 0; i < 2 && when == "hit"; ++i)
            its.hit({{its.add("a", "'K'"), true}});
        if (when == "installed")
            install();
        platform.runPending();
        EXPECT_EQ(responder.calls.size() + responder.pluginChanges, 1U) << when;
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
}

TEST_F(LaunchpadTest, afterExit_nothingIsMonitoredOrLoaded)
{
    const unsigned condition = access.add("a", "'K'");
    launchpad->startMonitoringConditions();
    launchpad->exit();
    EXPECT_EQ(errorOf<KRError>([&] { launchpad->startMonitoringConditions(); }),
              "NimbraLaunchpad::startMonitoringConditions: exit() was called before");
    EXPECT_FALSE(launchpad->isMonitoringConditions());
    logged();
    change(services.installed, pluginPackage("p", {"b"}));
    EXPECT_TRUE(access.plugins().empty());
    EXPECT_EQ(logged(),
              "error _addBehaviorPlugin: Could not load Launchpad Plugin: p/b no longer waiting "
              "for KRBehaviorManager\n");
    EXPECT_FALSE(access.checker().hasCondition(condition));
}

TEST_F(LaunchpadThreads, everythingAtOnce_leavesTheActionsOfWhatIsInstalled)
{
    const std::string file = folder.write("storm.cfg", kOneAction);
    FakeServices services(application.session());
    Happenings hits;
    NimbraLaunchpad launchpad(broker, nullptr, &responder);
    responder.onCall = [&] {
        if (launchpad.getAction("a").conditionId && broker->memory().hasData("Done"))
            for (const std::string& name : responder.calls.back())
                hits.add(name);
    };
    const std::string plugin = "_LaunchpadPluginTiming";
    bool running = false;  // no atomic: it is told of one switch at a time
    const vo::Connection switches =
        launchpad.pluginSwitched.connect([&](const std::string&, bool isRunning) {
            EXPECT_NE(std::exchange(running, isRunning), isRunning);
            launchpad.setPluginEnabled(plugin, true);
        });
    const auto change = [&](const std::string& uuid, int i) {
        (i % 2 ? services.installed : services.removed)(launchedPackage(uuid));
    };
    const std::function<void(int)> jobs[] = {
        [&](int i) { broker->memory().raiseEvent("K", i % 2); },
        [&](int) { launchpad.loadConfigFile(file); },
        [&](int) { launchpad.getActionSuggestions(7); },
        [&](int) { launchpad.startMonitoringConditions(); },
        [&](int) { launchpad.stopMonitoringConditions(); },
        [&](int) { launchpad.checkConditions(); },
        [&](int i) { launchpad.setPluginEnabled(plugin, i % 2 != 0); },
        [&](int i) { change("p", i); },
        [&](int i) { change("q", i); },
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
    change("r", 1);
    launchpad.startMonitoringConditions();
    EXPECT_THAT(launchpad.getEnabledPlugins(), ElementsAre(plugin));
    hits.wait("a");
    // Changes are told in order: when the last one has its effect, all have.
    hits.wait("Action swithFocus to behavior r/b");
    launchpad.stopMonitoringConditions();
    NimbraLaunchpadTestAccess access{launchpad};
    EXPECT_THAT(launchpad.getAutonomousActivityNames(), ElementsAre("p/b", "q/b", "r/b"));
    EXPECT_EQ(access.actions().size(), 4U);
    EXPECT_EQ(access.conditions().size(), 4U);
}

}  // namespace
}  // namespace KR
