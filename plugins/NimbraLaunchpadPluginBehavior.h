#pragma once

#include <boost/shared_ptr.hpp>
#include <list>
#include <string>

#include "platform/vo/AnyObject.h"
#include "platform/vo/PackageInfo.h"
#include "plugins/NimbraLaunchpadPlugin.h"

namespace KR {

class KRBroker;

/// A plugin whose work is done by an installed behaviour: starting it runs the behaviour through
/// the service "KRBehaviorManager", stopping it stops the behaviour, and it runs when that service
/// says so. A behaviour that ends by itself is thus a stopped plugin at once.
///
/// A behaviour is a plugin when its folder holds the descriptor "nimbraLaunchpadPlugin.xml":
///
///     <nimbraLaunchpadPlugin>
///         <groups> <group>solitary</group> ... </groups>
///         <conditions> <condition purpose="launchTrigger">'Key' == 1</condition> ... </conditions>
///     </nimbraLaunchpadPlugin>
///
/// Both parts are optional; elements of other names are skipped, and texts are not trimmed. A
/// plugin with a "launchTrigger" or a "terminationTrigger" (of the descriptor's or the behaviour's
/// own) is in the single group "conditional", whatever groups are listed: its conditions switch
/// it, not its groups. The descriptor is read once.
///
/// Its name is the behaviour's key, package uuid, "/", behaviour path. Thread-safe; the calls of
/// the behaviour manager are made with the plugin's mutex held.
class NimbraLaunchpadPluginBehavior : public NimbraLaunchpadPlugin {
public:
    /// The name of the service.
    static constexpr const char* kBehaviorManager = "KRBehaviorManager";

    /// Waits for the behaviour manager, without a limit, and reads the descriptor. KRError when
    /// the behaviour is no plugin or its descriptor cannot be read (which is logged with line and
    /// column).
    NimbraLaunchpadPluginBehavior(const vo::PackageInfo& package, const vo::BehaviorInfo& behavior,
                                  boost::shared_ptr<KRBroker> broker);
    /// The same, with the behaviour manager at hand.
    NimbraLaunchpadPluginBehavior(const vo::PackageInfo& package, const vo::BehaviorInfo& behavior,
                                  const vo::AnyObject& behaviorManager);

    /// Whether a behaviour is a plugin. Both outputs may be null; they are set even for a behaviour
    /// without descriptor. Behaviours of scratch packages, and those that the built-in plugins
    /// replace, are none.
    static bool isPlugin(const vo::PackageInfo& package, const vo::BehaviorInfo& behavior,
                         std::string* pluginId, std::string* descriptorPath);

    /// Does nothing: the behaviour was stopped before.
    void exit() override;

private:
    void _startPlugin() override VO_REQUIRES(mutex_);
    void _stopPlugin() override VO_REQUIRES(mutex_);
    bool _isPluginRunning() override VO_REQUIRES(mutex_);
    std::list<std::string> _getConditions(const std::string& purpose) override VO_REQUIRES(mutex_);

    /// For the constructor, where nobody else knows the plugin yet.
    void _loadInfo() VO_REQUIRES(mutex_);

    // Constant after construction.
    vo::PackageInfo packageInfo_;
    vo::BehaviorInfo behaviorInfo_;
    vo::AnyObject behaviorManager_;
};

}  // namespace KR
