#include "plugins/builtin/TemperaturePlugin.h"

#include <cmath>

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRError.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger temperaturePluginLog("LaunchpadPluginTemperature");

/// The one joint that is left out of every scan.
constexpr const char* kUnreadJoint = "RHipYawPitch";

std::string temperatureKey(const std::string& joint)
{
    return "Device/SubDeviceList/" + joint + "/Temperature/Sensor/Value";
}

/// A reading in whole degrees; KRError for anything that is none.
int wholeDegrees(const KRValue& reading)
{
    return (reading.isFloat() ? KRValue(std::trunc(reading.toFloat())) : reading).toInt32();
}

}  // namespace

const std::string TemperaturePlugin::fEventRaisedHighestTemperature = "HighestTemperature";
const std::string TemperaturePlugin::fEventRaisedHighestJoint = "HighestJoint";
const std::string TemperaturePlugin::fEventRaisedTemperatureStatus = "TemperatureStatus";

TemperaturePlugin::TemperaturePlugin(boost::shared_ptr<KRBroker> broker)
    : NimbraLaunchpadPluginModule(broker, "_LaunchpadPluginTemperature")
{
    groups_.clear();
    groups_.push_back("solitary");
    groups_.push_back("interactive");
    xDescribe(
        KeyDescription::integer(fEventRaisedHighestTemperature, "the hottest joint's, Celsius")
            .emptyAs(0));
    xDescribe(KeyDescription::text(fEventRaisedHighestJoint, "the hottest joint").emptyAs("None"));
    xDescribe(KeyDescription::text(fEventRaisedTemperatureStatus, "its temperature in a word")
                  .oneOf({"Cold", "Warm", "Hot", "Critical"})
                  .emptyAs("Unknown"));
    xReads(temperatureKey("*"));
    try {
        motionProxy_ = getParentBroker()->getProxy("KRMotion");
        xDeclareLaunchpadEvent(fEventRaisedHighestTemperature);
        xDeclareLaunchpadEvent(fEventRaisedHighestJoint);
        xDeclareLaunchpadEvent(fEventRaisedTemperatureStatus);
        xReadJointNames();
    } catch (const std::exception& e) {
        temperaturePluginLog.error("TemperaturePlugin",
                                   std::string("error at initialisation. Got: ") + e.what());
    }
    checkTask_.setName("Temperature Check");
    checkTask_.setCallback([this] { xCheckAllJointsTemperature(); });
    checkTask_.setUsPeriod(xGetDelayUSec(checkPeriod_));
}

TemperaturePlugin::~TemperaturePlugin()
{
    // A scan in progress uses the members below it.
    checkTask_.stop();
}

void TemperaturePlugin::exit()
{
    checkTask_.stop();
    started_ = false;
    NimbraLaunchpadPluginModule::exit();
}

void TemperaturePlugin::_startPlugin()
{
    if (started_)
        return;
    started_ = true;
    xRaiseEmptyEvents();
    checkTask_.start(true);
}

void TemperaturePlugin::_stopPlugin()
{
    if (!started_)
        return;
    checkTask_.stop();
    xRaiseEmptyEvents();
    started_ = false;
}

void TemperaturePlugin::xReadJointNames()
{
    try {
        joints_ = motionProxy_->call<std::vector<std::string>>("getBodyNames", std::string("Body"));
    } catch (const std::exception& e) {
        temperaturePluginLog.error("TemperaturePlugin",
                                   std::string("can't get body names: ") + e.what());
    }
}

void TemperaturePlugin::xCheckAllJointsTemperature()
{
    if (!started_)
        return;
    int highest = noTemperature_;
    std::string hottest;
    for (const auto& joint : joints_) {
        if (joint == kUnreadJoint)
            continue;
        const int temperature = xGetTemperature(joint);
        if (temperature > highest) {
            highest = temperature;
            hottest = joint;
        }
    }
    if (highest == noTemperature_)
        return;
    xRaiseLaunchpadEvent(fEventRaisedHighestTemperature, highest);
    xRaiseLaunchpadEvent(fEventRaisedHighestJoint, hottest);
    xRaiseLaunchpadEvent(fEventRaisedTemperatureStatus, xGetStatusTemperature(highest));
}

int TemperaturePlugin::xGetTemperature(const std::string& joint)
{
    try {
        return wholeDegrees(memoryProxy_->getData(temperatureKey(joint)));
    } catch (const KRError&) {
        return noTemperature_;
    }
}

std::string TemperaturePlugin::xGetStatusTemperature(int temperature)
{
    if (temperature < 40)
        return "Cold";
    if (temperature < 70)
        return "Warm";
    if (temperature <= 89)
        return "Hot";
    return "Critical";
}

void TemperaturePlugin::xRaiseEmptyEvents()
{
    for (const auto& name :
         {fEventRaisedHighestTemperature, fEventRaisedHighestJoint, fEventRaisedTemperatureStatus})
        xRaiseEmpty(name);
}

}  // namespace KR
