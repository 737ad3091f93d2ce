#include "robot/KRRobotPosture.h"

namespace KR {

KRRobotPosture::KRRobotPosture(const boost::shared_ptr<KRBroker>& broker,
                               std::shared_ptr<Body> body)
    : KRModule(broker, kName), body_(std::move(body))
{
    setModuleDescription("The posture");
    bindMethod("goToPosture", &KRRobotPosture::goToPosture, this, "Starts to take a posture",
               {{"posture", "its name"}, {"speed", "above 0, up to 1"}});
    bindMethod("getPosture", &KRRobotPosture::getPosture, this,
               "The posture; Unknown on the way to one");
    bindMethod("getPostureFamily", &KRRobotPosture::getPostureFamily, this,
               "The posture's family; Unknown on the way to one");
    bindMethod("getPostureList", &KRRobotPosture::getPostureList, this, "All postures");
}

void KRRobotPosture::goToPosture(const std::string& posture, double speed)
{
    body_->goToPosture(posture, speed);
}

std::string KRRobotPosture::getPosture() const
{
    return body_->getPosture();
}

std::string KRRobotPosture::getPostureFamily() const
{
    return body_->getPostureFamily();
}

std::vector<std::string> KRRobotPosture::getPostureList() const
{
    return Body::postures();
}

}  // namespace KR
