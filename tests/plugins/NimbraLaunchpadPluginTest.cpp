#include <boost/make_shared.hpp>
#include <thread>

#include "platform/vo/EventLoop.h"
#include "plugins/NimbraLaunchpadPluginModule.h"
#include "tests/plugins/SenseTest.h"

namespace KR {
namespace {

class ProbePlugin : public NimbraLaunchpadPlugin {
public:
    ProbePlugin()
    {
        name_ = "probe";
        groups_ = {"solitary", "interactive"};
    }
    void exit() override {}

    bool fails = false;
    std::string calls;

private:
    void _startPlugin() override { note("start"); }
    void _stopPlugin() override { note("stop"); }
    void note(const std::string& call)
    {
        calls += call + " ";
        if (fails)
            throw std::runtime_error("no " + call);
    }
};

struct NimbraLaunchpadPluginTest : testing::Test {
    VirtualPlatform platform;
    boost::shared_ptr<ProbePlugin> plugin = boost::make_shared<ProbePlugin>();
};

TEST_F(NimbraLaunchpadPluginTest, repeated_starts_and_stops_run_the_hooks_and_log_once)
{
    plugin->stopPlugin();
    plugin->startPlugin();
    plugin->startPlugin();
    EXPECT_TRUE(plugin->isPluginRunning());
    plugin->stopPlugin();
    plugin->stopPlugin();
    EXPECT_FALSE(plugin->isPluginRunning());
    EXPECT_EQ(plugin->calls, "start stop ");
    const std::string category = "NimbraLaunchpadPlugin/";
    EXPECT_THAT(platform.log.lines(vo::LogLevel::info),
                ElementsAre(category + "startPlugin: Starting: probe",
                            category + "startPlugin: Started: probe",
                            category + "stopPlugin: Stopping: probe",
                            category + "stopPlugin: Stopped: probe"));
    const std::pair<const char*, bool> groups[] = {{"solitary", true},
                                                   {"interactive", true},
                                                   {"Solitary", false},
                                                   {"sol", false},
                                                   {"", false}};
    for (const auto& [group, expected] : groups)
        EXPECT_EQ(plugin->isInGroup(group), expected) << group;
}

TEST_F(NimbraLaunchpadPluginTest, failing_hooks_leave_the_running_flag_and_release_the_mutex)
{
    plugin->fails = true;
    EXPECT_THROW(plugin->startPlugin(), std::runtime_error);
    EXPECT_FALSE(plugin->isPluginRunning());
    plugin->startConditionHit(7, KRValue());
    EXPECT_EQ(plugin->calls, "start ") << "a hit only posts";
    platform.runPending();
    EXPECT_EQ(plugin->calls, "start start ");
    EXPECT_TRUE(plugin->isEnabled());
    EXPECT_FALSE(plugin->isPluginRunning());
    EXPECT_THAT(platform.log.lines(vo::LogLevel::error),
                ElementsAre("NimbraLaunchpadPlugin/post: Error starting/stopping plugin: probe: no "
                            "start"));
    plugin->fails = false;
    plugin->startPlugin();
    plugin->fails = true;
    EXPECT_THROW(plugin->stopPlugin(), std::runtime_error);
    EXPECT_TRUE(plugin->isPluginRunning());
    EXPECT_EQ(platform.log.count(vo::LogLevel::info, "Stopped: probe"), 0U);
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

TEST_F(NimbraLaunchpadPluginTest, hits_count_unless_the_plugin_is_retired_or_may_not_be_started)
{
    bool allowed = true;
    plugin->letConditionsStartWhile([&] { return allowed; });
    const auto afterHits = [&](const std::string& hits) {
        for (const char hit : hits)
            hit == '+' ? plugin->startConditionHit(1, {}) : plugin->stopConditionHit(1, {});
        platform.runPending();
        return std::exchange(plugin->calls, "");
    };
    EXPECT_EQ(afterHits("+-"), "") << "it is disabled already";
    EXPECT_EQ(afterHits("+-+"), "start stop start ");
    allowed = false;
    EXPECT_EQ(afterHits("-"), "stop ");
    EXPECT_EQ(afterHits("+"), "");
    EXPECT_TRUE(plugin->isEnabled());
    allowed = true;
    plugin->startPlugin();
    plugin->retire();
    EXPECT_EQ(afterHits("-+"), "start ") << "which was no hit";
}

class ProbeModule : public NimbraLaunchpadPluginModule {
public:
    explicit ProbeModule(boost::shared_ptr<KRBroker> broker)
        : NimbraLaunchpadPluginModule(broker, "_LaunchpadPluginTiming")
    {
        bindMethod("onE", &ProbeModule::onE, this, "Callback");
    }
    void onE(const std::string& /*key*/, const KRValue& value, const std::string& message)
    {
        calls += message + "=" + value.toDisplayString();
    }
    std::string calls;

private:
    void _startPlugin() override {}
    void _stopPlugin() override {}
};

TEST(NimbraLaunchpadPluginModuleTest, names_subscribes_checks_and_converts_by_the_common_rules)
{
    VirtualPlatform platform;
    auto module = KRModule::createModule<ProbeModule>(platform.broker);
    EXPECT_EQ(module->getPluginName(), "_LaunchpadPluginTiming");
    EXPECT_EQ(module->xAddLaunchpadPrefix("A/B"), "Launchpad/A/B");
    module->xSubscribeMicroEvent("E", "onE");
    platform.memory().raiseEvent("E", 1);
    platform.runPending();
    EXPECT_EQ(module->calls, "_LaunchpadPluginTimingonE=1");
    module->xUnsubscribeMicroEvent("E");
    EXPECT_THROW(module->xUnsubscribeMicroEvent("E"), KRError);
    const vo::Future<void> pending = vo::getEventLoop()->async([] {}, 1);
    for (const auto& future : {vo::Future<void>(), pending})
        module->xTryCancelFuture(future);
    EXPECT_TRUE(pending.isCanceled());

    const auto check = [&](const KRValue& value) {
        return errorOf<KRError>([&] { module->xCheckDataSize(value, 3); });
    };
    const std::string place = "_LaunchpadPluginTiming::CheckDataSize: ";
    for (const std::size_t size : {3, 5})
        EXPECT_EQ(module->xCheckDataSize(KRValue::Array(size), 3), size);
    EXPECT_EQ(check(KRValue::Array(2)), place + "Incorrect Data Size. Expected: 3 Got: 2");
    EXPECT_EQ(check("abc"), place + "Couldn't get size, possibly because it's not an array.");
    EXPECT_EQ(module->xGetDelayUSec(2.5F), 2500000U);
    EXPECT_EQ(module->xGetDelayUSec(0.1F), 100000U);
    EXPECT_EQ(module->xGetDelayUSec(0.0000019F), 1U) << "cut off, not rounded";
    module->exit();
    EXPECT_FALSE(platform.broker->session().findService("_LaunchpadPluginTiming"));
}

}  // namespace
}  // namespace KR
