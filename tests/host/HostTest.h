#pragma once

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "host/Host.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/VirtualClock.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"
#include "timeline/JsonTimeline.h"
#include "timeline/Timeline.h"

namespace KR {

/// A whole host on virtual time, with rules of the test's own.
class HostTest : public testing::Test {
protected:
    /// `rules` are elements of AutonomousActions; they read the keys A, B, C...
    void start(const std::string& rules, const std::vector<std::string>& moreKeys = {})
    {
        const std::string config =
            folder.write("autonomy.cfg",
                         "ConfigurationDescription: d\nConfigurationVersion: \"2.0\"\n"
                         "AutonomousActions:\n" +
                             rules);
        timeline.follow(stream);
        stream.publish(RunBegan{{}, config, {}, {}, moreKeys, {}});
        host.emplace(clock, stream, Host::Options{config, packages, robotPlugins});
        clock->runPending();
        host->start();
        clock->runPending();
        events.erase(std::remove_if(events.begin(), events.end(),
                                    [](const auto& event) {
                                        return event["event"] == "plugin" ||
                                               event["event"] == "start";
                                    }),
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

    /// Has the robot's packages folder hold those of the demo day.
    void useDemoPackages()
    {
        packages = folder.path() + "/packages";
        std::filesystem::create_directory(packages);
        for (const char* package : {"companion", "daydream", "power", "run_dialog"})
            std::filesystem::copy(std::string(NIMBRA_TEST_DATA "/packages/") + package,
                                  packages + "/" + package,
                                  std::filesystem::copy_options::recursive);
    }

    /// Writes a behaviour's program, a shell script.
    void writeProgram(const std::string& path, const std::string& script) const
    {
        const std::string run = folder.write(path + "/run", "#!/bin/sh\n" + script + "\n");
        std::filesystem::permissions(run, std::filesystem::perms::owner_all);
    }

    /// The enabled plugins, with a "?" behind one that does not run. Of the built-in ones, "+" is
    /// the battery's and "*" that of perception.
    std::string plugins()
    {
        std::map<std::string, std::string> shown{{"_LaunchpadPluginBattery", "+"},
                                                 {"_LaunchpadPluginPerceptionHeavy", "*"}};
        std::string text;
        for (const auto& plugin : host->launchpad().getPluginStates()) {
            const std::string name = plugin.builtIn ? shown[plugin.name] : plugin.name.substr(2);
            if (plugin.enabled && !name.empty())
                text += name + (plugin.running ? "" : "?");
        }
        return text;
    }

    vo::LogCapture log;
    TemporaryFolder folder;
    std::string packages;
    std::vector<std::string> robotPlugins;  ///< that are added to the built-in ones
    std::shared_ptr<vo::VirtualClock> clock =
        std::make_shared<vo::VirtualClock>(vo::TimePoint(std::chrono::hours(24 * 20000)));
    std::vector<nlohmann::json> events;
    EventStream stream{clock};
    Timeline timeline{std::make_unique<JsonTimeline>(
        [this](const std::string& line) { events.push_back(nlohmann::json::parse(line)); })};
    std::optional<Host> host;
};

/// An edge rule: "- {Description: d, Condition: "'key'", ... rest}".
inline std::string rule(const std::string& name, const std::string& key, const std::string& rest)
{
    return "- {Description: " + name + ", Condition: \"'" + key +
           "'\", ExecuteAnyTimeConditionEdgeTrue: true, " + rest + "}\n";
}

inline std::string focusOn(const std::string& activity)
{
    return "Action: SwitchFocus, ActionParameters: {Activity: " + activity + "}";
}

}  // namespace KR
