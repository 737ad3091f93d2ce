#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include "platform/kr/KRProxy.h"
#include "platform/vo/PeriodicTask.h"
#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {

/// Publishes the battery's charge and the charger's state, coarsely enough to write conditions on:
///
///     Launchpad/BatteryLevel       int 1..5, one for each fifth of the charge; -1 when stopped
///     Launchpad/BatteryStatus      "Critical" (1), "Low" (2), "Half" (3), "Full" (4 and 5);
///                                  "None" when stopped
///     Launchpad/BatteryIsCharging  bool, raised when it changes; int 0 when stopped
///
/// Once a minute, and at its start, it asks the service "KRBattery" and reads the battery board's
/// status word; it subscribes to nothing. A charge that cannot be had counts as critical, and is
/// logged. The charging state last published is remembered over a stop, so that after a restart
/// "BatteryIsCharging" stays 0 until the state differs from it.
class BatteryPlugin : public NimbraLaunchpadPluginModule {
public:
    static const std::string fEventRaisedBatteryLevel;
    static const std::string fEventRaisedBatteryStatus;
    static const std::string fEventRaisedBatteryIsCharging;

    /// KRError when there is no service "KRBattery".
    explicit BatteryPlugin(boost::shared_ptr<KRBroker> broker);
    ~BatteryPlugin() override;

    void exit() override;

    /// One check: reads charge and charger, and raises the events.
    void xCheckBatteryLevel();
    /// The charge's band, 1..5.
    int xGetBatteryLevel();
    /// The word for a band.
    std::string xGetStatusBatteryLevel(int band);
    /// KRError when the status word cannot be read.
    bool xGetBatteryChargingStatus();
    void xRaiseEmptyEvents();

private:
    void _startPlugin() override VO_REQUIRES(mutex_);
    void _stopPlugin() override VO_REQUIRES(mutex_);

    const float checkPeriod_ = 60.0F;  ///< seconds
    vo::PeriodicTask checkTask_;
    boost::shared_ptr<KRProxy> batteryProxy_;
    bool lastCharging_ = false;  ///< only the task uses it; its runs never overlap
    bool started_ VO_GUARDED_BY(mutex_) = false;
};

}  // namespace KR
