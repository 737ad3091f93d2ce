#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <optional>
#include <string>

#include "platform/kr/KRBroker.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/ServiceObject.h"
#include "robot/Timer.h"

namespace KR {

/// The battery of the machine that the robot runs on: the service "KRBattery", with the methods
/// "getBatteryCharge" and "isChargerConnected", and the memory keys of SimulatedBattery.
///
/// It is read from a folder of power supplies, each a folder with small files, as Linux has it:
///
///     type       "Battery"; any other type is a source that the machine can be plugged to
///     scope      "Device" for what is not the machine's own, like a mouse's battery
///     capacity   of a battery, in percent
///     status     of a battery, "Charging", "Full", "Discharging", "Not charging" or "Unknown"
///     online     of a source, 1 when the machine is plugged to it
///
/// Several batteries count by their mean. The charger is connected when a source is online, or,
/// on a machine that tells of none, when a battery is charging or full and none is discharging. A
/// reading that fails leaves what was read before, and is logged once until one succeeds.
///
/// Read at the start and every kPeriod. Thread-safe.
class MachineBattery {
public:
    static constexpr const char* kFolder = "/sys/class/power_supply";
    static constexpr vo::Duration kPeriod = std::chrono::seconds(5);

    struct Reading {
        int charge = 0;  ///< percent, 0 to 100
        bool connected = false;
    };

    /// Nothing when there is no battery that can be read.
    static std::optional<Reading> read(const std::string& folder);
    static bool isThere(const std::string& folder) { return read(folder).has_value(); }

    /// Registers the service. KRError when there is no battery.
    MachineBattery(boost::shared_ptr<KRBroker> broker, const std::string& folder);
    ~MachineBattery();
    MachineBattery(const MachineBattery&) = delete;
    MachineBattery& operator=(const MachineBattery&) = delete;

    int getBatteryCharge() const;
    bool isChargerConnected() const;

private:
    void poll() VO_EXCLUDES(mutex_);

    // Constant after construction.
    const boost::shared_ptr<KRBroker> broker_;
    const std::string folder_;
    const std::shared_ptr<vo::ServiceObject> object_;

    /// Held while it writes memory.
    mutable vo::Mutex mutex_;
    Reading last_ VO_GUARDED_BY(mutex_);
    bool fails_ VO_GUARDED_BY(mutex_) = false;
    Timer timer_ VO_GUARDED_BY(mutex_);  ///< the first to go
};

}  // namespace KR
