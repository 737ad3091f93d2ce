#include <algorithm>
#include <future>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "host/Host.h"
#include "host/JsonTimeline.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/VirtualClock.h"
#include "tests/support/TemporaryFolder.h"

namespace KR {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A whole host on virtual time, with rules of the test's own.
class HostTest : public testing::Test {
protected:
    /// `rules` are elements of AutonomousActions; they read the keys A, B, C...
    void start(const std::string& rules)
    {
        const std::string config =
            folder.write("autonomy.cfg",
                         "ConfigurationDescription: d\nConfigurationVersion: \"2.0\"\n"
                         "AutonomousActions:\n" +
                             rules);
        host.emplace(clock, timeline, Host::Options{config, packages, vo::LogLevel::warning});
        clock->runPending();
        host->start();
        clock->runPending();
        events.erase(std::remove_if(events.begin(), events.end(),
                                    [](const auto& event) { return event["event"] == "plugin"; }),
                     events.end());
    }
    void raise(const std::string& key, const KRValue& value)
    {
        host->memory().raiseEvent(key, value);
        clock->runPending();
    }
    /// What was told since the last call, of the rules and the focus, one short text each.
    std::vector<std::string> told()
    {
        std::vector<std::string> result;
        for (const nlohmann::json& event : std::exchange(events, {})) {
            const std::string kind = event["event"];
            if (kind == "focus")
                result.push_back("focus " + event["activity"].get<std::string>());
            else if (kind == "step")
                result.push_back(event["outcome"].get<std::string>() + " " +
                                 event["step"].get<std::string>());
            else if (event.contains("rule") && kind != "state" && kind != "asleep")
                result.push_back(kind + " " + event["rule"].get<std::string>());
        }
        return result;
    }

    /// "name", with a "+" for one that is enabled and another for one that runs; of the built-in
    /// ones, the battery's alone.
    std::vector<std::string> plugins()
    {
        std::vector<std::string> result;
        for (const auto& plugin : host->launchpad().getPluginStates())
            if (plugin.name[0] != '_' || plugin.name == "_LaunchpadPluginBattery")
                result.push_back(plugin.name + (plugin.enabled ? "+" : "") +
                                 (plugin.running ? "+" : ""));
        return result;
    }

    vo::LogCapture log;
    TemporaryFolder folder;
    std::string packages;
    std::shared_ptr<vo::VirtualClock> clock =
        std::make_shared<vo::VirtualClock>(vo::TimePoint(std::chrono::hours(24 * 20000)));
    std::vector<nlohmann::json> events;
    Timeline timeline{clock, std::make_unique<JsonTimeline>([this](const std::string& line) {
                          events.push_back(nlohmann::json::parse(line));
                      })};
    std::optional<Host> host;
};

/// An edge rule: "- {Description: d, Condition: "'key'", ... rest}".
std::string rule(const std::string& name, const std::string& key, const std::string& rest)
{
    return "- {Description: " + name + ", Condition: \"'" + key +
           "'\", ExecuteAnyTimeConditionEdgeTrue: true, " + rest + "}\n";
}

std::string focusOn(const std::string& activity)
{
    return "Action: SwitchFocus, ActionParameters: {Activity: " + activity + "}";
}

TEST_F(HostTest, AllStepTypesDoWhatTheySay)
{
    start(rule("first", "A", R"(Actions: [
        {Action: SwitchFocus, ActionParameters: {Activity: p/a, Flags: 1, Reason: why}},
        {Action: BlockAutonomousFocus},
        {Action: SetState, ActionParameters: {State: interactive}},
        {Action: SetConfiguration, ActionParameters: {Module: KRAudioDevice, ConfigurationSet: night}},
        {Action: ApiCall, ActionParameters: {Module: KRLeds, Method: fade, Args: [eyes, 1, 0]}},
        {Action: FreezeChain, ActionParameters: {Chain: Head}},
        {Action: FreezeChain, ActionParameters: {Chain: Legs, Duration: 3}}])") +
          rule("second", "B", R"(Actions: [
        {Action: UnfreezeChain, ActionParameters: {Chain: Head}},
        {Action: UnblockAutonomousFocus},
        {Action: StopFocus, ActionParameters: {Reason: enough}}])") +
          rule("third", "C", "Action: StopAll"));
    raise("A", true);
    EXPECT_EQ(host->life().focusedActivity(), "p/a");
    EXPECT_TRUE(host->life().isAutonomousFocusBlocked());
    EXPECT_EQ(host->life().getState(), "interactive");
    EXPECT_EQ(vo::import("KRAudioDevice").call<int>("getOutputVolume"), 30);
    EXPECT_EQ(vo::import("KRLeds").call<double>("getIntensity", "eyes"), 1.0);
    EXPECT_THAT(host->life().getFrozenChains(), ElementsAre("Head", "Legs"));
    clock->advance(seconds(3));
    EXPECT_THAT(host->life().getFrozenChains(), ElementsAre("Head"));

    raise("B", true);
    EXPECT_THAT(host->life().getFrozenChains(), IsEmpty());
    EXPECT_FALSE(host->life().isAutonomousFocusBlocked());
    EXPECT_EQ(host->life().focusedActivity(), "");
    raise("C", true);
    EXPECT_EQ(told().back(), "done StopAll");
}

TEST_F(HostTest, StepThatIsRefusedOrFailsDropsTheRestOfItsActionOnly)
{
    const std::string then = ", {Action: SetState, ActionParameters: {State: disabled}}]";
    const auto call = [&](const std::string& parameters) {
        return "Actions: [{Action: ApiCall, ActionParameters: {" + parameters + "}}" + then;
    };
    const std::string rules[] = {
        call("Module: Nobody, Method: m"),
        call("Module: KRLeds, Method: nothing"),
        call("Module: KRLeds, Method: fade, Args: [eyes]"),
        call("Module: KRAudioDevice, Method: setOutputVolume, Args: [101]"),
        "Actions: [{Action: SetConfiguration, ActionParameters: {Module: KRLeds, "
        "ConfigurationSet: disco}}" +
            then,
        "Actions: [{Action: FreezeChain, ActionParameters: {Chain: Tail}}" + then,
        "Actions: [{Action: SetState, ActionParameters: {State: bored}}" + then,
        "Actions: [{Action: SwitchFocus, ActionParameters: {Activity: a, Flags: 8}}" + then};
    std::string all = rule("block", "A", "Action: BlockAutonomousFocus") +
                      rule("blocked", "A", "Actions: [{" + focusOn("p/a") + "}" + then);
    for (const std::string& each : rules)
        all += rule("failing", "A", each);
    start(all + rule("last", "A", "Action: StopFocus"));
    raise("A", true);
    std::size_t failed = 0;
    for (const nlohmann::json& event : events) {
        if (event["event"] != "step" || event["outcome"] == "done")
            continue;
        EXPECT_EQ(event["dropped"], 1) << event;
        EXPECT_FALSE(event["reason"].get<std::string>().empty());
        failed += event["outcome"] == "failed" ? 1 : 0;
    }
    EXPECT_EQ(failed, std::size(rules));
    EXPECT_EQ(host->life().getState(), "solitary");
    EXPECT_EQ(told().back(), "done StopFocus") << "the other actions go on";
}

TEST_F(HostTest, RuleListsOrderSkipAndDelay)
{
    start(rule("late", "A", "ExecuteAfterIfSimultaniouslyTrue: early, " + focusOn("p/late")) +
          rule("early", "A", focusOn("p/early")) +
          rule("skipping", "B", "SkipIfRulesActive: late, " + focusOn("p/skip")) +
          rule("waiting", "C", "ExcuteAfterActiveRules: late, " + focusOn("p/wait")));
    raise("A", true);
    EXPECT_THAT(told(), ElementsAre("hit early", "focus p/early", "done SwitchFocus", "hit late",
                                    "focus p/late", "done SwitchFocus"));
    raise("B", true);
    raise("C", true);
    EXPECT_THAT(told(),
                ElementsAre("hit skipping", "skip skipping", "hit waiting", "wait waiting"));

    host->life().stopFocus();
    clock->runPending();
    EXPECT_THAT(told(),
                ElementsAre("focus ", "resume waiting", "focus p/wait", "done SwitchFocus"));
    raise("B", false);
    raise("B", true);
    EXPECT_THAT(told(), ElementsAre("hit skipping", "focus p/skip", "done SwitchFocus"));
}

TEST_F(HostTest, ActionThatWaitedIsDroppedWhenItsConditionIsFalseOrAllIsStopped)
{
    start(rule("busy", "A", focusOn("p/busy")) +
          rule("waiting", "B", "ExcuteAfterActiveRules: busy, Action: StopFocus"));
    raise("A", true);
    raise("B", true);
    raise("B", false);
    told();
    host->life().stopFocus();
    clock->runPending();
    EXPECT_THAT(told(), ElementsAre("focus ", "drop waiting"));

    raise("A", false);
    raise("A", true);
    raise("B", true);
    told();
    host->life().stopAll();
    clock->runPending();
    EXPECT_THAT(told(), ElementsAre("focus ", "drop waiting"));
}

TEST_F(HostTest, RuleThatNamesItselfIsNotRepeatedWhileItsActivityLasts)
{
    start(
        "- {Description: charge, Condition: \"'A'\", ExecuteAnyTimeConditionTrue: true, "
        "SkipIfRulesActive: charge, " +
        focusOn("p/charge") + "}\n");
    raise("A", true);
    clock->advance(seconds(60));
    std::size_t skips = 0;
    for (const std::string& text : told())
        skips += text == "skip charge" ? 1 : 0;
    EXPECT_GE(skips, 9U);
    EXPECT_THAT(host->life().getFocusHistory(10), ElementsAre("p/charge"));
    host->life().stopFocus();
    clock->advance(seconds(6));
    EXPECT_EQ(host->life().focusedActivity(), "p/charge") << "still true: started again";
}

TEST_F(HostTest, RulesBeforeAnActivityComeOnceBeforeWhoeverStartsIt)
{
    const std::string before =
        ", Condition: \"'K' == 1\", ExecuteBeforeActivityIfConditionTrue: true, ";
    start(rule("start", "A", focusOn("p/a")) + "- {Description: prepare" + before +
          "Actions: [{Action: SetConfiguration, ActionParameters: {Module: KRLeds, "
          "ConfigurationSet: day}}, {" +
          focusOn("p/other") + "}]}\n" + "- {Description: refused" + before +
          "ExcuteAfterActiveRules: start, " + focusOn("p/no") + "}\n");
    raise("A", true);
    EXPECT_THAT(told(), ElementsAre("hit start", "focus p/a", "done SwitchFocus"));
    raise("K", 1);
    raise("A", false);
    host->life().stopFocus();
    told();

    raise("A", true);
    EXPECT_THAT(told(), ElementsAre("hit start", "hit prepare", "done SetConfiguration",
                                    "focus p/other", "done SwitchFocus", "hit refused",
                                    "skip refused", "focus p/a", "done SwitchFocus"));
    vo::import("KRNimbra").call<void>("switchFocus", "p/person");
    EXPECT_THAT(told(), testing::Contains("hit prepare"));
    EXPECT_EQ(host->life().focusedActivity(), "p/person");
}

TEST_F(HostTest, ChangesOfKeysThatRulesReadAreToldBeforeWhatTheyCause)
{
    start(rule("go", "A", focusOn("p/a")));
    raise("Unread", 1);
    raise("A", 0);
    raise("A", 0);
    raise("A", 1);
    std::vector<std::string> kinds;
    for (const nlohmann::json& event : events)
        kinds.push_back(event["event"]);
    EXPECT_THAT(kinds, ElementsAre("key", "key", "hit", "focus", "step"));
    EXPECT_EQ(events[1]["value"], 1);
}

/// The behaviours are real programs.
TEST_F(HostTest, LifeStateSwitchesPluginsOfItsGroupAndConditionsSwitchTheirOwn)
{
    packages = folder.path() + "/packages";
    folder.write("packages/p/package.yaml",
                 "{ConfigurationVersion: 1, Uuid: p, Version: 1, Behaviors: [{Path: group}, "
                 "{Path: trigger}]}");
    for (const std::string behavior : {"group", "trigger"}) {
        const std::string run =
            folder.write("packages/p/" + behavior + "/run", "#!/bin/sh\nexec tail -f /dev/null\n");
        std::filesystem::permissions(run, std::filesystem::perms::owner_all);
    }
    folder.write("packages/p/group/nimbraLaunchpadPlugin.xml",
                 "<nimbraLaunchpadPlugin><groups><group>interactive</group></groups>"
                 "</nimbraLaunchpadPlugin>");
    folder.write("packages/p/trigger/nimbraLaunchpadPlugin.xml",
                 "<nimbraLaunchpadPlugin><conditions>"
                 "<condition purpose='launchTrigger'>'A' == 1</condition>"
                 "<condition purpose='terminationTrigger'>'A' == 2</condition>"
                 "</conditions></nimbraLaunchpadPlugin>");
    start(rule("unused", "B", "Action: StopAll"));
    const std::string battery = "_LaunchpadPluginBattery";
    EXPECT_THAT(plugins(), ElementsAre(battery + "++", "p/group", "p/trigger"));
    raise("A", 1);
    EXPECT_THAT(plugins(), ElementsAre(battery + "++", "p/group", "p/trigger++"));
    host->life().setState("interactive");
    EXPECT_THAT(plugins(), ElementsAre(battery + "++", "p/group++", "p/trigger++"));
    host->life().setState("safeguard");
    EXPECT_THAT(plugins(), ElementsAre(battery, "p/group", "p/trigger++"));
    raise("A", 2);
    EXPECT_THAT(plugins(), ElementsAre(battery, "p/group", "p/trigger"));
    raise("A", 1);
    host->stop();
    EXPECT_THAT(plugins(), testing::IsEmpty()) << "unloaded";
    EXPECT_THAT(log.lines(vo::LogLevel::error),
                ElementsAre(HasSubstr("Can't load default config file")));
}

TEST_F(HostTest, CircleOfRulesIsWarnedAboutOnce)
{
    start(rule("a", "A", "ExecuteAfterIfSimultaniouslyTrue: b, Action: StopFocus") +
          rule("b", "A", "ExecuteAfterIfSimultaniouslyTrue: a, Action: StopFocus"));
    for (int i = 0; i < 3; ++i) {
        raise("A", false);
        raise("A", true);
    }
    EXPECT_THAT(log.lines(vo::LogLevel::warning), ElementsAre(HasSubstr("a after b after a")));
}

TEST_F(HostTest, EachPulseIsOneHitInOrder)
{
    constexpr int kPulses = 1000;
    start(rule("pulse", "A", "Action: StopFocus"));
    for (int i = 0; i < kPulses; ++i) {
        host->memory().raiseEvent("A", 0);
        host->memory().raiseEvent("A", 1);
    }
    clock->runPending();
    EXPECT_EQ(told().size(), 2U * kPulses);
}

TEST_F(HostTest, MistakesOfTheConfigurationAreErrorsOrLeaveTheConstructor)
{
    start(rule("bad", "A'", "Action: StopFocus"));
    ASSERT_EQ(events.size(), 1U) << "nothing about the default file, which is not used";
    EXPECT_EQ(events[0]["event"], "error");
    EXPECT_THAT(events[0]["text"].get<std::string>(), HasSubstr("Cannot add condition"));
    host.reset();
    EXPECT_ANY_THROW(host.emplace(
        clock, timeline, Host::Options{folder.path() + "/missing", {}, vo::LogLevel::warning}));
}

/// Real threads: proves that the parts are wired to the event loop, the checker's thread and the
/// feed, and go away in order while work is under way.
TEST_F(HostTest, LivesOnRealThreads)
{
    const std::string config =
        folder.write("live.cfg",
                     "ConfigurationDescription: d\nConfigurationVersion: \"2.0\"\n"
                     "AutonomousActions:\n" +
                         rule("go", "A", focusOn("p/a")));
    std::promise<void> started;
    const std::shared_ptr<vo::Clock> real = vo::makeRealClock();
    Timeline live(real, std::make_unique<JsonTimeline>([](const std::string&) {}));
    Host liveHost(real, live, {config, {}, vo::LogLevel::silent});
    liveHost.life().changed.connect([&](const LifeEvent& event) {
        if (event.subject == "p/a" && event.lost == 0)
            started.set_value();
    });
    liveHost.start({"B"});
    liveHost.memory().raiseEvent("A", 1);
    EXPECT_EQ(started.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    for (int i = 0; i < 1000; ++i) {
        liveHost.memory().raiseEvent("B", i);
        liveHost.memory().raiseEvent("A", i % 2);
    }
    liveHost.stop();
}

}  // namespace
}  // namespace KR
