#include <boost/make_shared.hpp>

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
        access.load(name, boost::make_shared<ProbePlugin>(name, *this));
        access.plugins()[name]->setEnabled(enabled);
    }
    /// What plugins were started and stopped since the last call.
    std::string takeSwitches() { return std::exchange(switches, {}); }
    bool showsMonitoring = false;  ///< with a "!"
    std::string switches;
    const vo::Connection connection =
        launchpad->pluginSwitched.connect([this](const std::string& plugin, bool running) {
            access.takeLocks();
            switches += (running ? "+" : "-") + plugin + " ";
        });
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
    add("z");
    add("a");
    add("m", false);
    EXPECT_THAT(launchpad->getEnabledPlugins(), ElementsAre("a", "z"));
    launchpad->startMonitoringConditions();
    launchpad->setPluginEnabled("m", true);
    launchpad->setPluginEnabled("a", false);
    access.plugins()["a"]->setEnabled(true);  // which the next call sees to, though it fails
    EXPECT_THAT([&] { launchpad->setPluginEnabled("x", true); },
                ThrowsMessage<KRError>("NimbraLaunchpad::_setPluginEnabled: "
                                       "NimbraLaunchpad::setPluginEnabled: Plugin not found\n"));
    access.plugins()["z"]->setEnabled(false);  // stopped nevertheless
    launchpad->stopMonitoringConditions();
    launchpad->setPluginEnabled("a", true);
    launchpad->startMonitoringConditions();
    const auto m = access.plugins()["m"];
    for (const char* name : {"x", "y"})
        m->addConditionID(int(access.add(name, "'K'")));
    access.unload("m");
    access.unload("no such");
    EXPECT_FALSE(access.checker().hasCondition(1) || access.checker().hasCondition(2));
    EXPECT_THAT(m->getConditionIDs(), IsEmpty());
    launchpad->exit();
    EXPECT_EQ(takeSwitches(), "+a +z +m -a +a -a -m -z +a +m -m -a ");
    EXPECT_THAT(services.calls, ElementsAre("start a", "start z", "!start m", "!stop a", "!start a",
                                            "stop a", "stop m", "stop z", "start a", "start m",
                                            "!stop m", "!exit m", "stop a", "exit a", "exit z"));
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
    EXPECT_EQ(takeSwitches(), "+stop1 +stop2 +z -z ");
    EXPECT_EQ(
        logged(),
        R"(error _startEnabledStopDisabledPlugins: Error starting/stopping plugin: start1: no start
error _startEnabledStopDisabledPlugins: Error starting/stopping plugin: start2: no start
verbose _stopConditionChecker: NimbraLaunchpad conditions will be ignored.
verbose _stopPlugins: NimbraLaunchpad Plugins will be stopped.
error _stopPlugins: Error stopping plugin: stop1: no stop
error _stopPlugins: Error stopping plugin: stop2: no stop
warning _unloadPlugin: Error stopping removed plugin: stop1: no stop
warning _unloadPlugin: Error exiting removed plugin: stop1: no exit
warning _unloadPlugin: Error stopping removed plugin: stop2: no stop
warning _unloadPlugin: Error exiting removed plugin: stop2: no exit
)");
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
    EXPECT_EQ(takeSwitches(), "+p/b -p/b +p/b -p/b +p/b -p/b +p/b -p/b ");
    for (const unsigned condition : {1, 2, 3, 4})
        EXPECT_FALSE(access.checker().hasCondition(condition)) << condition;
}

TEST_F(PluginRegistryTest, startThatATriggerPosted_isNotDoneWhenNobodyWouldStopIt)
{
    const std::function<void()> ends[] = {
        [&] { launchpad->setPluginEnabled("p/b", false); },
        [&] { access.unload("p/b"); },
        [&] { launchpad->stopMonitoringConditions(); },
        [&] { launchpad->exit(); },
    };
    for (const auto& end : ends) {
        launchpad->startMonitoringConditions();
        change(services.installed, pluginPackage("p", {"b"}));
        services.calls.clear();
        const auto plugin = access.plugins()["p/b"];
        plugin->startConditionHit(1, true);
        end();
        if (access.plugins().empty())
            plugin->startConditionHit(1, true);  // it was on its way
        platform.runPending();
        EXPECT_THAT(services.calls, IsEmpty()) << &end - ends;
    }
}

}  // namespace
}  // namespace KR
