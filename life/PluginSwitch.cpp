#include "life/PluginSwitch.h"

#include <algorithm>

#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger pluginSwitchLog("Nimbra.PluginSwitch");

bool isConditional(const NimbraLaunchpad::PluginState& plugin)
{
    return plugin.groups == std::list<std::string>{"conditional"};
}

bool isInGroup(const NimbraLaunchpad::PluginState& plugin, const std::string& group)
{
    return std::find(plugin.groups.begin(), plugin.groups.end(), group) != plugin.groups.end();
}

/// A built-in plugin of no group is there because somebody wants it: wherever the others work.
bool isAdded(const NimbraLaunchpad::PluginState& plugin, const std::string& state)
{
    return plugin.builtIn && plugin.groups.empty() &&
           (state == "solitary" || state == "interactive");
}

}  // namespace

PluginSwitch::PluginSwitch(LifeStatus& life, NimbraLaunchpad& launchpad)
    : life_(life),
      launchpad_(launchpad),
      connection_(life.changed.connect([this](const LifeChange& change) {
          if (std::holds_alternative<StateChanged>(change))
              apply();
      }))
{
    apply();
}

PluginSwitch::~PluginSwitch()
{
    connection_.disconnect();
}

void PluginSwitch::apply()
{
    const vo::Lock lock(mutex_);
    const std::string state = life_.state();
    for (const NimbraLaunchpad::PluginState& plugin : launchpad_.getPluginStates()) {
        const bool wanted = isInGroup(plugin, state) || isAdded(plugin, state);
        if (!isConditional(plugin) && plugin.enabled != wanted)
            enable(plugin.name, wanted);
    }
}

void PluginSwitch::enable(const std::string& plugin, bool enabled)
{
    try {
        launchpad_.setPluginEnabled(plugin, enabled);
    } catch (const std::exception& e) {
        pluginSwitchLog.error("enable", e.what());
    }
}

}  // namespace KR
