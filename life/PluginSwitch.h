#pragma once

#include "launchpad/NimbraLaunchpad.h"
#include "life/LifeStatus.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// Keeps the plugins as the life state wants them: those of the group that is named like the state
/// are enabled, the others disabled; built-in ones of no group are enabled in the states "solitary"
/// and "interactive". A plugin whose only group is "conditional" is left to its own
/// conditions. What fails is logged.
///
/// Thread-safe. Life status and launchpad outlive it.
class PluginSwitch {
public:
    /// Applies the present state, and follows its changes.
    PluginSwitch(LifeStatus& life, NimbraLaunchpad& launchpad);
    /// When it returns, no plugin is being switched and none will be.
    ~PluginSwitch();
    PluginSwitch(const PluginSwitch&) = delete;
    PluginSwitch& operator=(const PluginSwitch&) = delete;

    /// Applies the present state, also to plugins that have come since.
    void apply();

private:
    void enable(const std::string& plugin, bool enabled);

    // Constant after construction.
    LifeStatus& life_;
    NimbraLaunchpad& launchpad_;

    /// Held while plugins are switched, so that of two changes of the state the later one wins;
    /// before all locks of the launchpad and of plugins.
    vo::Mutex mutex_;

    /// Constant after construction. Last, as changes may come from then on.
    vo::Connection connection_;
};

}  // namespace KR
