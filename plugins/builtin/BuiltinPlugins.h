#pragma once

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {

class KRBroker;

/// A built-in plugin, and how it is made.
struct BuiltinPlugin {
    std::string name;  ///< by which users ask for it
    bool isOnDemand;   ///< true for one that is added by name alone, because of what it costs
    /// Makes and initialises it, as a module of the broker. Throws what its constructor does.
    boost::shared_ptr<NimbraLaunchpadPluginModule> (*make)(const boost::shared_ptr<KRBroker>&);
};

/// All of them: those that come with every launchpad, in the order in which they are made, then the
/// others in ascending order.
const std::vector<BuiltinPlugin>& builtinPlugins();

}  // namespace KR
