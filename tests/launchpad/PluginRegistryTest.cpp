#include <boost/make_shared.hpp>
#include <thread>

#include "platform/kr/KRError.h"
#include "plugins/NimbraLaunchpadPlugin.h"
#include "tests/launchpad/LaunchpadTest.h"

namespace KR {
namespace {

using testing::ThrowsMessage;

struct PluginRegistryTest;

/// Notes what it is told to do; it fails at what its name begins with, "stop" at "exit" too.
class ProbePlugin : public NimbraLaunchpadPlugin {
public:
    ProbePlugin(const std::string& name, PluginRegistryTest& test) : test_(test), shownName_(name)
    {
        name_ = name;
    }
    void exit() override { note("exit", "stop"); }

private:
    void _startPlugin() override { note("start", "start"); }
    void _stopPlugin() override { note("stop", "stop"); }
    void note(const std::string& call, const std::string& failing);
    PluginRegistryTest& test_;
    const std::string shownName_;  ///< needs no lock
};

struct PluginRegistryTest : LaunchpadTest {
    PluginRegistryTest() { access.plugins().clear(); }
    void add(const std::string& name, bool enabled = true)
    {
        access.plugins()[name] = boost::make_shared<ProbePlugin>(name, *this);
        access.plugins()[name]->setEnabled(enabled);
    }
    bool showsMonitoring = false;  ///< with a "!"
};

void ProbePlugin::note(const std::string& call, const std::string& failing)
{
    const bool shown = test_.showsMonitoring && test_.launchpad->isMonitoringConditions();
    test_.services.calls.push_back((shown ? "!" : "") + call + " " + shownName_);
    if (shownName_.rfind(failing, 0) == 0)
        throw std::runtime_error("no " + call);
}

TEST_F(PluginRegistryTest, enabledFlag_isFollowedWhileMonitoringOnly)
{
    showsMonitoring = true;
    for (const char* name : {"z", "a", "m"})
        add(name, false);
    launchpad->setPluginEnabled("z", true);
    launchpad->setPluginEnabled("a", true);
    EXPECT_THAT(launchpad->getEnabledPlugins(), ElementsAre("a", "z"));
    launchpad->startMonitoringConditions();
    launchpad->setPluginEnabled("m", true);
    launchpad->setPluginEnabled("a", false);
    EXPECT_THAT([&] { launchpad->setPluginEnabled("x", true); },
                ThrowsMessage<KRError>("NimbraLaunchpad::_setPluginEnabled: "
                                       "NimbraLaunchpad::setPluginEnabled: Plugin not found\n"));
    launchpad->stopMonitoringConditions();
    launchpad->setPluginEnabled("a", true);
    launchpad->startMonitoringConditions();
    const unsigned ids[] = {access.add("x", "'K'"), access.add("y", "'K'")};
    const auto m = access.plugins()["m"];
    for (const unsigned id : ids)
        m->addConditionID(int(id));
    access.unload("m");
    access.unload("no such");
    EXPECT_FALSE(access.checker().hasCondition(ids[0]) || access.checker().hasCondition(ids[1]));
    EXPECT_THAT(m->getConditionIDs(), IsEmpty());
    launchpad->exit();
    EXPECT_THAT(services.calls, ElementsAre("start a", "start z", "!start m", "!stop a", "stop m",
                                            "stop z", "start a", "start m", "start z", "!stop m",
                                            "!exit m", "stop a", "exit a", "stop z", "exit z"));
}

TEST_F(PluginRegistryTest, failures_areGatheredAfterAllWereTried)
{
    for (const char* name : {"start1", "start2", "stop1", "stop2", "z"})
        add(name);
    logged();
    EXPECT_THAT([&] { launchpad->startMonitoringConditions(); },
                ThrowsMessage<KRError>(
                    "NimbraLaunchpad::_startMonitoringConditions: NimbraLaunchpad::"
                    "_startEnabledStopDisabledPlugins: no start(start1)\nno start(start2)\n\n"));
    EXPECT_TRUE(launchpad->isMonitoringConditions());
    EXPECT_THAT([&] { launchpad->stopMonitoringConditions(); },
                ThrowsMessage<KRError>(
                    "NimbraLaunchpad::_stopMonitoringConditions: NimbraLaunchpad::_stopPlugins: "
                    "no stop(stop1)\nno stop(stop2)\n\n"));
    EXPECT_EQ(services.calls.back(), "stop z");
    EXPECT_FALSE(launchpad->isMonitoringConditions());
    launchpad->exit();
    EXPECT_TRUE(access.plugins().empty());
    const std::string start = "error _startEnabledStopDisabledPlugins: Error starting/stopping ";
    const std::string stop = "error _stopPlugins: Error stopping ";
    const std::string unload = "warning _unloadPlugin: Error ";
    EXPECT_THAT(
        logged(),
        ElementsAre(start + "plugin: start1: no start", start + "plugin: start2: no start",
                    "verbose _stopConditionChecker: NimbraLaunchpad conditions will be ignored.",
                    "verbose _stopPlugins: NimbraLaunchpad Plugins will be stopped.",
                    stop + "plugin: stop1: no stop", stop + "plugin: stop2: no stop",
                    unload + "stopping removed plugin: stop1: no stop",
                    unload + "exiting removed plugin: stop1: no exit",
                    unload + "stopping removed plugin: stop2: no stop",
                    unload + "exiting removed plugin: stop2: no exit"));
}

// On real threads, so that a race or a deadlock between the registry's operations can show itself.
TEST_F(PluginRegistryTest, switchingOnSeveralThreads_endsAsTheLastOnesSaid)
{
    constexpr int kRounds = 200;
    add("p", false);
    const auto toggle = [&] {
        for (int i = 0; i <= kRounds; ++i)
            launchpad->setPluginEnabled("p", i % 2 == 0);
    };
    std::thread first(toggle);
    std::thread second(toggle);
    for (int i = 0; i < kRounds; ++i) {
        launchpad->startMonitoringConditions();
        launchpad->stopMonitoringConditions();
    }
    first.join();
    second.join();
    launchpad->startMonitoringConditions();
    EXPECT_TRUE(access.plugins()["p"]->isPluginRunning());
    for (std::size_t i = 0; i < services.calls.size(); ++i)
        EXPECT_EQ(services.calls[i], i % 2 == 0 ? "start p" : "stop p");
}

TEST_F(PluginRegistryTest, pluginOfABehaviour_followsItsPackageAndItsConditions)
{
    const vo::PackageInfo package =
        pluginPackage("p", {"b"},
                      "<conditions><condition purpose='launchTrigger'>'K' == 1</condition>"
                      "<condition purpose='terminationTrigger'>'K' == 2</condition>"
                      "<condition purpose='launchTrigger'>'K' == 3</condition>"
                      "<condition purpose='terminationTrigger'>'K' == 4</condition></conditions>");
    add("p/b");
    launchpad->startMonitoringConditions();
    change(services.installed, package);
    EXPECT_THAT(services.calls, ElementsAre("start p/b", "stop p/b", "exit p/b"));
    EXPECT_EQ(responder.pluginChanges, 1);
    EXPECT_THAT(launchpad->getPluginsForGroup("conditional"), ElementsAre("p/b"));
    for (const int value : {1, 2, 3, 4, 1}) {
        raiseK(value);
        platform.runPending();
        EXPECT_EQ(launchpad->getEnabledPlugins().size(), value % 2 ? 1U : 0U);
        EXPECT_EQ(services.calls.back(), value % 2 ? "startBehavior p/b" : "stopBehavior p/b");
    }
    services.calls.emplace_back("stopBehavior p/b");  // by itself
    platform.advance(std::chrono::seconds(7));
    EXPECT_EQ(services.calls.back(), "stopBehavior p/b") << "its condition became true long ago";
    platform.broker->session().service("KRBehaviorManager").call("startBehavior", "p/b");
    std::filesystem::remove(folder.path() + "/b/nimbraLaunchpadPlugin.xml");
    change(services.installed, package);
    EXPECT_EQ(access.plugins().count("p/b"), 1U) << "it is no plugin any more, but stays loaded";
    change(services.removed, package);
    EXPECT_TRUE(access.plugins().empty());
    EXPECT_EQ(services.calls.back(), "stopBehavior p/b");
    services.calls.clear();
    for (const int value : {2, 1})
        raiseK(value);
    platform.runPending();
    EXPECT_TRUE(services.calls.empty()) << "its conditions went with it";
}

TEST_F(PluginRegistryTest, startThatATriggerPosted_isNotDoneWhenNobodyWouldStopIt)
{
    const vo::PackageInfo package = pluginPackage("p", {"b"});
    const std::pair<const char*, std::function<void()>> rows[] = {
        {"disabled", [&] { launchpad->setPluginEnabled("p/b", false); }},
        {"unloaded", [&] { access.unload("p/b"); }},
        {"not monitored", [&] { launchpad->stopMonitoringConditions(); }},
        {"nothing", [] {}},
        {"the end", [&] { launchpad->exit(); }},
    };
    for (const auto& [what, happens] : rows) {
        SCOPED_TRACE(what);
        launchpad->startMonitoringConditions();
        change(services.installed, package);
        services.calls.clear();
        const auto plugin = access.plugins()["p/b"];
        plugin->startConditionHit(1, true);
        happens();
        if (access.plugins().empty())
            plugin->startConditionHit(1, true);  // was on its way
        platform.runPending();
        EXPECT_EQ(Names() != services.calls, std::string("nothing") == what);
        EXPECT_EQ(plugin->isEnabled(), std::string("disabled") != what);
    }
}

}  // namespace
}  // namespace KR
