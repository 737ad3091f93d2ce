#include "plugins/builtin/BatteryPlugin.h"

#include "platform/kr/KRBroker.h"
#include "platform/kr/SharedKeys.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger batteryPluginLog("LaunchpadPluginBattery");

/// The battery board's status word, and its bit that says that the charger is charging.
constexpr int kChargingMask = 128;
/// A battery that takes longer to answer is taken for one that cannot tell.
constexpr vo::Duration kAnswerLimit = std::chrono::seconds(2);

}  // namespace

const std::string BatteryPlugin::fEventRaisedBatteryLevel = "BatteryLevel";
const std::string BatteryPlugin::fEventRaisedBatteryStatus = "BatteryStatus";
const std::string BatteryPlugin::fEventRaisedBatteryIsCharging = "BatteryIsCharging";

BatteryPlugin::BatteryPlugin(boost::shared_ptr<KRBroker> broker)
    : NimbraLaunchpadPluginModule(broker, "_LaunchpadPluginBattery")
{
    groups_.clear();
    groups_.push_back("solitary");
    groups_.push_back("interactive");
    batteryProxy_ = getParentBroker()->getProxy("KRBattery");
    xDeclareLaunchpadEvent(fEventRaisedBatteryLevel);
    xDeclareLaunchpadEvent(fEventRaisedBatteryStatus);
    xDescribe(KeyDescription::integer(fEventRaisedBatteryLevel, "fifth of the charge")
                  .between(1, 5)
                  .emptyAs(-1));
    xDescribe(KeyDescription::text(fEventRaisedBatteryStatus, "charge in a word")
                  .oneOf({"Critical", "Low", "Half", "Full"})
                  .emptyAs("None"));
    xDescribe(
        KeyDescription::boolean(fEventRaisedBatteryIsCharging, "the charger charges").emptyAs(0));
    xReads(keys::kBatteryStatus);
    checkTask_.setName("Battery Check");
    checkTask_.setCallback([this] { xCheckBatteryLevel(); });
    checkTask_.setUsPeriod(xGetDelayUSec(checkPeriod_));
}

BatteryPlugin::~BatteryPlugin()
{
    // A check in progress uses the members below it.
    checkTask_.stop();
}

void BatteryPlugin::exit()
{
    checkTask_.stop();
    NimbraLaunchpadPluginModule::exit();
}

void BatteryPlugin::_startPlugin()
{
    if (started_)
        return;
    started_ = true;
    xRaiseEmptyEvents();
    checkTask_.start(true);
}

void BatteryPlugin::_stopPlugin()
{
    if (!started_)
        return;
    checkTask_.stop();
    xRaiseEmptyEvents();
    started_ = false;
}

void BatteryPlugin::xCheckBatteryLevel()
{
    const int band = xGetBatteryLevel();
    xRaiseLaunchpadEvent(fEventRaisedBatteryLevel, band);
    xRaiseLaunchpadEvent(fEventRaisedBatteryStatus, xGetStatusBatteryLevel(band));
    const bool charging = xGetBatteryChargingStatus();
    if (charging == lastCharging_)
        return;
    xRaiseLaunchpadEvent(fEventRaisedBatteryIsCharging, charging);
    lastCharging_ = charging;
}

int BatteryPlugin::xGetBatteryLevel()
{
    try {
        const int percent = batteryProxy_->callWithin<int>(kAnswerLimit, "getBatteryCharge");
        if (percent < 20)
            return 1;
        if (percent < 40)
            return 2;
        if (percent < 60)
            return 3;
        if (percent < 80)
            return 4;
        return 5;
    } catch (const std::exception& e) {
        batteryPluginLog.warning("xGetBatteryLevel",
                                 std::string("Can't get battery level: ") + e.what());
        return 1;
    }
}

std::string BatteryPlugin::xGetStatusBatteryLevel(int band)
{
    if (band < 2)
        return "Critical";
    if (band == 2)
        return "Low";
    if (band == 3)
        return "Half";
    return "Full";
}

bool BatteryPlugin::xGetBatteryChargingStatus()
{
    return (memoryProxy_->getData(keys::kBatteryStatus).toInt() & kChargingMask) != 0;
}

void BatteryPlugin::xRaiseEmptyEvents()
{
    for (const auto& name :
         {fEventRaisedBatteryLevel, fEventRaisedBatteryStatus, fEventRaisedBatteryIsCharging})
        xRaiseEmpty(name);
}

}  // namespace KR
