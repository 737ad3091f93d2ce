#include "robot/KRMotion.h"

#include "platform/kr/KRError.h"
#include "robot/RobotBody.h"

namespace KR {

KRMotion::KRMotion(const boost::shared_ptr<KRBroker>& broker) : KRModule(broker, kName)
{
    setModuleDescription("The joints");
    bindMethod("getBodyNames", &KRMotion::getBodyNames, this, "The joints of a chain",
               {{"name", "a chain, Body for all joints"}});
}

std::vector<std::string> KRMotion::getBodyNames(const std::string& name) const
{
    auto joints = robotPart(name);
    if (joints.empty())
        throw KRError(kName, "getBodyNames", "there is no chain or joint '" + name + "'");
    return joints;
}

}  // namespace KR
