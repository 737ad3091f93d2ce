#include "plugins/NimbraLaunchpadPluginBehavior.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRError.h"
#include "platform/vo/Log.h"
#include "platform/vo/Session.h"
#include "plugins/PluginDescriptor.h"

namespace KR {

namespace {

const vo::Logger pluginBehaviorLog("NimbraLaunchpadPluginBehavior");

constexpr const char* kDescriptorFile = "nimbraLaunchpadPlugin.xml";
constexpr const char* kLaunchTrigger = "launchTrigger";
constexpr const char* kTerminationTrigger = "terminationTrigger";

/// Packages of the authoring tools: what is in them is being worked on, not installed.
bool isScratchPackage(const std::string& uuid)
{
    return uuid == ".lastUploadedKinetorBehavior" || uuid == "user_session";
}

/// Behaviours whose work the built-in plugins do.
bool isServedByBuiltin(const std::string& uuid, const std::string& behaviorPath)
{
    static constexpr std::array<const char*, 7> kBuiltins = {
        "PerceptionHeavy", "Posture", "Battery",   "HardwareInfo",
        "Temperature",     "Timing",  "Activities"};
    return uuid == "default_launchpad_plugins" &&
           std::find(kBuiltins.begin(), kBuiltins.end(), behaviorPath) != kBuiltins.end();
}

vo::AnyObject waitForService(const boost::shared_ptr<KRBroker>& broker, const char* name)
{
    if (!broker)
        throw std::runtime_error("This object is null");
    return broker->session().waitForService(name).value();
}

}  // namespace

NimbraLaunchpadPluginBehavior::NimbraLaunchpadPluginBehavior(
    const vo::PackageInfo& package, const vo::BehaviorInfo& behavior,
    // NOLINTNEXTLINE(performance-unnecessary-value-param): the signature that its users have
    boost::shared_ptr<KRBroker> broker)
    : NimbraLaunchpadPluginBehavior(package, behavior, waitForService(broker, kBehaviorManager))
{
}

NimbraLaunchpadPluginBehavior::NimbraLaunchpadPluginBehavior(const vo::PackageInfo& package,
                                                             const vo::BehaviorInfo& behavior,
                                                             const vo::AnyObject& behaviorManager)
    : packageInfo_(package), behaviorInfo_(behavior), behaviorManager_(behaviorManager)
{
    _loadInfo();
}

bool NimbraLaunchpadPluginBehavior::isPlugin(const vo::PackageInfo& package,
                                             const vo::BehaviorInfo& behavior,
                                             std::string* pluginId, std::string* descriptorPath)
{
    if (isScratchPackage(package.uuid()) || isServedByBuiltin(package.uuid(), behavior.path()))
        return false;

    const std::string id = vo::behaviorKey(package, behavior);
    // A behaviour lies inside its package, even if its path begins with a slash.
    const auto path = std::filesystem::path(package.path()) /
                      std::filesystem::path(behavior.path()).relative_path() / kDescriptorFile;
    if (pluginId)
        *pluginId = id;
    if (descriptorPath)
        *descriptorPath = path.string();

    std::error_code error;
    if (!std::filesystem::exists(path, error))
        return false;
    if (id == "." || package.path().empty()) {
        pluginBehaviorLog.error(
            "isPlugin", "Found bad plugin path: '" + id + "' In package UUID: " + package.uuid());
        return false;
    }
    return true;
}

void NimbraLaunchpadPluginBehavior::exit() {}

void NimbraLaunchpadPluginBehavior::_loadInfo()
{
    std::string path;
    if (!isPlugin(packageInfo_, behaviorInfo_, &name_, &path))
        throw KRError("NimbraLaunchpadPlugin", "getPluginGroups",
                      behaviorInfo_.path() + " is not an NimbraLaunchpad Plugin");

    PluginDescriptor descriptor;
    try {
        descriptor = readPluginDescriptor(path);
    } catch (const PluginDescriptorError& e) {
        pluginBehaviorLog.error("_loadInfo", "Syntax error " + std::to_string(e.line()) + ":" +
                                                 std::to_string(e.column()) + ": " + e.what());
        throw KRError("NimbraLaunchpadPlugin", "_loadInfo", "parse error");
    }

    for (const auto& [purpose, text] : descriptor.conditions)
        behaviorInfo_.addCondition(purpose, text);
    const bool conditional = !behaviorInfo_.conditions(kLaunchTrigger).empty() ||
                             !behaviorInfo_.conditions(kTerminationTrigger).empty();
    groups_ = conditional ? std::list<std::string>{"conditional"} : std::move(descriptor.groups);
}

void NimbraLaunchpadPluginBehavior::_startPlugin()
{
    try {
        behaviorManager_.call("preloadBehavior", name_);
        behaviorManager_.call("startBehavior", name_);
    } catch (const std::exception& e) {
        // It may have started half-way. Nobody waits for the stop.
        behaviorManager_.async("stopBehavior", name_);
        throw KRError("NimbraLaunchpadPlugin", "start",
                      std::string("Could not start Launchpad Plugin: ") + e.what());
    }
}

void NimbraLaunchpadPluginBehavior::_stopPlugin()
{
    try {
        behaviorManager_.call("stopBehavior", name_);
    } catch (const std::exception& e) {
        throw KRError("NimbraLaunchpadPlugin", "stop",
                      std::string("Could not stop Launchpad Plugin: ") + e.what());
    }
}

bool NimbraLaunchpadPluginBehavior::_isPluginRunning()
{
    try {
        return behaviorManager_.call<bool>("isBehaviorRunning", name_);
    } catch (const std::exception& e) {
        pluginBehaviorLog.error("_isPluginRunning",
                                std::string("Could not check behavior status: ") + e.what());
        return false;
    }
}

std::list<std::string> NimbraLaunchpadPluginBehavior::_getConditions(const std::string& purpose)
{
    return behaviorInfo_.conditions(purpose);
}

}  // namespace KR
