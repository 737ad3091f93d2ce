#pragma once

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <optional>
#include <set>

#include "launchpad/NimbraLaunchpad.h"
#include "platform/vo/PackageInfo.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {

/// Reaches the launchpad's private parts. Its users are alone with the launchpad, so no lock is
/// taken, and the analysis of locks is off.
class NimbraLaunchpadTestAccess {
public:
    bool removeAll(const char* from) VO_NO_THREAD_SAFETY_ANALYSIS { return l._removeActions(from); }
    void unload(const char* plugin) { l._unloadPlugin(plugin); }
    void bind(unsigned id) VO_NO_THREAD_SAFETY_ANALYSIS { l._registerActionCondition(id); }
    void hit(const ConditionChecker::Hits& hits) { l._conditionHit(hits); }
    auto& actions() VO_NO_THREAD_SAFETY_ANALYSIS { return l.actions_.actions_; }
    auto& conditions() VO_NO_THREAD_SAFETY_ANALYSIS { return l.actions_.conditionToAction_; }
    auto& checker() { return l.conditionChecker_; }
    auto& plugins() VO_NO_THREAD_SAFETY_ANALYSIS { return l.plugins_.plugins_; }
    void load(const std::string& name, const boost::shared_ptr<NimbraLaunchpadPlugin>& plugin)
    {
        l.plugins_.add(name, plugin);
    }
    /// Returns if this thread holds neither.
    void takeLocks()
    {
        const vo::Lock plugins(l.plugins_.mutex_);
        const vo::Lock actions(l.actions_.mutex_);
    }
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
                        const PersistentValues& persistentValues) override
    {
        calls.push_back(namesOf(actions));
        values = persistentValues;
        onCall();
    }
    void onPluginsChanged() override
    {
        ++pluginChanges;
        onCall();
    }

    std::vector<Names> calls;
    PersistentValues values;  ///< of the latest call
    int pluginChanges = 0;
    std::function<void()> onCall = [] {};
};

/// A package with the behaviour "b", which is launched by 'K'.
inline vo::PackageInfo launchedPackage(const std::string& uuid,
                                       vo::BehaviorInfo behavior = vo::BehaviorInfo("b"))
{
    behavior.addCondition("launchTrigger", "'K'");
    vo::PackageInfo package(uuid, "/nowhere");
    package.addBehavior(behavior);
    return package;
}

/// The services that packages need. What is installed is what the test says; calls that change
/// something are noted.
struct FakeServices {
    explicit FakeServices(vo::Session& session)
    {
        objects[0]->signal("onPackageInstalled", installed).signal("onPackageRemoved", removed);
        objects[0]->method("packages", [this] {
            onPackages();
            return packages;
        });
        objects[0]->method("hasPackage", [this](const std::string& uuid) {
            fail("hasPackage " + uuid);
            return std::any_of(packages.begin(), packages.end(),
                               [&](const auto& package) { return package.uuid() == uuid; });
        });
        objects[2]->method("isBehaviorRunning", [this](const std::string& key) {
            return !calls.empty() && calls.back() == "startBehavior " + key;
        });
        for (const auto& object : objects) {
            for (const std::string name : {"removePkg", "_declarePathForTagsPermanently",
                                           "preloadBehavior", "startBehavior", "stopBehavior"})
                object->method(name, [this, name](const std::string& argument) {
                    calls.push_back(std::string(name).append(" ").append(argument));
                    fail(calls.back());
                });
            session.registerService(object);
        }
    }

    void fail(const std::string& call) const
    {
        if (failing.count(call))
            throw std::runtime_error("broken");
    }

    std::vector<vo::PackageInfo> packages;
    std::function<void()> onPackages = [] {};  ///< while they are asked for
    Names calls;
    std::set<std::string> failing;
    vo::Signal<vo::PackageInfo> installed;
    vo::Signal<vo::PackageInfo> removed;
    const std::shared_ptr<vo::ServiceObject> objects[3] = {
        std::make_shared<vo::ServiceObject>("PackageManager"),
        std::make_shared<vo::ServiceObject>("KRAnimationPlayer"),
        std::make_shared<vo::ServiceObject>("KRBehaviorManager")};
};

/// A folder in which the default configuration is looked for, and nowhere else.
struct ConfigurationFolder : TemporaryFolder {
    ConfigurationFolder()
    {
        for (const char* variable : {"XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "NIMBRA_PREFIX"})
            setenv(variable, path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no thread yet
    }
};

/// What a launchpad needs on real threads, so that a race or a deadlock can show itself.
struct LaunchpadThreads : testing::Test {
    const ConfigurationFolder folder;
    const vo::LogCapture log;
    const std::shared_ptr<vo::Clock> clock = vo::makeRealClock();
    vo::Application application{clock};
    const boost::shared_ptr<KRBroker> broker = KRBroker::create(application);
    RecordingResponder responder;
};

/// A launchpad on virtual time that came up without any action.
struct LaunchpadTest : testing::Test {
    LaunchpadTest() { reportErrors(); }
    void load(const std::string& text)
    {
        launchpad->loadConfigFile(folder.write(
            "test.cfg", "ConfigurationDescription: Test\nConfigurationVersion: \"2.0\"\n" + text));
    }
    void raiseK(int value) { platform.memory().raiseEvent("K", value); }
    /// What the launchpad has logged since the last call: lines of "level label: text". Its errors
    /// have been reported, too.
    std::string logged()
    {
        std::string lines;
        std::string errors;
        for (const auto& [time, level, category, label, text] : platform.log.records()) {
            const std::string line = label + ": " + text + "\n";
            if (category == "NimbraLaunchpad")
                lines += vo::logLevelName(level) + (" " + line);
            if (category == "NimbraLaunchpad" && level == vo::LogLevel::error)
                errors += line;
        }
        platform.log.clear();
        EXPECT_EQ(std::exchange(observed, {}), errors);
        EXPECT_EQ(std::exchange(reported, {}), errors);
        return lines;
    }
    void comeUp(ContextPermission* permission = nullptr,
                const std::optional<std::string>& configuration = std::nullopt)
    {
        launchpad.emplace(platform.broker, permission, &responder, configuration, observer());
        reportErrors();
    }
    LaunchpadObserver observer()
    {
        return {[this](const std::string& label, const std::string& text) {
            observed += label + ": " + text + "\n";
        }};
    }
    /// Errors while it came up nobody could have connected to.
    void reportErrors()
    {
        reported = observed;
        connection = launchpad->errorReported.connect(
            [this](const std::string& label, const std::string& text) {
                reported += label + ": " + text + "\n";
                access.takeLocks();
            });
    }
    /// A package of the test's folder whose behaviours are plugins with this in their descriptors.
    vo::PackageInfo pluginPackage(const std::string& uuid, const Names& behaviors,
                                  const std::string& content = "")
    {
        vo::PackageInfo package(uuid, folder.path());
        for (const std::string& behavior : behaviors) {
            folder.write(behavior + "/nimbraLaunchpadPlugin.xml",
                         "<nimbraLaunchpadPlugin>" + content + "</nimbraLaunchpadPlugin>");
            package.addBehavior(vo::BehaviorInfo(behavior));
        }
        return package;
    }
    void change(vo::Signal<vo::PackageInfo>& signal, const vo::PackageInfo& package)
    {
        signal(package);
        platform.runPending();
    }

    ConfigurationFolder folder;
    VirtualPlatform platform;
    FakeServices services{platform.application.session()};
    RecordingResponder responder;
    // Errors since the last call of logged().
    std::string observed;
    std::string reported;
    std::optional<NimbraLaunchpad> launchpad{std::in_place, platform.broker, nullptr,
                                             &responder,    std::nullopt,    observer()};
    NimbraLaunchpadTestAccess access{*launchpad};
    vo::Connection connection;
};

}  // namespace KR
