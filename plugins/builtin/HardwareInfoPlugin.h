#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include "platform/kr/KRProxy.h"
#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {

/// Publishes, once at every start, what kind of robot this is:
///
///     Launchpad/RobotType  string, as the service "KRRobotModel" names it, but "brixa" for
///                          "quolla"; stays when stopped
///
/// A start that cannot ask the service fails, and counts as made all the same: only after a stop
/// does another start ask again.
class HardwareInfoPlugin : public NimbraLaunchpadPluginModule {
public:
    static const std::string fEventRaisedRobotType;

    /// KRError when there is no service "KRRobotModel".
    explicit HardwareInfoPlugin(boost::shared_ptr<KRBroker> broker);

private:
    void _startPlugin() override VO_REQUIRES(mutex_);
    void _stopPlugin() override VO_REQUIRES(mutex_);
    void xRaiseRobotType();

    boost::shared_ptr<KRProxy> robotModelProxy_;
    bool started_ VO_GUARDED_BY(mutex_) = false;
};

}  // namespace KR
