#include "launchpad/PluginRegistry.h"

#include <exception>
#include <utility>

#include "launchpad/GatheredErrors.h"
#include "launchpad/LaunchpadLog.h"
#include "launchpad/LaunchpadNews.h"
#include "platform/kr/KRError.h"
#include "plugins/NimbraLaunchpadPlugin.h"
#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {
namespace {

/// Does something to a plugin; a failure is logged as `text`, the plugin's name and why, and kept.
template <class Step>
void tryPlugin(LaunchpadNews& news, GatheredErrors& errors, const char* label,
               const std::string& text, const std::string& name, const Step& step)
{
    try {
        step();
    } catch (const std::exception& e) {
        news.error(label, text + name + ": " + e.what());
        errors.add(std::string(e.what()) + "(" + name + ")");
    }
}

}  // namespace

void PluginRegistry::add(const std::string& name,
                         const boost::shared_ptr<NimbraLaunchpadPlugin>& plugin)
{
    // The plugin may be the last to go.
    plugin->onSwitched(
        [news = news_.shared_from_this(), name](bool running) { news->switched(name, running); });
    unload(name);
    const vo::Lock lock(mutex_);
    plugins_[name] = plugin;
    addTriggers(name, "launchTrigger", &NimbraLaunchpadPlugin::startConditionHit);
    addTriggers(name, "terminationTrigger", &NimbraLaunchpadPlugin::stopConditionHit);
}

/// Their hits go straight to the plugin, which the binding keeps alive, until it is unloaded.
void PluginRegistry::addTriggers(const std::string& name, const std::string& purpose, Hit hit)
{
    const boost::shared_ptr<NimbraLaunchpadPlugin> plugin = plugins_.at(name);
    for (const std::string& condition : plugin->getConditions(purpose)) {
        triggers_[name].push_back(checker_.addCondition(
            condition, ConditionChecker::ReportBecomesTrue,
            [plugin, hit](unsigned id, const KRValue& value) { (plugin.get()->*hit)(id, value); }));
    }
}

bool PluginRegistry::isLoaded(const std::string& name) const
{
    const vo::SharedLock lock(mutex_);
    return plugins_.count(name) > 0;
}

void PluginRegistry::unload(const std::string& name)
{
    const LaunchpadNews::Round round(news_);
    const vo::Lock lock(mutex_);
    auto position = plugins_.find(name);
    if (position != plugins_.end())
        unload(position);
}

void PluginRegistry::unload(Plugins::iterator& position)
{
    constexpr const char* kLabel = "_unloadPlugin";
    const std::string& name = position->first;
    NimbraLaunchpadPlugin& plugin = *position->second;
    for (const int id : plugin.getConditionIDs())
        checker_.removeCondition(static_cast<unsigned>(id));
    plugin.clearConditionIDs();
    for (const unsigned id : triggers_[name])
        checker_.removeCondition(id);
    triggers_.erase(name);
    // A hit may still be on its way, and a start that one has posted.
    plugin.retire();
    try {
        plugin.stopPlugin();
    } catch (const std::exception& e) {
        launchpadLog.warning(kLabel, "Error stopping removed plugin: " + name + ": " + e.what());
    }
    try {
        plugin.exit();
    } catch (const std::exception& e) {
        launchpadLog.warning(kLabel, "Error exiting removed plugin: " + name + ": " + e.what());
    }
    position = plugins_.erase(position);
}

void PluginRegistry::unloadAll()
{
    const LaunchpadNews::Round round(news_);
    const vo::Lock lock(mutex_);
    for (auto position = plugins_.begin(); position != plugins_.end();)
        unload(position);
}

void PluginRegistry::setEnabled(const std::string& name, bool enabled)
{
    const vo::Lock lock(mutex_);
    const auto found = plugins_.find(name);
    if (found == plugins_.end())
        throw KRError(kLaunchpadCategory, "setPluginEnabled", "Plugin not found");
    found->second->setEnabled(enabled);
}

void PluginRegistry::startEnabledStopDisabled()
{
    constexpr const char* kMethod = "_startEnabledStopDisabledPlugins";
    GatheredErrors errors(kMethod);
    const LaunchpadNews::Round round(news_);
    const vo::SharedLock lock(mutex_);
    for (const auto& [name, plugin] : plugins_) {
        tryPlugin(news_, errors, kMethod, "Error starting/stopping plugin: ", name, [&p = *plugin] {
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

void PluginRegistry::stopAll()
{
    constexpr const char* kMethod = "_stopPlugins";
    launchpadLog.verbose(kMethod, "NimbraLaunchpad Plugins will be stopped.");
    GatheredErrors errors(kMethod);
    const LaunchpadNews::Round round(news_);
    const vo::SharedLock lock(mutex_);
    for (const auto& [name, plugin] : plugins_)
        tryPlugin(news_, errors, kMethod, "Error stopping plugin: ", name,
                  [&p = *plugin] { p.stopPlugin(); });
    errors.raise();
}

template <class Wanted>
std::vector<std::string> PluginRegistry::namesOf(const Wanted& wanted) const
{
    std::vector<std::string> names;
    const vo::SharedLock lock(mutex_);
    for (const auto& [name, plugin] : plugins_) {
        if (wanted(*plugin))
            names.push_back(name);
    }
    return names;
}

std::vector<std::string> PluginRegistry::enabled() const
{
    return namesOf([](NimbraLaunchpadPlugin& plugin) { return plugin.isEnabled(); });
}

std::vector<std::string> PluginRegistry::ofGroup(const std::string& group) const
{
    return namesOf([&group](NimbraLaunchpadPlugin& plugin) { return plugin.isInGroup(group); });
}

std::vector<PluginState> PluginRegistry::states() const
{
    std::vector<PluginState> states;
    const vo::SharedLock lock(mutex_);
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
