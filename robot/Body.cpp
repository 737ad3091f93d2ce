#include "robot/Body.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "platform/kr/KRError.h"
#include "platform/kr/KeyCatalogue.h"
#include "robot/RobotBody.h"

namespace KR {

namespace {

constexpr const char* kPostureService = "KRRobotPosture";
constexpr const char* kBodyService = "KRWorld";

struct PostureInfo {
    const char* family;
    int level;  ///< how high the body is: 0 lies, 1 sits, 2 crouches, 3 stands
    double pitch = BodyMotion::kUpright;
};

const std::map<std::string, PostureInfo> kPostures{
    {"Crouch", {"Crouching", 2}},
    {"LyingBack", {"LyingBack", 0, BodyMotion::kOnBack}},
    {"LyingBelly", {"LyingBelly", 0, BodyMotion::kOnBelly}},
    {"Sit", {"Sitting", 1}},
    {"SitRelax", {"Sitting", 1}},
    {"Stand", {"Standing", 3}},
    {"StandInit", {"Standing", 3}},
    {"StandZero", {"Standing", 3}}};

constexpr const char* kMotionService = "KRMotion";
constexpr const char* kFallKey = "robotHasFallen";
constexpr const char* kPushKey = "KRMotion/Safety/PushRecovery";
constexpr const char* kAccelerations[] = {"AccX", "AccY", "AccZ"};
constexpr const char* kRotations[] = {"GyrX", "GyrY"};
constexpr const char* kFeet[] = {"leftFootContact", "rightFootContact"};

std::string inertialKey(const std::string& axis)
{
    return "Device/SubDeviceList/InertialSensor/" + axis + "/Sensor/Value";
}

std::string temperatureKey(const std::string& joint)
{
    return "Device/SubDeviceList/" + joint + "/Temperature/Sensor/Value";
}

/// Written so that NaN is refused too.
void checkRange(double value, double min, double max, const char* method)
{
    if (!(value >= min && value <= max))
        throw KRError(kBodyService, method,
                      std::to_string(value) + " is not from " + std::to_string(int(min)) + " to " +
                          std::to_string(int(max)));
}

void describeKeys(KeyCatalogue& keys)
{
    using Key = KeyDescription;
    std::vector<KRValue> postures{Body::kUnknown};
    std::set<std::string> families{Body::kUnknown};
    for (const auto& [name, posture] : kPostures) {
        postures.emplace_back(name);
        families.insert(posture.family);
    }
    keys.addPublished(Key::text("PostureChanged", "posture; \"Unknown\" on the way to one")
                          .oneOf(std::move(postures)),
                      kPostureService);
    keys.addPublished(
        Key::text("PostureFamilyChanged", "its family").oneOf({families.begin(), families.end()}),
        kPostureService);
    keys.addPublished(Key::integer(kFallKey, "1 when it has hit the ground").between(1, 1),
                      kMotionService);
    keys.addPublished(
        Key::integer(kPushKey, "1 when it was pushed and kept its feet").between(1, 1),
        kMotionService);
    for (const char* axis : kAccelerations)
        keys.addPublished(Key::number(inertialKey(axis), "acceleration, mm/s²"), kMotionService);
    for (const char* axis : kRotations)
        keys.addPublished(Key::number(inertialKey(axis), "rotation, mrad/s"), kMotionService);
    for (const char* foot : kFeet)
        keys.addPublished(Key::number(foot, "1 with contact to the ground").oneOf({0.0, 1.0}),
                          kMotionService);
    keys.addPublished(Key::integer(temperatureKey("*"), "of a joint, Celsius"), kMotionService);
}

}  // namespace

Body::Body(boost::shared_ptr<KRBroker> broker)
    : broker_(std::move(broker)),
      joints_(robotJoints("Body")),
      heat_(joints_),
      keys_(broker_->memory()),
      timer_(*broker_->clock(), "Body", [this] {
          const vo::Lock lock(mutex_);
          update();
      })
{
    describeKeys(broker_->keys());
    const vo::Lock lock(mutex_);
    writePosture();
    writeHeat();
    update();
}

std::vector<std::string> Body::postures()
{
    std::vector<std::string> names;
    names.reserve(kPostures.size());
    for (const auto& posture : kPostures)
        names.push_back(posture.first);
    return names;
}

void Body::checkPart(const std::string& chainOrJoint, const char* method)
{
    if (robotPart(chainOrJoint).empty())
        throw KRError(kBodyService, method, "there is no chain or joint '" + chainOrJoint + "'");
}

void Body::checkHeat(double celsius, const char* method)
{
    checkRange(celsius, -20, 150, method);
}

void Body::checkLoad(double load, const char* method)
{
    checkRange(load, 0, 1, method);
}

void Body::goToPosture(const std::string& posture, double speed)
{
    const auto to = kPostures.find(posture);
    if (to == kPostures.end())
        throw KRError(kPostureService, "goToPosture", "there is no posture '" + posture + "'");
    if (!(speed > 0 && speed <= 1))
        throw KRError(kPostureService, "goToPosture", "the speed must be above 0 and at most 1");
    const vo::Lock lock(mutex_);
    if (way_ && way_->falls)
        throw KRError(kPostureService, "goToPosture", "it is falling");
    if (posture == posture_ && !way_)
        return;
    const int levels = std::abs(to->second.level - kPostures.at(posture_).level);
    // A robot that takes longer than a day does not move.
    const double seconds = std::min((1 + levels) / speed, 86400.0);
    const vo::Duration length(std::llround(seconds * 1e6));
    way_ = Way{posture, now() + length, false};
    motion_.tip(to->second.pitch, length, false, now());
    writePosture();
    update();
}

std::string Body::getPosture() const
{
    const vo::Lock lock(mutex_);
    return way_ ? kUnknown : posture_;
}

std::string Body::getPostureFamily() const
{
    const vo::Lock lock(mutex_);
    return way_ ? kUnknown : kPostures.at(posture_).family;
}

void Body::lift(bool lifted)
{
    const vo::Lock lock(mutex_);
    motion_.lift(lifted, now());
    update();
}

void Body::push(BodyMotion::Side from)
{
    const vo::Lock lock(mutex_);
    motion_.push(from, now());
    const bool isOnItsFeet = kPostures.at(posture_).level >= 2 && !(way_ && way_->falls);
    if (isOnItsFeet && !motion_.isLifted())
        broker_->memory().raiseEvent(kPushKey, 1);
    update();
}

void Body::fall(bool onBack)
{
    const vo::Lock lock(mutex_);
    const bool lies = kPostures.at(posture_).level == 0 && !motion_.isLifted();
    if (way_ ? way_->falls : lies)
        throw KRError(kBodyService, "fall", "it lies on the ground already");
    const std::string to = onBack ? "LyingBack" : "LyingBelly";
    motion_.lift(false, now());
    motion_.tip(kPostures.at(to).pitch, kFall, true, now());
    way_ = Way{to, now() + kFall, true};
    writePosture();
    update();
}

void Body::heat(const std::string& chainOrJoint, double celsius)
{
    checkPart(chainOrJoint, "heat");
    checkHeat(celsius, "heat");
    const vo::Lock lock(mutex_);
    for (const auto& joint : robotPart(chainOrJoint))
        heat_.heat(joint, celsius, now());
    writeHeat();
    update();
}

void Body::use(const std::string& chainOrJoint, double load)
{
    checkPart(chainOrJoint, "use");
    checkLoad(load, "use");
    const vo::Lock lock(mutex_);
    for (const auto& joint : robotPart(chainOrJoint))
        loads_[joint] = load;
    applyLoads();
}

void Body::holdStill(const std::string& chain, bool still)
{
    checkPart(chain, "holdStill");
    const vo::Lock lock(mutex_);
    if (still)
        still_.insert(chain);
    else
        still_.erase(chain);
    applyLoads();
}

void Body::applyLoads()
{
    std::map<std::string, double> loads = loads_;
    for (const auto& chain : still_) {
        for (const auto& joint : robotJoints(chain))
            loads.erase(joint);
    }
    for (const auto& joint : joints_) {
        const auto load = loads.find(joint);
        heat_.use(joint, load == loads.end() ? 0 : load->second, now());
    }
    update();
}

void Body::update()
{
    arrive();
    writeMotion();
    // The keys of temperature are many, and change slowly.
    if (now() >= nextHeat_)
        writeHeat();
    schedule();
}

void Body::arrive()
{
    if (!way_ || now() < way_->end)
        return;
    posture_ = way_->to;
    const bool fell = way_->falls;
    way_.reset();
    writePosture();
    if (fell)
        broker_->memory().raiseEvent(kFallKey, 1);
}

void Body::writePosture()
{
    keys_.write("PostureChanged", way_ ? kUnknown : posture_);
    keys_.write("PostureFamilyChanged", way_ ? kUnknown : kPostures.at(posture_).family);
}

void Body::writeMotion()
{
    const BodyReadings felt = motion_.at(now());
    for (std::size_t i = 0; i < std::size(kAccelerations); ++i)
        keys_.write(inertialKey(kAccelerations[i]), felt.acceleration[i]);
    for (std::size_t i = 0; i < std::size(kRotations); ++i)
        keys_.write(inertialKey(kRotations[i]), felt.rotation[i]);
    for (const char* foot : kFeet)
        keys_.write(foot, felt.feetOnGround ? 1.0 : 0.0);
}

void Body::writeHeat()
{
    for (const auto& joint : joints_)
        keys_.write(temperatureKey(joint), static_cast<int>(std::lround(heat_.at(joint, now()))));
    nextHeat_ = now() + kHeatCycle;
}

void Body::schedule()
{
    std::optional<vo::Duration> next;
    const auto sooner = [&](vo::Duration delay) {
        delay = std::max(delay, vo::Duration::zero());
        next = std::min(next.value_or(delay), delay);
    };
    if (way_)
        sooner(way_->end - now());
    if (motion_.isInMotion(now()))
        sooner(kMotionCycle);
    if (!heat_.isSettled(now()))
        sooner(nextHeat_ - now());
    timer_.set(next);
}

}  // namespace KR
