#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <optional>
#include <unistd.h>

#include "launchpad/NimbraLaunchpad.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {

/// Reaches the launchpad's private parts. Its users are alone with the launchpad, so no lock is
/// taken, and the analysis of locks is off.
class NimbraLaunchpadTestAccess {
public:
    bool removeAll(const char* from) VO_NO_THREAD_SAFETY_ANALYSIS { return l._removeActions(from); }
    void bind(unsigned id) VO_NO_THREAD_SAFETY_ANALYSIS { l._registerActionCondition(id); }
    void hit(const ConditionChecker::Hits& hits) { l._conditionHit(hits); }
    auto& actions() VO_NO_THREAD_SAFETY_ANALYSIS { return l.actions_; }
    auto& conditions() VO_NO_THREAD_SAFETY_ANALYSIS { return l.conditionToAction_; }
    auto& checker() { return l.conditionChecker_; }
    bool configControlsDialog() const { return l.configControlsDialog_; }

    /// Returns the id of the condition.
    unsigned add(const std::string& description, const std::string& condition,
                 std::uint32_t synchronicity = 1) VO_NO_THREAD_SAFETY_ANALYSIS
    {
        const unsigned id =
            l._addAction({description, "Test", {}, condition, 0, synchronicity, {}, {}, {}});
        return actions().count(id) ? actions()[id].conditionId : 0;
    }

    NimbraLaunchpad& l;
};

/// A whole configuration: action "a", StopAll, when 'K' becomes 1.
constexpr const char* kOneAction =
    "{ConfigurationDescription: d, ConfigurationVersion: 2, AutonomousActions: [{Description: a, "
    "Condition: \"'K' == 1\", Action: StopAll, ExecuteAnyTimeConditionEdgeTrue: true}]}";

using Names = std::vector<std::string>;

inline Names namesOf(const std::list<AutonomousAction>& actions)
{
    Names names;
    for (const auto& action : actions)
        names.push_back(action.description);
    return names;
}

struct RecordingResponder : NimbraLaunchpadResponder {
    void processActions(const std::list<AutonomousAction>& actions,
                        const PersistentValues&) override
    {
        calls.push_back(namesOf(actions));
        if (onCall)
            onCall();
    }
    void onPluginsChanged() override {}

    std::vector<Names> calls;
    std::function<void()> onCall;
};

/// A folder of the test's own, in which the default configuration is looked for and nowhere else.
struct ConfigurationFolder {
    ConfigurationFolder()
    {
        std::filesystem::create_directories(path / "tessel");
        for (const char* variable : {"XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "NIMBRA_PREFIX"})
            setenv(variable, path.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no thread yet
    }
    ~ConfigurationFolder() { std::filesystem::remove_all(path); }
    std::string write(const std::string& name, const std::string& text) const
    {
        std::ofstream(path / name) << text;
        return path / name;
    }

    const std::filesystem::path path =
        std::filesystem::path(testing::TempDir()) / ("launchpad-" + std::to_string(getpid()));
};

/// A launchpad on virtual time that came up without any action.
struct LaunchpadTest : testing::Test {
    void load(const std::string& text)
    {
        launchpad->loadConfigFile(folder.write(
            "test.cfg", "ConfigurationDescription: Test\nConfigurationVersion: \"2.0\"\n" + text));
    }
    void raiseK(int value) { platform.memory().raiseEvent("K", value); }

    ConfigurationFolder folder;
    VirtualPlatform platform;
    RecordingResponder responder;
    std::optional<NimbraLaunchpad> launchpad{std::in_place, platform.broker, nullptr, &responder};
    NimbraLaunchpadTestAccess access{*launchpad};
};

}  // namespace KR
