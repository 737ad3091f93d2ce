#include "launchpad/NimbraLaunchpad.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "platform/vo/Log.h"
#include "platform/vo/Path.h"
#include "platform/vo/Session.h"

namespace KR {
namespace {

const vo::Logger kLog("NimbraLaunchpad");

constexpr const char* kInteractiveActivityModule = "applauncher_module";

const boost::shared_ptr<KRBroker>& notNull(const boost::shared_ptr<KRBroker>& broker)
{
    if (!broker)
        throw std::invalid_argument("a launchpad needs a broker");
    return broker;
}

}  // namespace

NimbraLaunchpad::NimbraLaunchpad(const boost::shared_ptr<KRBroker>& broker,
                                 ContextPermission* contextPermission,
                                 NimbraLaunchpadResponder* responder)
    : broker_(notNull(broker)),
      contextPermission_(contextPermission),
      packageManager_(broker->session().findService("PackageManager")),
      animationPlayer_(broker->session().findService("KRAnimationPlayer")),
      responder_(responder)
{
    conditionChecker_.connect(broker_);
    conditionChecker_.setCallback(
        [this](ConditionChecker::Hits hits) { _conditionHit(std::move(hits)); });

    const std::string path = vo::path::findConf("tessel", "autonomy.cfg", false);
    try {
        loadConfigFile(path);
    } catch (const std::exception& e) {
        kLog.error("NimbraLaunchpad", "Can't load default config file: " + path + ": " + e.what());
    }

    // Installed packages come here: deprecated ones go, the package manager's signals are
    // connected, and what the others bring is read. Then the built-in plugins.

    try {
        loadModule(kInteractiveActivityModule);
    } catch (const std::exception& e) {
        kLog.error("NimbraLaunchpad",
                   std::string("Cannot load the main interactive activity module: ") + e.what());
    }
}

NimbraLaunchpad::~NimbraLaunchpad()
{
    responderGate_->close();
}

// The analysis is off because no lock is taken, see the header.
void NimbraLaunchpad::loadModule(const std::string& name) VO_NO_THREAD_SAFETY_ANALYSIS
{
    auto actions = vo::import(name).call<std::vector<AutonomousAction>>("getAutonomousActions");
    for (AutonomousAction& action : actions) {
        action.origin = "Module." + name;
        // Whatever the module had there, it is no id of our checker.
        action.conditionId = 0;
        _addAction(action);
    }
    kLog.info("loadModule",
              std::to_string(actions.size()) + " autonomous actions loaded from " + name);
}

PersistentValues NimbraLaunchpad::getPersistentValues() const
{
    return conditionChecker_.getPersistentValues();
}

std::list<AutonomousAction> NimbraLaunchpad::getActionSuggestions(const int& mask) const
{
    const auto wanted = static_cast<std::uint32_t>(mask);
    std::list<AutonomousAction> suggestions;
    const vo::SharedLock lock(actionMutex_);
    for (const auto& [id, action] : actions_) {
        if ((action.synchronicity & wanted) != 0 &&
            conditionChecker_.isConditionTrue(action.conditionId))
            suggestions.push_back(action);
    }
    return suggestions;
}

std::vector<std::string> NimbraLaunchpad::getAutonomousActivityNames() const
{
    std::vector<std::string> names;
    const vo::SharedLock lock(actionMutex_);
    names.reserve(autonomousActivities_.size());
    for (const auto& [name, activity] : autonomousActivities_)
        names.push_back(name);
    return names;
}

AutonomousAction NimbraLaunchpad::getAction(const std::string& description) const
{
    const vo::SharedLock lock(actionMutex_);
    for (const auto& [id, action] : actions_) {
        if (action.description == description)
            return action;
    }
    throw std::runtime_error("action not found with description: " + description);
}

void NimbraLaunchpad::exit()
{
    _stopConditionChecker();
    conditionChecker_.exit();
    // Plugins are unloaded here.
}

}  // namespace KR
