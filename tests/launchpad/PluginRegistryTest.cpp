#include <boost/make_shared.hpp>
#include <thread>

#include "platform/kr/KRError.h"
#include "plugins/NimbraLaunchpadPlugin.h"
#include "tests/launchpad/LaunchpadTest.h"

namespace KR {
namespace {

using testing::ThrowsMessage;
using vo::LogLevel;

/// Notes what it is told to do; it fails at what its name begins with, "stop" at "exit" too.
class ProbePlugin : public NimbraLaunchpadPlugin {
public:
    ProbePlugin(const std::string& name, Names& calls) : calls_(calls), shownName_(name)
    {
        name_ = name;
    }
    void exit() override { note("exit", "stop"); }

private:
    void _startPlugin() override { note("start", "start"); }
    void _stopPlugin() override { note("stop", "stop"); }
    void note(const std::string& call, const std::string& failing)
    {
        calls_.push_back(call + " " + shownName_);
        if (shownName_.rfind(failing, 0) == 0)
            throw std::runtime_error("no " + call);
    }
    Names& calls_;
    const std::string shownName_;  ///< needs no lock
};

struct PluginRegistryTest : LaunchpadTest {
    PluginRegistryTest() { access.plugins().clear(); }
    void add(const std::string& name, bool enabled = true)
    {
        access.plugins()[name] = boost::make_shared<ProbePlugin>(name, services.calls);
        access.plugins()[name]->setEnabled(enabled);
    }
};

TEST_F(PluginRegistryTest, enabledFlag_isFollowedWhileMonitoringOnly)
{
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
    launchpad->exit();
    EXPECT_THAT(services.calls, ElementsAre("start a", "start z", "start m", "stop a", "exit a",
                                            "stop m", "exit m", "stop z", "exit z"));
}

TEST_F(PluginRegistryTest, failures_areGatheredAfterAllWereTried)
{
    for (const char* name : {"start", "stop1", "stop2", "z"})
        add(name);
    EXPECT_THAT(
        [&] { launchpad->startMonitoringConditions(); },
        ThrowsMessage<KRError>("NimbraLaunchpad::_startMonitoringConditions: NimbraLaunchpad::"
                               "_startEnabledStopDisabledPlugins: no start(start)\n\n"));
    EXPECT_TRUE(launchpad->isMonitoringConditions());
    EXPECT_THAT(platform.log.lines(LogLevel::error).back(),
                HasSubstr("Error starting/stopping plugin: start: no start"));
    EXPECT_THAT([&] { launchpad->stopMonitoringConditions(); },
                ThrowsMessage<KRError>(
                    "NimbraLaunchpad::_stopMonitoringConditions: NimbraLaunchpad::_stopPlugins: "
                    "no stop(stop1)\nno stop(stop2)\n\n"));
    EXPECT_EQ(services.calls.back(), "stop z");
    launchpad->exit();
    EXPECT_TRUE(access.plugins().empty());
    EXPECT_THAT(platform.log.lines(LogLevel::warning).back(),
                HasSubstr("Error exiting removed plugin: stop2: no exit"));
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
    const std::string descriptor =
        folder.write("b/nimbraLaunchpadPlugin.xml",
                     "<nimbraLaunchpadPlugin><conditions>"
                     "<condition purpose='launchTrigger'>'K' == 1</condition>"
                     "<condition purpose='terminationTrigger'>'K' == 2</condition>"
                     "</conditions></nimbraLaunchpadPlugin>");
    vo::PackageInfo package("p", folder.path());
    package.addBehavior(vo::BehaviorInfo("b"));
    add("p/b");
    launchpad->startMonitoringConditions();
    change(services.installed, package);
    EXPECT_THAT(services.calls, ElementsAre("start p/b", "stop p/b", "exit p/b"));
    EXPECT_EQ(responder.pluginChanges, 1);
    EXPECT_THAT(launchpad->getPluginsForGroup("conditional"), ElementsAre("p/b"));
    for (const int value : {1, 2, 1}) {
        raiseK(value);
        platform.runPending();
        EXPECT_EQ(launchpad->getEnabledPlugins().size(), value == 1 ? 1U : 0U);
        EXPECT_EQ(services.calls.back(), value == 1 ? "startBehavior p/b" : "stopBehavior p/b");
    }
    std::filesystem::remove(descriptor);
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

}  // namespace
}  // namespace KR
