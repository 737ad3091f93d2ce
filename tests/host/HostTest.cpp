#include "tests/host/HostTest.h"

#include <array>
#include <future>
#include <yaml-cpp/exceptions.h>

#include "tests/support/Testing.h"

namespace KR {
namespace {

using std::chrono::seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST_F(HostTest, AllStepTypesDoWhatTheySay)
{
    start(rule("first", "A", R"(Actions: [
        {Action: SwitchFocus, ActionParameters: {Activity: dialog:a, Flags: 1, Reason: why}},
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
    EXPECT_EQ(host->life().focusedActivity(), "dialog:a");
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
                      rule("blocked", "A", "Actions: [{" + focusOn("dialog:a") + "}" + then);
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
    start(rule("late", "A", "ExecuteAfterIfSimultaniouslyTrue: early, " + focusOn("dialog:late")) +
          rule("early", "A", focusOn("dialog:early")) +
          rule("skipping", "B", "SkipIfRulesActive: late, " + focusOn("dialog:skip")) +
          rule("waiting", "C", "ExcuteAfterActiveRules: late, " + focusOn("dialog:wait")));
    raise("A", true);
    EXPECT_THAT(told(), ElementsAre("hit early", "focus dialog:early", "done SwitchFocus",
                                    "hit late", "focus dialog:late", "done SwitchFocus"));
    raise("B", true);
    raise("C", true);
    EXPECT_THAT(told(),
                ElementsAre("hit skipping", "skip skipping", "hit waiting", "wait waiting"));

    host->life().stopFocus();
    clock->runPending();
    EXPECT_THAT(told(),
                ElementsAre("focus ", "resume waiting", "focus dialog:wait", "done SwitchFocus"));
    raise("B", false);
    raise("B", true);
    EXPECT_THAT(told(), ElementsAre("hit skipping", "focus dialog:skip", "done SwitchFocus"));
}

TEST_F(HostTest, ActionThatWaitedIsDroppedWhenItsConditionIsFalseOrAllIsStopped)
{
    start(rule("busy", "A", focusOn("dialog:busy")) +
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
        focusOn("dialog:charge") + "}\n");
    raise("A", true);
    clock->advance(seconds(60));
    std::size_t skips = 0;
    for (const std::string& text : told())
        skips += text == "skip charge" ? 1 : 0;
    EXPECT_GE(skips, 9U);
    EXPECT_THAT(host->life().getFocusHistory(10), ElementsAre("dialog:charge"));
    host->life().stopFocus();
    clock->advance(seconds(6));
    EXPECT_EQ(host->life().focusedActivity(), "dialog:charge") << "still true: started again";
}

TEST_F(HostTest, RulesBeforeAnActivityComeOnceBeforeWhoeverStartsIt)
{
    const std::string before =
        ", Condition: \"'K' == 1\", ExecuteBeforeActivityIfConditionTrue: true, ";
    start(rule("start", "A", focusOn("dialog:a")) + "- {Description: prepare" + before +
          "Actions: [{Action: SetConfiguration, ActionParameters: {Module: KRLeds, "
          "ConfigurationSet: day}}, {" +
          focusOn("dialog:other") + "}]}\n" + "- {Description: refused" + before +
          "ExcuteAfterActiveRules: start, " + focusOn("dialog:no") + "}\n");
    raise("A", true);
    EXPECT_THAT(told(), ElementsAre("hit start", "focus dialog:a", "done SwitchFocus"));
    raise("K", 1);
    raise("A", false);
    host->life().stopFocus();
    told();

    raise("A", true);
    EXPECT_THAT(told(), ElementsAre("hit start", "hit prepare", "done SetConfiguration",
                                    "focus dialog:other", "done SwitchFocus", "hit refused",
                                    "skip refused", "focus dialog:a", "done SwitchFocus"));
    vo::import("KRNimbra").call<void>("switchFocus", "dialog:person");
    EXPECT_THAT(told(), testing::Contains("hit prepare"));
    EXPECT_EQ(host->life().focusedActivity(), "dialog:person");
}

TEST_F(HostTest, ChangesOfKeysThatRulesReadAreToldBeforeWhatTheyCause)
{
    start(rule("go", "A", focusOn("dialog:a")) +
              rule("read", "Launchpad/Minute' == 99 && 'Nimbra/State' && 'B", "Action: StopAll"),
          {"More"});
    EXPECT_EQ(host->memory().getData("TesselReady"), KRValue(1));
    for (const char* key : {"Unread", "Launchpad/Minute", "Nimbra/State", "B", "More"})
        raise(key, 7);
    raise("A", 0);
    raise("A", 0);
    raise("A", 1);
    std::vector<std::string> kinds;
    for (const nlohmann::json& event : events)
        kinds.push_back(event[event["event"] == "key" ? "key" : "event"]);
    EXPECT_THAT(kinds, ElementsAre("B", "More", "A", "A", "hit", "focus", "step"));
    EXPECT_EQ(events[3]["value"], 1);
    for (int i = 0; i < 2; ++i)
        host->stop();
    EXPECT_EQ(host->memory().getData("KRDialog/Topic"), KRValue("")) << "it is stopped";
}

/// The behaviours are real programs.
TEST_F(HostTest, LifeStateSwitchesPluginsOfItsGroupAndConditionsSwitchTheirOwn)
{
    packages = folder.path() + "/packages";
    folder.write("packages/p/package.yaml",
                 "{ConfigurationVersion: 1, Uuid: p, Version: 1, Behaviors: [{Path: group}, "
                 "{Path: trigger}]}");
    for (const std::string behavior : {"group", "trigger"})
        writeProgram("packages/p/" + behavior, "exec tail -f /dev/null");
    folder.write("packages/p/group/nimbraLaunchpadPlugin.xml",
                 "<nimbraLaunchpadPlugin><groups><group>interactive</group></groups>"
                 "</nimbraLaunchpadPlugin>");
    folder.write("packages/p/trigger/nimbraLaunchpadPlugin.xml",
                 "<nimbraLaunchpadPlugin><conditions>"
                 "<condition purpose='launchTrigger'>'A' == 1</condition>"
                 "<condition purpose='terminationTrigger'>'A' == 2</condition>"
                 "</conditions></nimbraLaunchpadPlugin>");
    start(rule("unused", "B", "Action: StopAll"));
    events.clear();
    const std::string battery = "_LaunchpadPluginBattery";
    EXPECT_THAT(plugins(), ElementsAre(battery + "++", "p/group", "p/trigger"));
    raise("A", 1);
    EXPECT_THAT(plugins(), ElementsAre(battery + "++", "p/group", "p/trigger++"));
    EXPECT_EQ(events.back()["plugin"], "p/trigger");
    EXPECT_EQ(events.back()["running"], true);
    host->life().setState("interactive");
    EXPECT_THAT(plugins(), ElementsAre(battery + "++", "p/group++", "p/trigger++"));
    host->life().setState("safeguard");
    EXPECT_THAT(plugins(), ElementsAre(battery, "p/group", "p/trigger++"));
    raise("A", 2);
    EXPECT_THAT(plugins(), ElementsAre(battery, "p/group", "p/trigger"));
    raise("A", 1);
    host->stop();
    EXPECT_THAT(plugins(), testing::IsEmpty()) << "unloaded";
    EXPECT_EQ(events.back()["running"], false);
    EXPECT_THAT(log.lines(vo::LogLevel::error), IsEmpty());
}

TEST_F(HostTest, PluginThatCannotStartLeavesTheOthersAlive)
{
    packages = folder.path() + "/packages";
    folder.write("packages/p/package.yaml",
                 "{ConfigurationVersion: 1, Uuid: p, Version: 1, Behaviors: [{Path: broken}]}");
    folder.write("packages/p/broken/nimbraLaunchpadPlugin.xml",
                 "<nimbraLaunchpadPlugin><groups><group>solitary</group></groups>"
                 "</nimbraLaunchpadPlugin>");
    start(rule("works", "A", "Action: StopFocus"));
    EXPECT_THAT(plugins(), ElementsAre("_LaunchpadPluginBattery++", "p/broken+"));
    EXPECT_THAT(log.lines(vo::LogLevel::error), Contains(HasSubstr("p/broken")));
    raise("A", true);
    EXPECT_THAT(told(), Contains("hit works"));
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

/// Wherever it came from: rules, packages at the start, and packages that are installed later.
TEST_F(HostTest, WhatCannotBeWatchedIsAnErrorOfTheRun)
{
    packages = folder.path() + "/packages";
    const std::string triggers =
        ", Version: 1, Behaviors: [{Path: b, Conditions: {launchTrigger: "
        "\"'X' ==\"}}, {Path: c, Conditions: {launchTrigger: \"'Y'\"}}]}";
    for (const std::string path : {"packages/early", "late"}) {
        const std::string uuid = path.substr(path.find('/') + 1);
        folder.write(path + "/package.yaml", "{ConfigurationVersion: 1, Uuid: " + uuid + triggers);
        for (const std::string behavior : {"/b", "/c"})
            writeProgram(path + behavior, "exit 0");
    }
    start(rule("bad", "A'", "Action: StopFocus"));
    vo::import("PackageManager").call("install", folder.path() + "/late");
    clock->runPending();
    std::vector<std::string> errors;
    for (const nlohmann::json& event : events)
        errors.push_back(event["event"].get<std::string>() + event["text"].get<std::string>());
    const std::string begin = "error_registerActionCondition: Cannot add condition: ";
    const std::string behavior = ", for action: Action swithFocus to behavior ";
    EXPECT_THAT(errors,
                ElementsAre(StartsWith(begin + "'A'', for action: bad: "),
                            HasSubstr(behavior + "early/b: "), HasSubstr(behavior + "late/b: ")));
    EXPECT_THAT(log.lines(vo::LogLevel::info),
                Contains(HasSubstr("0 autonomous actions loaded from applauncher_module")));

    // What would never be watched, as there is no such file, leaves the constructor.
    host.reset();
    EXPECT_THAT(
        errorOf<YAML::BadFile>([&] {
            host.emplace(clock, timeline, Host::Options{"/none", {}, vo::LogLevel::warning});
        }),
        HasSubstr("/none: No such file"));
}

/// As when a construction fails: the event loop still runs.
TEST_F(HostTest, RefreshThatIsPostedWhenThePermissionsGoIsDropped)
{
    vo::Application application(clock);
    const auto broker = KRBroker::create(application);
    const auto life = KRModule::createModule<LifeService>(broker);
    broker->memory().raiseEvent("KRBattery/ConnectedToChargingStation", false);
    alignas(ActivityPermissions) std::array<unsigned char, sizeof(ActivityPermissions)> place{};
    auto* permissions = new (place.data()) ActivityPermissions(broker);
    clock->runPending();
    permissions->violations("dialog:a");
    permissions->~ActivityPermissions();
    place.fill(0);  // what comes back finds nothing
    clock->runPending();
    EXPECT_THAT(place, testing::Each(0));
    life->exit();
}

/// Real threads: proves that the parts are wired to the event loop, the checker's thread and the
/// feed, and go away in order while work is under way.
TEST_F(HostTest, LivesOnRealThreads)
{
    const std::string config =
        folder.write("live.cfg",
                     "ConfigurationDescription: d\nConfigurationVersion: \"2.0\"\n"
                     "AutonomousActions:\n" +
                         rule("go", "A", focusOn("dialog:a")));
    std::promise<void> started;
    const std::shared_ptr<vo::Clock> real = vo::makeRealClock();
    Timeline live(real, std::make_unique<JsonTimeline>([](const std::string&) {}));
    Host liveHost(real, live, {config, {}, vo::LogLevel::silent});
    liveHost.life().changed.connect([&](const LifeEvent& event) {
        if (event.subject == "dialog:a" && event.lost == 0)
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
