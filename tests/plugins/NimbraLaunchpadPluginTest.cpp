#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <thread>

#include "platform/kr/KRError.h"
#include "platform/kr/KRModule.h"
#include "plugins/NimbraLaunchpadPlugin.h"
#include "plugins/NimbraLaunchpadPluginModule.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kCategory = "NimbraLaunchpadPlugin/";

class ProbePlugin : public NimbraLaunchpadPlugin {
public:
    ProbePlugin()
    {
        name_ = "probe";
        groups_ = {"solitary", "interactive"};
    }
    void exit() override {}

    bool fails = false;
    int starts = 0;
    int stops = 0;

private:
    void _startPlugin() override
    {
        ++starts;
        if (fails)
            throw std::runtime_error("no start");
    }
    void _stopPlugin() override
    {
        ++stops;
        if (fails)
            throw std::runtime_error("no stop");
    }
};

struct NimbraLaunchpadPluginTest : testing::Test {
    VirtualPlatform platform;
    boost::shared_ptr<ProbePlugin> plugin = boost::make_shared<ProbePlugin>();

    std::vector<std::string> info() { return platform.log.lines(vo::LogLevel::info); }
};

TEST_F(NimbraLaunchpadPluginTest, repeated_starts_and_stops_run_the_hooks_and_log_once)
{
    plugin->stopPlugin();
    EXPECT_THAT(info(), IsEmpty());
    plugin->startPlugin();
    plugin->startPlugin();
    EXPECT_TRUE(plugin->isPluginRunning());
    plugin->stopPlugin();
    plugin->stopPlugin();
    EXPECT_FALSE(plugin->isPluginRunning());
    EXPECT_EQ(plugin->starts, 1);
    EXPECT_EQ(plugin->stops, 1);
    EXPECT_THAT(info(), ElementsAre(kCategory + "startPlugin: Starting: probe",
                                    kCategory + "startPlugin: Started: probe",
                                    kCategory + "stopPlugin: Stopping: probe",
                                    kCategory + "stopPlugin: Stopped: probe"));
}

TEST_F(NimbraLaunchpadPluginTest, failing_hooks_leave_the_running_flag_and_release_the_mutex)
{
    plugin->fails = true;
    EXPECT_THROW(plugin->startPlugin(), std::runtime_error);
    EXPECT_FALSE(plugin->isPluginRunning());
    plugin->fails = false;
    plugin->startPlugin();
    plugin->fails = true;
    EXPECT_THROW(plugin->stopPlugin(), std::runtime_error);
    EXPECT_TRUE(plugin->isPluginRunning());
    EXPECT_EQ(platform.log.count(vo::LogLevel::info, "Stopped: probe"), 0U);
}

TEST_F(NimbraLaunchpadPluginTest,
       start_that_fails_after_a_hit_is_logged_and_the_plugin_stays_enabled)
{
    plugin->fails = true;
    plugin->startConditionHit(7, KRValue());
    EXPECT_EQ(plugin->starts, 0);
    platform.runPending();
    EXPECT_EQ(plugin->starts, 1);
    EXPECT_TRUE(plugin->isEnabled());
    EXPECT_FALSE(plugin->isPluginRunning());
    EXPECT_EQ(
        platform.log.count(vo::LogLevel::error, "Error starting/stopping plugin: probe: no start"),
        1U);
}

TEST_F(NimbraLaunchpadPluginTest, condition_hit_does_not_wait_for_a_start_in_progress)
{
    struct SlowPlugin : ProbePlugin {
        void _startPlugin() override
        {
            std::thread([this] { stopConditionHit(1, KRValue()); }).join();
        }
    };
    auto slow = boost::make_shared<SlowPlugin>();
    slow->startPlugin();  // deadlocks if the hit takes the mutex
    EXPECT_TRUE(slow->isPluginRunning());
    platform.runPending();
    EXPECT_FALSE(slow->isPluginRunning());
    slow->startConditionHit(1, KRValue());
    slow.reset();
    platform.runPending();  // the plugin was dropped: nothing to start
}

TEST(NimbraLaunchpadPluginSlots, come_in_the_order_destructor_exit_start_stop_running)
{
    static std::vector<std::string> called;
    called.clear();
    struct SlotPlugin : NimbraLaunchpadPlugin {
        void exit() override { called.push_back("exit"); }
        void _startPlugin() override { called.push_back("start"); }
        void _stopPlugin() override { called.push_back("stop"); }
        bool _isPluginRunning() override
        {
            called.push_back("isRunning");
            return false;
        }
    } plugin;
    // As code that was compiled against the class calls them: by position in the virtual table,
    // in which the destructor takes two places.
    using Slot = void (*)(NimbraLaunchpadPlugin*);
    Slot* const table = *reinterpret_cast<Slot**>(static_cast<NimbraLaunchpadPlugin*>(&plugin));
    for (int slot = 2; slot <= 5; ++slot)
        table[slot](&plugin);
    EXPECT_THAT(called, ElementsAre("exit", "start", "stop", "isRunning"));
}

class ProbeModule : public NimbraLaunchpadPluginModule {
public:
    explicit ProbeModule(boost::shared_ptr<KRBroker> broker)
        : NimbraLaunchpadPluginModule(broker, "_LaunchpadPluginTiming")
    {
        bindMethod("onE", &ProbeModule::onE, this, "Callback");
    }
    void onE(const std::string&, const KRValue&, const std::string& message)
    {
        messages.push_back(message);
    }
    std::vector<std::string> messages;

private:
    void _startPlugin() override {}
    void _stopPlugin() override {}
};

TEST(NimbraLaunchpadPluginModuleTest, names_declares_raises_and_subscribes_by_the_common_rule)
{
    VirtualPlatform platform;
    auto module = KRModule::createModule<ProbeModule>(platform.broker);
    EXPECT_EQ(module->getPluginName(), "_LaunchpadPluginTiming");
    module->xDeclareLaunchpadEvent("A/B");
    EXPECT_THAT(platform.memory().getDeclarers("Launchpad/A/B"),
                ElementsAre("_LaunchpadPluginTiming"));
    module->xRaiseLaunchpadEvent("A/B", 5);
    EXPECT_EQ(platform.memory().getData("Launchpad/A/B"), KRValue(5));

    module->xSubscribeMicroEvent("E", "onE");
    platform.memory().raiseEvent("E", 1);
    platform.runPending();
    module->xUnsubscribeMicroEvent("E");
    platform.memory().raiseEvent("E", 2);
    platform.runPending();
    EXPECT_THAT(module->messages, ElementsAre("_LaunchpadPluginTimingonE"));
    EXPECT_THROW(module->xUnsubscribeMicroEvent("E"), KRError);
    EXPECT_NO_THROW(module->xTryCancelFuture({}));
}

TEST(NimbraLaunchpadPluginModuleTest, checks_sizes_and_converts_delays)
{
    VirtualPlatform platform;
    auto module = KRModule::createModule<ProbeModule>(platform.broker);
    const auto check = [&](const KRValue& value) {
        try {
            return std::to_string(module->xCheckDataSize(value, 3));
        } catch (const KRError& e) {
            return std::string(e.what());
        }
    };
    const std::string place = "_LaunchpadPluginTiming::CheckDataSize: ";
    EXPECT_EQ(check(KRValue::Array(5)), "5");
    EXPECT_EQ(check(KRValue::Array(2)), place + "Incorrect Data Size. Expected: 3 Got: 2");
    EXPECT_EQ(check("abc"), place + "Couldn't get size, possibly because it's not an array.");
    EXPECT_EQ(module->xGetDelayUSec(2.5F), 2500000U);
    EXPECT_EQ(module->xGetDelayUSec(0.1F), 100000U);
}

}  // namespace
}  // namespace KR
