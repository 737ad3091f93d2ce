#include "robot/JointHeat.h"

#include <algorithm>
#include <cmath>

namespace KR {

JointHeat::JointHeat(const std::vector<std::string>& joints)
{
    for (const auto& joint : joints)
        joints_[joint] = {};
}

double JointHeat::temperatureOf(const Joint& joint, vo::Duration now)
{
    const double seconds = std::chrono::duration<double>(now - joint.since).count();
    return joint.end + (joint.temperature - joint.end) * std::exp(-seconds / kTimeConstant);
}

void JointHeat::heat(const std::string& joint, double celsius, vo::Duration now)
{
    Joint& heated = joints_.at(joint);
    heated.temperature = celsius;
    heated.since = now;
}

void JointHeat::use(const std::string& joint, double load, vo::Duration now)
{
    Joint& used = joints_.at(joint);
    used.temperature = temperatureOf(used, now);
    used.since = now;
    used.end = kAmbient + load * kFullLoadRise;
}

double JointHeat::at(const std::string& joint, vo::Duration now) const
{
    return temperatureOf(joints_.at(joint), now);
}

bool JointHeat::isSettled(vo::Duration now) const
{
    return std::all_of(joints_.begin(), joints_.end(), [&](const auto& joint) {
        return std::abs(temperatureOf(joint.second, now) - joint.second.end) < 0.05;
    });
}

}  // namespace KR
