#include "robot/RobotBody.h"

#include <algorithm>
#include <map>

namespace KR {

namespace {

/// A chain is made of limbs; a limb is a chain too.
const std::map<std::string, std::vector<std::string>> kChains{
    {"Arms", {"LArm", "RArm"}}, {"Body", {"Head", "LArm", "LLeg", "RLeg", "RArm"}},
    {"Head", {"Head"}},         {"LArm", {"LArm"}},
    {"LLeg", {"LLeg"}},         {"Legs", {"LLeg", "RLeg"}},
    {"RArm", {"RArm"}},         {"RLeg", {"RLeg"}}};

const std::map<std::string, std::vector<std::string>> kLimbs{
    {"Head", {"HeadYaw", "HeadPitch"}},
    {"LArm", {"LShoulderPitch", "LShoulderRoll", "LElbowYaw", "LElbowRoll", "LWristYaw", "LHand"}},
    {"LLeg", {"LHipYawPitch", "LHipRoll", "LHipPitch", "LKneePitch", "LAnklePitch", "LAnkleRoll"}},
    {"RArm", {"RShoulderPitch", "RShoulderRoll", "RElbowYaw", "RElbowRoll", "RWristYaw", "RHand"}},
    {"RLeg", {"RHipYawPitch", "RHipRoll", "RHipPitch", "RKneePitch", "RAnklePitch", "RAnkleRoll"}}};

}  // namespace

const std::set<std::string>& robotChains()
{
    static const std::set<std::string> chains = [] {
        std::set<std::string> names;
        for (const auto& chain : kChains)
            names.insert(chain.first);
        return names;
    }();
    return chains;
}

std::vector<std::string> robotJoints(const std::string& chain)
{
    std::vector<std::string> joints;
    const auto limbs = kChains.find(chain);
    if (limbs == kChains.end())
        return joints;
    for (const auto& limb : limbs->second) {
        const auto& more = kLimbs.at(limb);
        joints.insert(joints.end(), more.begin(), more.end());
    }
    return joints;
}

std::vector<std::string> robotPart(const std::string& chainOrJoint)
{
    auto joints = robotJoints(chainOrJoint);
    if (!joints.empty())
        return joints;
    const auto all = robotJoints("Body");
    if (std::find(all.begin(), all.end(), chainOrJoint) != all.end())
        return {chainOrJoint};
    return {};
}

}  // namespace KR
