#include "tests/host/HostTest.h"

#include <array>

#include "life/ActivityPermissions.h"
#include "life/LifeStatus.h"

namespace KR {
namespace {

using testing::StartsWith;

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

/// The plugins are real programs.
TEST_F(HostTest, PluginsFollowTheLifeStateButThoseThatGoByTheirConditionsAlone)
{
    const std::pair<std::string, std::string> rows[] = {
        {"a", "<group>solitary</group>"},
        {"b", "<group>solitary</group><group>safeguard</group>"},
        {"c", "<group>conditional</group>"},
        {"d", "<group>conditional</group><group>safeguard</group>"},
        {"e", "<group>other</group>"},
        {"f", ""},
        {"x", "<group>solitary</group>"}};  // has no program
    packages = folder.path() + "/packages";
    std::string manifest = "{ConfigurationVersion: 1, Uuid: p, Version: 1, Behaviors: [";
    for (const auto& [name, groups] : rows) {
        manifest += "{Path: " + name + "}, ";
        folder.write(
            "packages/p/" + name + "/nimbraLaunchpadPlugin.xml",
            "<nimbraLaunchpadPlugin><groups>" + groups + "</groups></nimbraLaunchpadPlugin>");
        if (name != "x")
            writeProgram("packages/p/" + name, "exec tail -f /dev/null");
    }
    folder.write("packages/p/package.yaml", manifest + "]}");
    robotPlugins = {"PerceptionHeavy"};
    start(rule("works", "A", "Action: StopFocus"));
    EXPECT_EQ(plugins(), "+*abx?");
    raise("A", 1);
    EXPECT_THAT(told(), Contains("hit works")) << "one that cannot start leaves the others alive";
    host->life().setState("safeguard");
    host->launchpad().setPluginEnabled("p/c", true);
    clock->runPending();
    EXPECT_EQ(events.back()["plugin"], "p/c");
    EXPECT_EQ(events.back()["running"], true);
    const std::pair<const char*, const char*> states[] = {
        {"safeguard", "bcd"}, {"solitary", "+*abcx?"}, {"interactive", "+*c"}, {"disabled", "c"}};
    for (const auto& [state, expected] : states) {
        host->life().setState(state, true);
        EXPECT_EQ(plugins(), expected) << state;
    }
    host->stop();
    EXPECT_EQ(plugins(), "") << "unloaded";
    EXPECT_EQ(events.back()["running"], false);
    EXPECT_THAT(log.lines(vo::LogLevel::error),
                testing::AllOf(testing::Not(IsEmpty()), testing::Each(HasSubstr("p/x"))));
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
}

/// As when a construction fails: the event loop still runs.
TEST_F(HostTest, RefreshThatIsPostedWhenThePermissionsGoIsDropped)
{
    vo::Application application(clock);
    const auto broker = KRBroker::create(application);
    const LifeStatus life(broker);
    broker->memory().raiseEvent("KRBattery/ConnectedToChargingStation", false);
    alignas(ActivityPermissions) std::array<unsigned char, sizeof(ActivityPermissions)> place{};
    auto* permissions = new (place.data()) ActivityPermissions(broker);
    clock->runPending();
    permissions->violations("dialog:a");
    permissions->~ActivityPermissions();
    place.fill(0);  // what comes back finds nothing
    clock->runPending();
    EXPECT_THAT(place, testing::Each(0));
}

}  // namespace
}  // namespace KR
