#include "robot/KRRobotModel.h"

namespace KR {

KRRobotModel::KRRobotModel(const boost::shared_ptr<KRBroker>& broker) : KRModule(broker, kName)
{
    setModuleDescription("Which robot this is");
    bindMethod("_getRobotType", &KRRobotModel::getRobotType, this, "The code of the robot's type");
    bindMethod("_getRobotTypeString", &KRRobotModel::getRobotTypeString, this,
               "The name of the robot's type");
}

}  // namespace KR
