#include "plugins/builtin/HardwareInfoPlugin.h"

#include "platform/kr/KRBroker.h"

namespace KR {

const std::string HardwareInfoPlugin::fEventRaisedRobotType = "RobotType";

HardwareInfoPlugin::HardwareInfoPlugin(boost::shared_ptr<KRBroker> broker)
    : NimbraLaunchpadPluginModule(broker, "_LaunchpadPluginHardwareInfo")
{
    groups_.clear();
    groups_.push_back("solitary");
    groups_.push_back("interactive");
    robotModelProxy_ = getParentBroker()->getProxy("KRRobotModel");
    xDeclareLaunchpadEvent(fEventRaisedRobotType);
    xDescribe(KeyDescription::text(fEventRaisedRobotType, "model of the robot"));
}

void HardwareInfoPlugin::_startPlugin()
{
    if (started_)
        return;
    started_ = true;
    xRaiseRobotType();
}

void HardwareInfoPlugin::_stopPlugin()
{
    started_ = false;
}

void HardwareInfoPlugin::xRaiseRobotType()
{
    const auto name = robotModelProxy_->call<std::string>("_getRobotTypeString");
    // Conditions know both by the one name.
    xRaiseLaunchpadEvent(fEventRaisedRobotType, name == "quolla" ? "brixa" : name);
}

}  // namespace KR
