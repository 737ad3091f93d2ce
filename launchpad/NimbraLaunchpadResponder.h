#pragma once

#include <list>

#include "launchpad/AutonomousAction.h"
#include "platform/conditions/ConditionChecker.h"

namespace KR {

/// What the launchpad's host does with its decisions. The host owns it; it outlives the launchpad.
///
/// Both operations come without any lock of the launchpad, so they may take long and may call back
/// into it.
class NimbraLaunchpadResponder {
public:
    virtual ~NimbraLaunchpadResponder() = default;

    /// Conditions were hit: their actions, in hit order, and what memory held then. Called on the
    /// event loop.
    virtual void processActions(const std::list<AutonomousAction>& actions,
                                const PersistentValues& persistentValues) = 0;

    /// A plugin that an installed behaviour backs was added. Called on a platform thread.
    virtual void onPluginsChanged() = 0;
};

}  // namespace KR
