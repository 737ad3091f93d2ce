#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "launchpad/ActionCopies.h"
#include "launchpad/ActionTable.h"
#include "launchpad/AutonomousAction.h"
#include "launchpad/LaunchpadObserver.h"
#include "launchpad/NimbraLaunchpadResponder.h"
#include "launchpad/PackageChanges.h"
#include "launchpad/PluginRegistry.h"
#include "launchpad/ServiceWait.h"
#include "platform/conditions/ConditionChecker.h"
#include "platform/kr/KRBroker.h"
#include "platform/vo/AnyObject.h"
#include "platform/vo/CallbackGate.h"
#include "platform/vo/Connection.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/Signal.h"

namespace vo {
class BehaviorInfo;
class PackageInfo;
}  // namespace vo

namespace YAML {
class Node;
}

namespace KR {

class ContextPermission;
class LaunchpadNews;
struct BuiltinPlugin;

/// Decides what the robot does on its own initiative: keeps the table of autonomous actions, has
/// their conditions evaluated, and hands the actions whose conditions were hit to the responder.
///
///     constructed --startMonitoringConditions()--> monitoring
///     monitoring --stopMonitoringConditions()--> constructed
///     either --exit()--> ended, to be destroyed
///
/// It needs the service "PackageManager", which tells what is installed: each behaviour with a
/// launch trigger becomes an activity that launches itself, with an action made for it, and each
/// that describes a plugin becomes one. Installations and removals that come later are followed on
/// the platform's threads; those that come during construction, when it is over. The service
/// "KRAnimationPlayer" is needed for packages with dialog reflexes, and "KRBehaviorManager" for
/// those with plugins, which are not there until it is: both construction and what follows the
/// packages wait for it.
///
/// Owned by the host, as are the permission object and the responder, which must outlive it. A
/// responder call that is still queued when the launchpad goes is dropped.
///
/// Thread-safe, but for loadModule(). Lock order: the checker lock, then the data lock; the
/// condition checker's own locks come last. No lock is held while the responder or a receiver of
/// one of the signals runs. Lines are logged with locks held, so a listener of the log must not
/// call the launchpad.
class NimbraLaunchpad {
    // First, as the signals are parts of it. Constant after construction.
    const std::shared_ptr<LaunchpadNews> news_;

public:
    /// The category of its lines in the log.
    static constexpr const char* kLogCategory = "NimbraLaunchpad";

    // Both are emitted with no lock held, one emission at a time, in the order in which things
    // happened. What an operation brings about is told on the calling thread before it returns,
    // unless another thread is just telling and so tells of this too; so is what becomes of a
    // package, on the platform's signal queue, and what a plugin's conditions do, on the event
    // loop. Receivers may use the launchpad, but must not destroy it. After its destruction nothing
    // is emitted any more.

    /// A plugin has been started (true) or stopped (false).
    vo::Signal<std::string, bool>& pluginSwitched;
    /// Something has failed, and was logged as an error: the function that speaks, and the text.
    /// What fails outside of an operation, as a hit or the responder, is told on the event loop.
    vo::Signal<std::string, std::string>& errorReported;

    /// Comes up with the default configuration file, what installed packages bring, the built-in
    /// plugins and the actions of the main interactive activity module. A failing configuration,
    /// plugin or module is logged and left out. Monitoring is not started.
    ///
    /// `configuration` is a file to come up with instead of the default one, or empty for none.
    /// `observer` hears of what fails here, too, which nobody else could have connected to.
    ///
    /// `contextPermission` is told of installed and removed behaviours, and may be null. So may
    /// `responder`, but not where packages with plugins get installed. std::invalid_argument for a
    /// null broker, std::runtime_error "This object is null" without a service "PackageManager";
    /// errors of that service, too, leave this.
    NimbraLaunchpad(const boost::shared_ptr<KRBroker>& broker, ContextPermission* contextPermission,
                    NimbraLaunchpadResponder* responder,
                    const std::optional<std::string>& configuration = std::nullopt,
                    LaunchpadObserver observer = {});
    /// Stops no plugin: call exit() first. Waits for the responder call, the emission of a signal
    /// and the package change in progress, except when destroyed from inside of the call or the
    /// change; a change that waits for a service gives up.
    virtual ~NimbraLaunchpad();
    NimbraLaunchpad(const NimbraLaunchpad&) = delete;
    NimbraLaunchpad& operator=(const NimbraLaunchpad&) = delete;

    /// Replaces the actions of earlier configuration files by those of this one. A malformed
    /// action or step is warned about and skipped. Throws, before anything is removed, when the
    /// file cannot be read or parsed, is not of a supported version, or has no description or
    /// version; and, with the actions before it already added, for a value that cannot be
    /// converted to its type.
    void loadConfigFile(const std::string& path);

    /// Adds the actions that a module exports. Throws when there is no such module or its
    /// "getAutonomousActions" fails; nothing is added then. It takes no lock: call it while
    /// conditions are not monitored and no other thread uses this launchpad.
    void loadModule(const std::string& name);

    /// Starts the enabled plugins and the condition checker. KRError, after both were tried, when
    /// one failed, and after exit(), which nothing undoes. Does nothing while monitoring.
    void startMonitoringConditions();
    /// Stops the condition checker and the plugins; errors as above.
    void stopMonitoringConditions();
    bool isMonitoringConditions() const;
    /// Has every condition evaluated now; hits arrive as usual.
    void checkConditions();

    /// See PersistentValues.
    PersistentValues getPersistentValues() const;
    /// What the holds and counts of the conditions remember, while monitoring; see
    /// ConditionChecker::histories().
    ConditionChecker::Histories getConditionHistories() const;
    /// See ConditionChecker::resumeHistories(); before monitoring starts.
    void resumeConditionHistories(const ConditionChecker::Histories& histories, vo::Duration limit);

    /// Copies of the actions that have a bit of `mask` (see ExecutionSynchronicity) and whose
    /// condition was true when it was last evaluated, in ascending id order.
    std::list<AutonomousAction> getActionSuggestions(const int& mask) const;

    /// Whether a behaviour launches itself once it is installed. One that does is no plugin.
    static bool isAutonomousActivity(const vo::PackageInfo& package,
                                     const vo::BehaviorInfo& behavior);
    /// Names of the activities that launch themselves, in ascending order.
    std::vector<std::string> getAutonomousActivityNames() const;

    /// Copies of all actions, in ascending id order.
    std::list<AutonomousAction> getActions() const { return actions_.all(); }
    /// The condition of an action, part by part, as it stands; nothing for a condition id that no
    /// action has. See ConditionChecker::inspect().
    std::optional<ConditionPart> inspectCondition(std::uint32_t conditionId) const
    {
        return conditionChecker_.inspect(conditionId);
    }
    /// The first action, by id, of exactly that description; std::runtime_error if there is none.
    AutonomousAction getAction(const std::string& description) const;

    /// Adds a built-in plugin that does not come with every launchpad, because what it costs is
    /// not for every robot. One that cannot be made is logged and left out. KRError for a name
    /// that is not one of addableModulePlugins().
    void addModulePlugin(const std::string& name);
    /// In ascending order.
    static std::vector<std::string> addableModulePlugins();

    /// Says whether a plugin is wanted, and while monitoring starts or stops it accordingly, and
    /// every other plugin that is not as it is wanted. KRError, after all were tried, for an
    /// unknown name or when one failed.
    void setPluginEnabled(const std::string& name, const bool& enabled);
    /// In ascending order.
    std::vector<std::string> getEnabledPlugins() const;
    /// The plugins of a group, in ascending order.
    std::vector<std::string> getPluginsForGroup(const std::string& group) const;

    using PluginState = KR::PluginState;
    /// All plugins, by name.
    std::vector<PluginState> getPluginStates() const;

    /// Stops the condition checker for good and unloads every plugin. No condition is evaluated
    /// and no plugin of a package loaded from then on. Call it before destroying.
    void exit();

private:
    friend class NimbraLaunchpadTestAccess;  // defined by the tests alone

    void _loadFirstConfiguration(const std::string& path) VO_EXCLUDES(actions_.mutex());
    void _loadConfiguration(const YAML::Node& document, const std::string& path)
        VO_EXCLUDES(actions_.mutex());
    void _addModuleActions(const std::string& name, const std::vector<AutonomousAction>& actions)
        VO_REQUIRES(actions_.mutex());
    unsigned _addAction(const AutonomousAction& action) VO_REQUIRES(actions_.mutex())
    {
        return actions_.add(action);
    }
    bool _removeAction(const unsigned& id) VO_REQUIRES(actions_.mutex())
    {
        return actions_.remove(id);
    }
    bool _removeActions(const std::string& origin) VO_REQUIRES(actions_.mutex())
    {
        return actions_.removeOrigin(origin);
    }
    void _registerActionCondition(const unsigned& id) VO_REQUIRES(actions_.mutex())
    {
        actions_.registerCondition(id);
    }
    bool _unregisterActionCondition(const unsigned& id) VO_REQUIRES(actions_.mutex())
    {
        return actions_.unregisterCondition(id);
    }
    void _conditionHit(ConditionChecker::Hits hits) VO_EXCLUDES(actions_.mutex());
    std::list<AutonomousAction> _actionsOfHits(const ConditionChecker::Hits& hits)
        VO_REQUIRES_SHARED(actions_.mutex());
    void _tellHits(const std::list<AutonomousAction>& actions) const;
    void _postActions(std::list<AutonomousAction> actions);

    void _refuseAfterExit() const;
    void _startConditionChecker();
    void _stopConditionChecker();
    bool _isConditionCheckerRunning() const;

    void _initAddModulePlugin(const BuiltinPlugin& plugin);
    void _addBehaviorPlugin(const std::string& name, const vo::PackageInfo& package,
                            const vo::BehaviorInfo& behavior);
    bool _isPluginLoaded(const std::string& name) const { return plugins_.isLoaded(name); }
    void _unloadPlugin(const std::string& name) { plugins_.unload(name); }
    void _unloadPlugins() { plugins_.unloadAll(); }
    void _setPluginEnabled(const std::string& name, const bool& enabled)
    {
        plugins_.setEnabled(name, enabled);
    }
    void _startEnabledStopDisabledPlugins() { plugins_.startEnabledStopDisabled(); }
    void _stopPlugins() { plugins_.stopAll(); }

    /// Tags that begin so make a behaviour a reflex of the dialog.
    static constexpr std::string_view _prefix_reflex = "DialogReflex/";

    /// Returns what is installed.
    std::vector<vo::PackageInfo> _initPackageData();
    void _onPackageChanged(const vo::PackageInfo& package, const bool& installed);
    bool _onBehaviorChanged(const vo::PackageInfo& package, const vo::BehaviorInfo& behavior,
                            const bool& installed);
    bool _isAutonomousActivity(const vo::PackageInfo& package,
                               const vo::BehaviorInfo& behavior) const;
    void _addBehaviorAction(const std::string& key, const vo::BehaviorInfo& behavior)
        VO_EXCLUDES(actions_.mutex());
    void _removeBehaviorAction(const std::string& key) VO_EXCLUDES(actions_.mutex());
    void _removeDeprecatedPackage(const std::string& uuid);
    void _checkReflexTags(const vo::PackageInfo& package) const;

    // Constant after construction.
    boost::shared_ptr<KRBroker> broker_;
    ContextPermission* contextPermission_;
    vo::AnyObject packageManager_;
    vo::AnyObject animationPlayer_;
    NimbraLaunchpadResponder* responder_;
    /// What is used by others who may have their turn, or be in it, when the launchpad goes.
    struct Shared {
        vo::CallbackGate gate;  ///< passed by posted calls of the responder; closed at the end
        ActionCopies copies;
        /// Whether conditions may start plugins, which they may while they are monitored. Written
        /// under the checker lock, and read without it: a plugin may be the last to go.
        std::atomic<bool> conditionsStartPlugins{false};
    };
    const std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();

    // Synchronised by themselves. The first flag says that the configuration controls the dialog,
    // the other one that exit() was called.
    std::atomic<bool> configControlsDialog_{false};
    std::atomic<bool> exited_{false};
    ServiceWait behaviorManager_;

    // With the plugin lock, which comes with none of the others.
    PluginRegistry plugins_;

    /// The checker lock. Held over start and stop of the checker, and so before the data lock,
    /// which hits take: stopping waits for them.
    mutable vo::SharedMutex conditionCheckerMutex_ VO_ACQUIRED_BEFORE(actions_.mutex());
    bool conditionCheckerRunning_ VO_GUARDED_BY(conditionCheckerMutex_) = false;

    // With the data lock.
    ActionTable actions_;

    // Last, so that they are the first to go, the packages before the checker: until they are gone
    // they call back. That holds for a construction that fails, too. Synchronised by themselves.
    ConditionChecker conditionChecker_;
    std::optional<PackageChanges> packageChanges_;  ///< constant after construction
};

}  // namespace KR
