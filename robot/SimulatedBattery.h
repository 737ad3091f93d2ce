#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>

#include "platform/kr/KRBroker.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/ServiceObject.h"

namespace KR {

/// A battery that drains and recharges linearly with the platform's clock: the service
/// "KRBattery".
///
/// Robots ask it for "getBatteryCharge". It writes two memory keys, at the start and whenever the
/// charger is connected or taken away:
///
///     Device/SubDeviceList/Battery/Charge/Sensor/Status   status word; 128 while charging, else 0
///     KRBattery/ConnectedToChargingStation                bool
///
/// The rest drives it, by hand or from a scenario; the service's methods have the same names.
/// Thread-safe. Wrong values are refused with KRError (module "KRBattery").
class SimulatedBattery {
public:
    /// A full battery lasts five hours, and recharges in two and a half.
    static constexpr double kDefaultDischargeRate = 20;
    static constexpr double kDefaultChargeRate = 40;
    /// Percent an hour: empty within a microsecond. Beyond it, products may overflow.
    static constexpr double kMaxRate = 100 * 3.6e9;

    /// Starts full, without charger, and registers the service.
    explicit SimulatedBattery(boost::shared_ptr<KRBroker> broker);
    ~SimulatedBattery();
    SimulatedBattery(const SimulatedBattery&) = delete;
    SimulatedBattery& operator=(const SimulatedBattery&) = delete;

    /// Charge in whole percent, rounded down.
    int getBatteryCharge() const;
    /// Sets the charge, 0 to 100 percent.
    void setCharge(double percent);
    /// Percent an hour, not negative, without and with charger.
    void setDischargeRate(double percentPerHour);
    void setChargeRate(double percentPerHour);
    /// Puts the robot on its charging station, or takes it away. The charger charges for as long
    /// as it is connected; a full battery stays full.
    void connectCharger(bool connected);
    bool isChargerConnected() const;

private:
    double chargeNow() const VO_REQUIRES(mutex_);
    /// Begins a new line at what the charge is now.
    void settle() VO_REQUIRES(mutex_);
    void setRate(double SimulatedBattery::*rate, double percentPerHour, const char* method);

    // Constant after construction.
    boost::shared_ptr<KRBroker> broker_;
    std::shared_ptr<vo::ServiceObject> object_;

    /// Keeps connecting and the memory's keys in one order. Taken before mutex_.
    vo::Mutex publishing_;
    mutable vo::Mutex mutex_;
    double charge_ VO_GUARDED_BY(mutex_) = 100;                           ///< percent, at since_
    vo::Duration since_ VO_GUARDED_BY(mutex_);                            ///< uptime
    double dischargeRate_ VO_GUARDED_BY(mutex_) = kDefaultDischargeRate;  ///< percent an hour
    double chargeRate_ VO_GUARDED_BY(mutex_) = kDefaultChargeRate;
    bool connected_ VO_GUARDED_BY(mutex_) = false;
};

}  // namespace KR
