#include "launchpad/NimbraLaunchpad.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "launchpad/LaunchpadLog.h"
#include "launchpad/LaunchpadNews.h"
#include "platform/conditions/CheckerScript.h"
#include "platform/vo/PackageInfo.h"
#include "platform/vo/Path.h"
#include "platform/vo/Session.h"
#include "plugins/NimbraLaunchpadPluginBehavior.h"
#include "plugins/builtin/BuiltinPlugins.h"

namespace KR {
namespace {

constexpr const char* kInteractiveActivityModule = "applauncher_module";

/// Packages of earlier versions, whose work is done otherwise by now.
constexpr const char* kDeprecatedPackages[] = {"launchpadplugintouchtablet",
                                               "default_launchpad_plugins", "standbyreactions",
                                               "sleepreactions"};

const boost::shared_ptr<KRBroker>& notNull(const boost::shared_ptr<KRBroker>& broker)
{
    if (!broker)
        throw std::invalid_argument("a launchpad needs a broker");
    return broker;
}

std::vector<AutonomousAction> actionsOfModule(const std::string& name)
{
    return vo::import(name).call<std::vector<AutonomousAction>>("getAutonomousActions");
}

}  // namespace

NimbraLaunchpad::NimbraLaunchpad(const boost::shared_ptr<KRBroker>& broker,
                                 ContextPermission* contextPermission,
                                 NimbraLaunchpadResponder* responder,
                                 const std::optional<std::string>& configuration,
                                 LaunchpadObserver observer)
    : news_(std::make_shared<LaunchpadNews>(std::move(observer))),
      pluginSwitched(news_->pluginSwitched),
      errorReported(news_->errorReported),
      broker_(notNull(broker)),
      contextPermission_(contextPermission),
      packageManager_(broker->session().findService("PackageManager")),
      animationPlayer_(broker->session().findService("KRAnimationPlayer")),
      responder_(responder),
      behaviorManager_(NimbraLaunchpadPluginBehavior::kBehaviorManager),
      plugins_(conditionChecker_, *news_),
      actions_(conditionChecker_, *news_)
{
    const LaunchpadNews::Round round(*news_);
    conditionChecker_.connect(broker_);
    conditionChecker_.setCallback(
        [this](ConditionChecker::Hits hits) { _conditionHit(std::move(hits)); });
    conditionChecker_.setMoveObserver(news_->observer().checkerMoved);
    if (news_->observer().script)
        news_->observer().script->take(conditionChecker_);

    if (!configuration)
        _loadFirstConfiguration(vo::path::findConf("tessel", "autonomy.cfg", false));
    else if (!configuration->empty())
        _loadFirstConfiguration(*configuration);

    for (const char* uuid : kDeprecatedPackages)
        _removeDeprecatedPackage(uuid);
    // Connected before the packages are read, so that no change is missed between the two.
    packageChanges_.emplace(
        packageManager_,
        [this](const vo::PackageInfo& package, bool installed) {
            _onPackageChanged(package, installed);
        },
        [news = news_](const std::string& error) { news->error("PackageChanges", error); });
    std::vector<vo::PackageInfo> installed = _initPackageData();

    for (const BuiltinPlugin& plugin : builtinPlugins()) {
        if (!plugin.isOnDemand)
            _initAddModulePlugin(plugin);
    }

    try {
        const auto actions = actionsOfModule(kInteractiveActivityModule);
        const vo::Lock lock(actions_.mutex());
        _addModuleActions(kInteractiveActivityModule, actions);
    } catch (const std::exception& e) {
        news_->error("NimbraLaunchpad",
                     std::string("Cannot load the main interactive activity module: ") + e.what());
    }
    packageChanges_->release(std::move(installed));
}

NimbraLaunchpad::~NimbraLaunchpad()
{
    shared_->conditionsStartPlugins = false;
    behaviorManager_.end();
    shared_->gate.close();
    news_->end();
}

// The analysis is off because no lock is taken, see the header.
void NimbraLaunchpad::loadModule(const std::string& name) VO_NO_THREAD_SAFETY_ANALYSIS
{
    const LaunchpadNews::Round round(*news_);
    _addModuleActions(name, actionsOfModule(name));
}

void NimbraLaunchpad::_addModuleActions(const std::string& name,
                                        const std::vector<AutonomousAction>& actions)
{
    for (AutonomousAction action : actions) {
        action.origin = "Module." + name;
        // Whatever the module had there, it is no id of our checker.
        action.conditionId = 0;
        _addAction(action);
    }
    launchpadLog.info("loadModule",
                      std::to_string(actions.size()) + " autonomous actions loaded from " + name);
}

PersistentValues NimbraLaunchpad::getPersistentValues() const
{
    return conditionChecker_.getPersistentValues();
}

ConditionChecker::Histories NimbraLaunchpad::getConditionHistories() const
{
    return conditionChecker_.histories();
}

void NimbraLaunchpad::resumeConditionHistories(const ConditionChecker::Histories& histories,
                                               vo::Duration limit)
{
    conditionChecker_.resumeHistories(histories, limit);
}

std::list<AutonomousAction> NimbraLaunchpad::getActionSuggestions(const int& mask) const
{
    return actions_.suggestions(static_cast<std::uint32_t>(mask));
}

std::vector<std::string> NimbraLaunchpad::getAutonomousActivityNames() const
{
    return actions_.activities();
}

AutonomousAction NimbraLaunchpad::getAction(const std::string& description) const
{
    return actions_.get(description);
}

void NimbraLaunchpad::exit()
{
    exited_ = true;
    behaviorManager_.end();
    _stopConditionChecker();
    conditionChecker_.exit();
    _unloadPlugins();
}

}  // namespace KR
