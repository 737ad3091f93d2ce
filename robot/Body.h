#pragma once

#include <boost/shared_ptr.hpp>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/kr/KRBroker.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"
#include "robot/BodyMotion.h"
#include "robot/ChangedKeys.h"
#include "robot/JointHeat.h"
#include "robot/Timer.h"

namespace KR {

/// The simulated robot's body: its posture, what its inertial unit and feet feel, and how warm its
/// joints are; and the memory keys that tell it:
///
///     PostureChanged, PostureFamilyChanged     the posture, its family; "Unknown" on the way
///     robotHasFallen                           1 when it has hit the ground
///     KRMotion/Safety/PushRecovery             1 when it was pushed on its feet and kept them
///     Device/SubDeviceList/InertialSensor/<AccX, AccY, AccZ>/Sensor/Value   float, mm/s²
///     Device/SubDeviceList/InertialSensor/<GyrX, GyrY>/Sensor/Value         float, mrad/s
///     leftFootContact, rightFootContact        float, 1.0 with contact, 0.0 without
///     Device/SubDeviceList/<joint>/Temperature/Sensor/Value                 int, °C
///
/// Feelings are BodyMotion's, temperatures JointHeat's. From one posture to another it takes as
/// many seconds, at full speed, as there are levels between them (lying, sitting, crouching,
/// standing), and one more.
///
/// They are written when they change: at once, every kMotionCycle while it is moved, and every
/// kHeatCycle while a joint warms or cools. Thread-safe; its mutex is held while it writes memory,
/// and comes before the locks of memory and clock. Errors are KRError, after which nothing has
/// changed.
class Body {
public:
    static constexpr vo::Duration kMotionCycle = std::chrono::milliseconds(100);
    static constexpr vo::Duration kHeatCycle = std::chrono::seconds(5);
    static constexpr vo::Duration kFall = std::chrono::milliseconds(800);
    static constexpr const char* kUnknown = "Unknown";

    explicit Body(boost::shared_ptr<KRBroker> broker);
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

    /// Starts towards one of postures(), at a speed above 0 and up to 1. A fall has to be over.
    void goToPosture(const std::string& posture, double speed) VO_EXCLUDES(mutex_);
    /// kUnknown on the way from one to another.
    std::string getPosture() const VO_EXCLUDES(mutex_);
    std::string getPostureFamily() const VO_EXCLUDES(mutex_);
    /// In ascending order.
    static std::vector<std::string> postures();

    /// Takes it off the ground, or puts it down.
    void lift(bool lifted) VO_EXCLUDES(mutex_);
    void push(BodyMotion::Side from) VO_EXCLUDES(mutex_);
    /// Falls from its feet, or out of the hands that hold it, on its belly or its back.
    void fall(bool onBack) VO_EXCLUDES(mutex_);

    /// Makes the joints of a chain, or one joint, so warm: from -20 to 150 °C.
    void heat(const std::string& chainOrJoint, double celsius) VO_EXCLUDES(mutex_);
    /// Has them carry a part of their full load, 0 to 1, from now on.
    void use(const std::string& chainOrJoint, double load) VO_EXCLUDES(mutex_);
    /// The joints of a chain that is held still carry nothing.
    void holdStill(const std::string& chain, bool still) VO_EXCLUDES(mutex_);

    /// Each raises KRError, naming `method`, for what heat() or use() does not take; NaN is none
    /// that they take.
    static void checkPart(const std::string& chainOrJoint, const char* method);
    static void checkHeat(double celsius, const char* method);
    static void checkLoad(double load, const char* method);

private:
    struct Way {
        std::string to;
        vo::Duration end;  ///< uptime
        bool falls;
    };

    vo::Duration now() const { return broker_->clock()->uptime(); }
    void update() VO_REQUIRES(mutex_);
    void arrive() VO_REQUIRES(mutex_);
    void writePosture() VO_REQUIRES(mutex_);
    void writeMotion() VO_REQUIRES(mutex_);
    void writeHeat() VO_REQUIRES(mutex_);
    void applyLoads() VO_REQUIRES(mutex_);
    void schedule() VO_REQUIRES(mutex_);

    // Constant after construction.
    const boost::shared_ptr<KRBroker> broker_;
    const std::vector<std::string> joints_;

    mutable vo::Mutex mutex_;
    std::string posture_ VO_GUARDED_BY(mutex_) = "Stand";  ///< the last one taken
    std::optional<Way> way_ VO_GUARDED_BY(mutex_);
    BodyMotion motion_ VO_GUARDED_BY(mutex_);
    JointHeat heat_ VO_GUARDED_BY(mutex_);
    std::map<std::string, double> loads_ VO_GUARDED_BY(mutex_);  ///< by joint, when it may move
    std::set<std::string> still_ VO_GUARDED_BY(mutex_);          ///< chains
    vo::Duration nextHeat_ VO_GUARDED_BY(mutex_){};              ///< uptime
    ChangedKeys keys_ VO_GUARDED_BY(mutex_);
    Timer timer_ VO_GUARDED_BY(mutex_);  ///< the first to go
};

}  // namespace KR
