#include <exception>
#include <utility>

#include "launchpad/GatheredErrors.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/kr/KRError.h"
#include "platform/vo/Log.h"
#include "plugins/NimbraLaunchpadPlugin.h"
#include "plugins/NimbraLaunchpadPluginBehavior.h"
#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {
namespace {

const vo::Logger kLog("NimbraLaunchpad");

/// Does something to a plugin; a failure is logged as `text`, the plugin's name and why, and kept.
template <class Step>
void tryPlugin(GatheredErrors& errors, const char* label, const std::string& text,
               const std::string& name, const Step& step)
{
    try {
        step();
    } catch (const std::exception& e) {
        kLog.error(label, text + name + ": " + e.what());
        errors.add(std::string(e.what()) + "(" + name + ")");
    }
}

}  // namespace

void NimbraLaunchpad::_addBehaviorPlugin(const std::string& name, const vo::PackageInfo& package,
                                         const vo::BehaviorInfo& behavior)
{
    try {
        const boost::shared_ptr<NimbraLaunchpadPlugin> plugin(new NimbraLaunchpadPluginBehavior(
            package, behavior, behaviorManager_.get(broker_->session())));
        plugin->letConditionsStartWhile(
            [shared = shared_] { return shared->conditionsStartPlugins.load(); });
        _unloadPlugin(name);
        const vo::Lock lock(pluginMutex_);
        plugins_[name] = plugin;
        _addPluginTriggers(name, "launchTrigger", &NimbraLaunchpadPlugin::startConditionHit);
        _addPluginTriggers(name, "terminationTrigger", &NimbraLaunchpadPlugin::stopConditionHit);
    } catch (const std::exception& e) {
        kLog.error("_addBehaviorPlugin",
                   "Could not load Launchpad Plugin: " + name + " " + e.what());
    }
}

/// Their hits go straight to the plugin, which the binding keeps alive, until it is unloaded.
void NimbraLaunchpad::_addPluginTriggers(const std::string& name, const std::string& purpose,
                                         PluginHit hit)
{
    const boost::shared_ptr<NimbraLaunchpadPlugin> plugin = plugins_.at(name);
    for (const std::string& condition : plugin->getConditions(purpose)) {
        pluginTriggers_[name].push_back(conditionChecker_.addCondition(
            condition, ConditionChecker::ReportBecomesTrue,
            [plugin, hit](unsigned id, const KRValue& value) { (plugin.get()->*hit)(id, value); }));
    }
}

bool NimbraLaunchpad::_isPluginLoaded(const std::string& name) const
{
    const vo::SharedLock lock(pluginMutex_);
    return plugins_.count(name) > 0;
}

void NimbraLaunchpad::_unloadPlugin(const std::string& name)
{
    const vo::Lock lock(pluginMutex_);
    auto position = plugins_.find(name);
    if (position != plugins_.end())
        _unloadPlugin(position);
}

void NimbraLaunchpad::_unloadPlugin(Plugins::iterator& position)
{
    constexpr const char* kLabel = "_unloadPlugin";
    const std::string& name = position->first;
    NimbraLaunchpadPlugin& plugin = *position->second;
    for (const int id : plugin.getConditionIDs())
        conditionChecker_.removeCondition(static_cast<unsigned>(id));
    plugin.clearConditionIDs();
    for (const unsigned id : pluginTriggers_[name])
        conditionChecker_.removeCondition(id);
    pluginTriggers_.erase(name);
    // A hit may still be on its way, and a start that one has posted.
    plugin.retire();
    try {
        plugin.stopPlugin();
    } catch (const std::exception& e) {
        kLog.warning(kLabel, "Error stopping removed plugin: " + name + ": " + e.what());
    }
    try {
        plugin.exit();
    } catch (const std::exception& e) {
        kLog.warning(kLabel, "Error exiting removed plugin: " + name + ": " + e.what());
    }
    position = plugins_.erase(position);
}

void NimbraLaunchpad::_unloadPlugins()
{
    const vo::Lock lock(pluginMutex_);
    for (auto position = plugins_.begin(); position != plugins_.end();)
        _unloadPlugin(position);
}

void NimbraLaunchpad::_setPluginEnabled(const std::string& name, const bool& enabled)
{
    const vo::Lock lock(pluginMutex_);
    const auto found = plugins_.find(name);
    if (found == plugins_.end())
        throw KRError("NimbraLaunchpad", "setPluginEnabled", "Plugin not found");
    found->second->setEnabled(enabled);
}

void NimbraLaunchpad::setPluginEnabled(const std::string& name, const bool& enabled)
{
    GatheredErrors errors("_setPluginEnabled");
    errors.run([&] { _setPluginEnabled(name, enabled); });
    errors.run([&] {
        if (_isConditionCheckerRunning())
            _startEnabledStopDisabledPlugins();
    });
    errors.raise();
}

void NimbraLaunchpad::_startEnabledStopDisabledPlugins()
{
    constexpr const char* kMethod = "_startEnabledStopDisabledPlugins";
    GatheredErrors errors(kMethod);
    const vo::SharedLock lock(pluginMutex_);
    for (const auto& [name, plugin] : plugins_) {
        tryPlugin(errors, kMethod, "Error starting/stopping plugin: ", name, [&p = *plugin] {
            const bool running = p.isPluginRunning();
            const bool enabled = p.isEnabled();
            if (running && !enabled)
                p.stopPlugin();
            else if (!running && enabled)
                p.startPlugin();
        });
    }
    errors.raise();
}

void NimbraLaunchpad::_stopPlugins()
{
    constexpr const char* kMethod = "_stopPlugins";
    kLog.verbose(kMethod, "NimbraLaunchpad Plugins will be stopped.");
    GatheredErrors errors(kMethod);
    const vo::SharedLock lock(pluginMutex_);
    for (const auto& [name, plugin] : plugins_)
        tryPlugin(errors, kMethod, "Error stopping plugin: ", name,
                  [&p = *plugin] { p.stopPlugin(); });
    errors.raise();
}

std::vector<std::string> NimbraLaunchpad::getEnabledPlugins() const
{
    std::vector<std::string> names;
    const vo::SharedLock lock(pluginMutex_);
    for (const auto& [name, plugin] : plugins_) {
        if (plugin->isEnabled())
            names.push_back(name);
    }
    return names;
}

std::vector<std::string> NimbraLaunchpad::getPluginsForGroup(const std::string& group) const
{
    std::vector<std::string> names;
    const vo::SharedLock lock(pluginMutex_);
    for (const auto& [name, plugin] : plugins_) {
        if (plugin->isInGroup(group))
            names.push_back(name);
    }
    return names;
}

std::vector<NimbraLaunchpad::PluginState> NimbraLaunchpad::getPluginStates() const
{
    std::vector<PluginState> states;
    const vo::SharedLock lock(pluginMutex_);
    for (const auto& [name, plugin] : plugins_) {
        const auto* module = dynamic_cast<const NimbraLaunchpadPluginModule*>(plugin.get());
        PluginState state{name,
                          plugin->getGroups(),
                          plugin->isEnabled(),
                          plugin->isPluginRunning(),
                          module != nullptr,
                          {}};
        if (module)
            state.publishedKeys = module->getPublishedKeys();
        states.push_back(std::move(state));
    }
    return states;
}

}  // namespace KR
