#include <algorithm>
#include <exception>

#include "launchpad/GatheredErrors.h"
#include "launchpad/LaunchpadLog.h"
#include "launchpad/LaunchpadNews.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/kr/KRError.h"
#include "plugins/NimbraLaunchpadPluginBehavior.h"
#include "plugins/builtin/BuiltinPlugins.h"

namespace KR {

void NimbraLaunchpad::_initAddModulePlugin(const BuiltinPlugin& plugin)
{
    try {
        const auto made = plugin.make(broker_);
        plugins_.add(made->getPluginName(), made);
    } catch (const std::exception& e) {
        news_->error("_initAddModulePlugin", "Could not load plugin: " + plugin.name + e.what());
    }
}

void NimbraLaunchpad::addModulePlugin(const std::string& name)
{
    const auto& all = builtinPlugins();
    const auto found = std::find_if(all.begin(), all.end(), [&name](const BuiltinPlugin& plugin) {
        return plugin.isOnDemand && plugin.name == name;
    });
    if (found == all.end())
        throw KRError(kLaunchpadCategory, "addModulePlugin",
                      "there is no plugin '" + name + "' to add");
    const LaunchpadNews::Round round(*news_);
    _initAddModulePlugin(*found);
}

std::vector<std::string> NimbraLaunchpad::addableModulePlugins()
{
    std::vector<std::string> names;
    for (const BuiltinPlugin& plugin : builtinPlugins()) {
        if (plugin.isOnDemand)
            names.push_back(plugin.name);
    }
    return names;
}

void NimbraLaunchpad::_addBehaviorPlugin(const std::string& name, const vo::PackageInfo& package,
                                         const vo::BehaviorInfo& behavior)
{
    try {
        const boost::shared_ptr<NimbraLaunchpadPlugin> plugin(new NimbraLaunchpadPluginBehavior(
            package, behavior, behaviorManager_.get(broker_->session())));
        plugin->letConditionsStartWhile(
            [shared = shared_] { return shared->conditionsStartPlugins.load(); });
        plugins_.add(name, plugin);
    } catch (const std::exception& e) {
        news_->error("_addBehaviorPlugin",
                     "Could not load Launchpad Plugin: " + name + " " + e.what());
    }
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

std::vector<std::string> NimbraLaunchpad::getEnabledPlugins() const
{
    return plugins_.enabled();
}

std::vector<std::string> NimbraLaunchpad::getPluginsForGroup(const std::string& group) const
{
    return plugins_.ofGroup(group);
}

std::vector<PluginState> NimbraLaunchpad::getPluginStates() const
{
    return plugins_.states();
}

}  // namespace KR
