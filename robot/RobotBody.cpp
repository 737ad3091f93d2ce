#include "robot/RobotBody.h"

namespace KR {

const std::set<std::string>& robotChains()
{
    static const std::set<std::string> chains{"Head", "Body", "Arms", "LArm",
                                              "RArm", "Legs", "LLeg", "RLeg"};
    return chains;
}

}  // namespace KR
