#include "robot/SimulatedBattery.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "platform/kr/KRError.h"
#include "robot/BatteryKeys.h"

namespace KR {

namespace {

using BatteryKeys::kService;

void checkRange(double value, double max, const char* method)
{
    // Written so that NaN is refused too.
    if (!(value >= 0 && value <= max))
        throw KRError(kService, method, "out of range: " + std::to_string(value));
}

}  // namespace

SimulatedBattery::SimulatedBattery(boost::shared_ptr<KRBroker> broker)
    : broker_(std::move(broker)),
      object_(std::make_shared<vo::ServiceObject>(kService)),
      since_(broker_->clock()->uptime())
{
    object_
        ->method(
            "getBatteryCharge", [this] { return getBatteryCharge(); }, "Charge in percent")
        .method("setCharge", [this](double percent) { setCharge(percent); })
        .method("setDischargeRate", [this](double rate) { setDischargeRate(rate); })
        .method("setChargeRate", [this](double rate) { setChargeRate(rate); })
        .method("connectCharger", [this](bool connected) { connectCharger(connected); })
        .method("isChargerConnected", [this] { return isChargerConnected(); });
    BatteryKeys::publish(broker_->memory(), false);
    BatteryKeys::describe(broker_->keys());
    broker_->session().registerService(object_);
}

SimulatedBattery::~SimulatedBattery()
{
    broker_->session().unregisterService(kService);
}

int SimulatedBattery::getBatteryCharge() const
{
    constexpr double kRounding = 1e-6;  // so that 80 that was computed as 79.999... stays 80
    vo::Lock lock(mutex_);
    return static_cast<int>(std::floor(chargeNow() + kRounding));
}

void SimulatedBattery::setCharge(double percent)
{
    checkRange(percent, 100, "setCharge");
    vo::Lock lock(mutex_);
    settle();
    charge_ = percent;
}

void SimulatedBattery::setDischargeRate(double percentPerHour)
{
    setRate(&SimulatedBattery::dischargeRate_, percentPerHour, "setDischargeRate");
}

void SimulatedBattery::setChargeRate(double percentPerHour)
{
    setRate(&SimulatedBattery::chargeRate_, percentPerHour, "setChargeRate");
}

void SimulatedBattery::setRate(double SimulatedBattery::*rate, double percentPerHour,
                               const char* method)
{
    checkRange(percentPerHour, kMaxRate, method);
    vo::Lock lock(mutex_);
    settle();
    this->*rate = percentPerHour;
}

void SimulatedBattery::connectCharger(bool connected)
{
    vo::Lock order(publishing_);
    {
        vo::Lock lock(mutex_);
        settle();
        connected_ = connected;
    }
    BatteryKeys::publish(broker_->memory(), connected);
}

bool SimulatedBattery::isChargerConnected() const
{
    vo::Lock lock(mutex_);
    return connected_;
}

double SimulatedBattery::chargeNow() const
{
    using Hours = std::chrono::duration<double, std::ratio<3600>>;
    const double hours = Hours(broker_->clock()->uptime() - since_).count();
    const double change = hours * (connected_ ? chargeRate_ : -dischargeRate_);
    return std::clamp(charge_ + change, 0.0, 100.0);
}

void SimulatedBattery::settle()
{
    charge_ = chargeNow();
    since_ = broker_->clock()->uptime();
}

}  // namespace KR
