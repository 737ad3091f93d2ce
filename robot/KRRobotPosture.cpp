#include "robot/KRRobotPosture.h"

#include <set>

#include "platform/kr/KRError.h"

namespace KR {

namespace {

const std::set<std::string> kPostures{"Stand", "StandInit", "StandZero",  "Crouch",
                                      "Sit",   "SitRelax",  "LyingBelly", "LyingBack"};

}  // namespace

KRRobotPosture::KRRobotPosture(const boost::shared_ptr<KRBroker>& broker) : KRModule(broker, kName)
{
    setModuleDescription("The posture");
    bindMethod("goToPosture", &KRRobotPosture::goToPosture, this, "Takes a posture",
               {{"posture", "its name"}, {"speed", "above 0, up to 1"}});
    bindMethod("getPosture", &KRRobotPosture::getPosture, this, "The posture last taken");
}

void KRRobotPosture::goToPosture(const std::string& posture, double speed)
{
    if (!kPostures.count(posture))
        throw KRError(kName, "goToPosture", "there is no posture '" + posture + "'");
    if (!(speed > 0 && speed <= 1))
        throw KRError(kName, "goToPosture", "the speed must be above 0 and at most 1");
    const vo::Lock lock(mutex_);
    posture_ = posture;
}

std::string KRRobotPosture::getPosture() const
{
    const vo::Lock lock(mutex_);
    return posture_;
}

}  // namespace KR
