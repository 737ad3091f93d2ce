#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/kr/KRProxy.h"
#include "platform/vo/PeriodicTask.h"
#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {

/// Publishes how hot the hottest joint is:
///
///     Launchpad/HighestTemperature  int, whole degrees Celsius; 0 when stopped
///     Launchpad/HighestJoint        string, the joint's name; "None" when stopped
///     Launchpad/TemperatureStatus   "Cold" (below 40), "Warm" (below 70), "Hot" (up to 89),
///                                   "Critical" (above); "Unknown" when stopped
///
/// Every 5 s, and at its start, it reads every joint that the service "KRMotion" named when the
/// plugin was made, and raises all three. A joint that cannot be read counts as -1; when no joint
/// has more than that, nothing is raised. Without the service the plugin starts and stops, but
/// finds no joint.
class TemperaturePlugin : public NimbraLaunchpadPluginModule {
public:
    static const std::string fEventRaisedHighestTemperature;
    static const std::string fEventRaisedHighestJoint;
    static const std::string fEventRaisedTemperatureStatus;

    explicit TemperaturePlugin(boost::shared_ptr<KRBroker> broker);
    ~TemperaturePlugin() override;

    void exit() override;

    /// One scan over the joints; nothing for a plugin that is not started.
    void xCheckAllJointsTemperature();
    /// Whole degrees, fractions cut off; -1 when there is no such reading.
    int xGetTemperature(const std::string& joint);
    /// The word for a temperature.
    std::string xGetStatusTemperature(int temperature);
    void xRaiseEmptyEvents();

private:
    void _startPlugin() override VO_REQUIRES(mutex_);
    void _stopPlugin() override VO_REQUIRES(mutex_);
    void xReadJointNames();

    const float checkPeriod_ = 5.0F;  ///< seconds
    vo::PeriodicTask checkTask_;
    const std::int32_t noTemperature_ = -1;

    // Constant after construction.
    boost::shared_ptr<KRProxy> motionProxy_;
    std::vector<std::string> joints_;

    /// The task reads it while a start or stop holds the plugin's mutex.
    std::atomic<bool> started_{false};
};

}  // namespace KR
