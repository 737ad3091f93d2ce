#pragma once

#include <vector>

#include "launchpad/AutonomousAction.h"
#include "platform/kr/KRModule.h"

namespace KR {

/// The robot's main interactive activity, "applauncher_module", which the launchpad asks for
/// actions when it comes up. This host has no applications to offer, so it exports none.
class AppLauncher : public KRModule {
public:
    static constexpr const char* kName = "applauncher_module";

    explicit AppLauncher(const boost::shared_ptr<KRBroker>& broker) : KRModule(broker, kName)
    {
        setModuleDescription("The main interactive activity");
        bindMethod("getAutonomousActions", &AppLauncher::getAutonomousActions, this,
                   "The autonomous actions that it exports");
    }

    std::vector<AutonomousAction> getAutonomousActions() const { return {}; }
};

}  // namespace KR
