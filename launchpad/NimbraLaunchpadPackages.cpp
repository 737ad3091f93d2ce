#include <exception>
#include <string>
#include <vector>

#include "launchpad/LaunchpadLog.h"
#include "launchpad/LaunchpadNews.h"
#include "launchpad/NimbraLaunchpad.h"
#include "permission/ContextPermission.h"
#include "platform/vo/PackageInfo.h"
#include "plugins/NimbraLaunchpadPluginBehavior.h"

namespace KR {
namespace {

constexpr const char* kPackageOrigin = "Package";
constexpr const char* kLaunchTrigger = "launchTrigger";

/// What the authoring tool uploads for a trial never launches itself.
constexpr const char* kScratchPackage = ".lastUploadedKinetorBehavior";

bool isRunDialog(const vo::PackageInfo& package)
{
    return package.uuid() == "run_dialog" || package.uuid() == "run_dialog_dev";
}

bool isPlugin(const vo::PackageInfo& package, const vo::BehaviorInfo& behavior)
{
    return NimbraLaunchpadPluginBehavior::isPlugin(package, behavior, nullptr, nullptr);
}

/// A behaviour's launch trigger, guarded by the robot's state and the behaviour's permissions.
std::string guardedTrigger(const std::string& trigger, const vo::BehaviorInfo& behavior)
{
    const std::string state = " && 'Nimbra/State'";
    std::string text = "(" + trigger + ")" + state + "!=\"disabled\"" + state + "!=\"safeguard\"";
    if (behavior.nature() == "solitary")
        text += state + "==\"solitary\"";
    if (!behavior.hasPermission(vo::BehaviorInfo::k_permCanRunOnPod))
        text = "(" + text + ") && !'KRBattery/ConnectedToChargingStation'";
    if (!behavior.hasPermission(vo::BehaviorInfo::k_permCanRunInSleep))
        text = "(" + text + ") && !'Nimbra/Asleep'";
    return text;
}

}  // namespace

bool NimbraLaunchpad::_isAutonomousActivity(const vo::PackageInfo& package,
                                            const vo::BehaviorInfo& behavior) const
{
    return isAutonomousActivity(package, behavior);
}

bool NimbraLaunchpad::isAutonomousActivity(const vo::PackageInfo& package,
                                           const vo::BehaviorInfo& behavior)
{
    return package.uuid() != kScratchPackage && !behavior.conditions(kLaunchTrigger).empty();
}

/// The first trigger alone counts.
void NimbraLaunchpad::_addBehaviorAction(const std::string& key, const vo::BehaviorInfo& behavior)
{
    const vo::Lock lock(actions_.mutex());
    const auto triggers = behavior.conditions(kLaunchTrigger);
    if (triggers.empty())
        return;
    AutonomousAction action;
    action.description = "Action swithFocus to behavior " + key;
    action.origin = kPackageOrigin;
    action.items = {{ActionItemSwitchFocus, {{"Activity", key}}}};
    action.condition = guardedTrigger(triggers.front(), behavior);
    action.synchronicity = ExecuteAnyTimeConditionTrue;
    actions_.addActivity(key, action);
}

void NimbraLaunchpad::_removeBehaviorAction(const std::string& key)
{
    const vo::Lock lock(actions_.mutex());
    actions_.removeActivity(key);
}

std::vector<vo::PackageInfo> NimbraLaunchpad::_initPackageData()
{
    constexpr const char* kLabel = "_initPackageData";
    const ConditionChecker::Replacement replacement(conditionChecker_);
    {
        const vo::Lock lock(actions_.mutex());
        if (_removeActions(kPackageOrigin))
            launchpadLog.info(kLabel, "Deleted all actions from packages.");
        actions_.clearActivities();
    }
    auto packages = packageManager_.call<std::vector<vo::PackageInfo>>("packages");
    for (const vo::PackageInfo& package : packages) {
        if (contextPermission_)
            contextPermission_->onBehaviorsInstalled(package, package.behaviors());
        if (package.behaviors().empty())
            continue;
        _checkReflexTags(package);
        if (configControlsDialog_ && isRunDialog(package)) {
            launchpadLog.warning(
                kLabel,
                "Ignoring conditions for run_dialog*, life configuration now controls "
                "collaborative dialog and when to enter interactive state");
            continue;
        }
        for (const vo::BehaviorInfo& behavior : package.behaviors()) {
            const std::string key = vo::behaviorKey(package, behavior);
            if (_isAutonomousActivity(package, behavior))
                _addBehaviorAction(key, behavior);
            else if (isPlugin(package, behavior))
                _addBehaviorPlugin(key, package, behavior);
        }
    }
    return packages;
}

/// Touches nothing of this after it has told the responder, which may destroy the launchpad.
void NimbraLaunchpad::_onPackageChanged(const vo::PackageInfo& package, const bool& installed)
{
    constexpr const char* kLabel = "_onPackageChanged";
    const auto news = news_;
    bool pluginAdded = false;
    {
        const LaunchpadNews::Round round(*news);
        if (contextPermission_ && installed)
            contextPermission_->onBehaviorsInstalled(package, package.behaviors());
        else if (contextPermission_)
            contextPermission_->onBehaviorsRemoved(package, package.behaviors());
        try {
            for (const vo::BehaviorInfo& behavior : package.behaviors())
                pluginAdded = _onBehaviorChanged(package, behavior, installed) || pluginAdded;
            if (installed)
                _checkReflexTags(package);
        } catch (const std::exception& e) {
            news->error(kLabel, "Can't process package change for package: " + package.uuid() +
                                    ": " + e.what());
        }
    }
    if (!pluginAdded)
        return;
    try {
        responder_->onPluginsChanged();
    } catch (const std::exception& e) {
        news->error(kLabel, std::string("Cant process added plugins: ") + e.what());
    }
}

/// Whether it brought a plugin, be it that it could be loaded or not.
bool NimbraLaunchpad::_onBehaviorChanged(const vo::PackageInfo& package,
                                         const vo::BehaviorInfo& behavior, const bool& installed)
{
    const std::string key = vo::behaviorKey(package, behavior);
    if (_isAutonomousActivity(package, behavior)) {
        if (installed)
            _addBehaviorAction(key, behavior);
        else
            _removeBehaviorAction(key);
    } else if (installed && isPlugin(package, behavior)) {
        _addBehaviorPlugin(key, package, behavior);
        return true;
    } else if (_isPluginLoaded(key) && !installed) {
        _unloadPlugin(key);
    }
    return false;
}

void NimbraLaunchpad::_removeDeprecatedPackage(const std::string& uuid)
{
    constexpr const char* kLabel = "_removeDeprecatedPackage";
    try {
        if (!packageManager_.call<bool>("hasPackage", uuid))
            return;
        packageManager_.call("removePkg", uuid);
        launchpadLog.info(kLabel, "Removed deprecated package " + uuid);
    } catch (const std::exception& e) {
        news_->error(kLabel, "Can't remove deprecated package: " + uuid + ": " + e.what());
    }
}

/// Declares the animations of a package that has dialog reflexes; once, however many they are.
void NimbraLaunchpad::_checkReflexTags(const vo::PackageInfo& package) const
{
    for (const vo::BehaviorInfo& behavior : package.behaviors()) {
        for (const auto& [language, tags] : behavior.languagesToTags()) {
            for (const std::string& tag : tags) {
                if (tag.compare(0, _prefix_reflex.size(), _prefix_reflex) != 0)
                    continue;
                animationPlayer_.call("_declarePathForTagsPermanently",
                                      package.uuid() + "/[robot]/[posture]");
                return;
            }
        }
    }
}

}  // namespace KR
