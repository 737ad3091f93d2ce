#include "plugins/builtin/PosturePlugin.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRError.h"
#include "platform/kr/SharedKeys.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger posturePluginLog("LaunchpadPluginPosture");

const std::string kFamilyKey = "PostureFamilyChanged";
const std::string kPostureKey = "PostureChanged";
const std::string kFallKey = "robotHasFallen";
const std::string kPushKey = "KRMotion/Safety/PushRecovery";

// Where the readings stand in a list of them. The motion is summed over the three accelerations and
// the first angular speed; the second one is read, but not counted.
constexpr std::size_t kReadings = 7;
constexpr std::size_t kMotionReadings = 4;
constexpr std::size_t kLeftFoot = 5;
constexpr std::size_t kRightFoot = 6;
constexpr double kFootContact = 0.5;  ///< from here on a foot has contact
constexpr double kMotionScale = 1000.0;

/// What lifting remembers from one look to the next, one for the process.
class MotionMemory {
public:
    KRValue readings() const
    {
        const vo::Lock lock(mutex_);
        return readings_;
    }
    void setReadings(const KRValue& readings)
    {
        const vo::Lock lock(mutex_);
        readings_ = readings;
    }

    std::atomic<std::int32_t> perturbedTime{0};  ///< life time of the last motion

private:
    mutable vo::Mutex mutex_;  // nothing is called while it is held
    KRValue readings_ VO_GUARDED_BY(mutex_);
};

MotionMemory& motionMemory()
{
    static MotionMemory memory;
    return memory;
}

/// Whether motion can be seen from these readings on: those of the feet do not count.
bool holdsReadings(const KRValue& readings)
{
    if (!readings.isArray() || readings.getSize() != kReadings)
        return false;
    const auto& values = readings.toArray();
    return std::all_of(values.begin(), values.begin() + kMotionReadings,
                       [](const KRValue& v) { return v.isNumber() || v.isBool(); });
}

/// A reading in single precision; one beyond its range counts as infinite.
float singlePrecision(const KRValue& reading)
{
    constexpr double kMax = std::numeric_limits<float>::max();
    const double value = reading.toFloat();
    return static_cast<float>(std::abs(value) > kMax ? std::copysign(INFINITY, value) : value);
}

float motionBetween(const KRValue& before, const KRValue& now)
{
    float motion = 0.0F;
    for (std::size_t i = 0; i < kMotionReadings; ++i)
        motion += std::abs(singlePrecision(now[i]) - singlePrecision(before[i]));
    return motion;
}

}  // namespace

const std::string PosturePlugin::fEventRaisedRobotPushedRecently = "RobotPushedRecently";
const std::string PosturePlugin::fEventRaisedRobotFellRecently = "RobotFellRecently";
const std::string PosturePlugin::fEventRaisedPosture = "Posture";
const std::string PosturePlugin::fEventRaisedPostureFamily = "PostureFamily";
const std::string PosturePlugin::fEventRaisedLifted = "Lifted";

PosturePlugin::PosturePlugin(boost::shared_ptr<KRBroker> broker)
    : NimbraLaunchpadPluginModule(broker, "_LaunchpadPluginPosture"),
      push_(kPushKey, fEventRaisedRobotPushedRecently),
      fall_(kFallKey, fEventRaisedRobotFellRecently)
{
    groups_.clear();
    groups_.push_back("solitary");
    groups_.push_back("interactive");
    postureProxy_ = getParentBroker()->getProxy("KRRobotPosture");
    robotModelProxy_ = getParentBroker()->getProxy("KRRobotModel");
    robotType_ = robotModelProxy_->call<std::int32_t>("_getRobotType");
    xSetupLiftedKeys();
    describeKeys();
    xDeclareLaunchpadEvent(fEventRaisedRobotPushedRecently);
    xDeclareLaunchpadEvent(fEventRaisedRobotFellRecently);
    xDeclareLaunchpadEvent(fEventRaisedPosture);
    xDeclareLaunchpadEvent(fEventRaisedPostureFamily);
    bindCallbacks();
    postureTask_.setName("Posture Check");
    postureTask_.setCallback([this] { xNotifyPostureChange(false); });
    postureTask_.setUsPeriod(xGetDelayUSec(posturePeriod_));
    liftedTask_.setName("Lifted Check");
    liftedTask_.setCallback([this] { xIsLifted(false); });
    liftedTask_.setUsPeriod(xGetDelayUSec(liftedPeriod_));
}

PosturePlugin::~PosturePlugin()
{
    // A check in progress uses the other members.
    postureTask_.stop();
    liftedTask_.stop();
}

void PosturePlugin::describeKeys()
{
    for (const auto& [name, meaning] : {std::pair(fEventRaisedRobotPushedRecently, "was pushed"),
                                        std::pair(fEventRaisedRobotFellRecently, "fell"),
                                        std::pair(fEventRaisedLifted, "is held off the ground")})
        xDescribe(KeyDescription::boolean(name, meaning).emptyAs(KRValue()));
    xDescribe(KeyDescription::text(fEventRaisedPosture, "posture").emptyAs(KRValue()));
    xDescribe(KeyDescription::text(fEventRaisedPostureFamily, "its family").emptyAs(KRValue()));
    for (const auto& key : {std::string(keys::kReady), kFamilyKey, kPostureKey, kFallKey, kPushKey})
        xReads(key);
    for (const auto& key : liftedKeys_)
        xReads(key);
}

void PosturePlugin::bindCallbacks()
{
    const auto bind = [this](const std::string& method, auto function, const std::string& event) {
        bindMethod(method, function, this, event + " callback",
                   {{"name", "Name of the event"},
                    {"value" + event, "Value for " + event},
                    {"message", "Event message"}});
    };
    bind("_onPostureFamilyChanged", &PosturePlugin::onPostureChanged, "PostureFamilyChanged");
    bind("_onPostureChanged", &PosturePlugin::onPostureChanged, "PostureChanged");
    bind("_onFall", &PosturePlugin::onFall, "RobotHasFallen");
    bind("_onPush", &PosturePlugin::onPush, "PushRecovery");
    bind("_onTesselReady", &PosturePlugin::onTesselReady, keys::kReady);
}

void PosturePlugin::xSetupLiftedKeys()
{
    const std::string inertial = "Device/SubDeviceList/InertialSensor/";
    for (const auto* sensor : {"AccX", "AccY", "AccZ", "GyrX", "GyrY"})
        liftedKeys_.push_back(inertial + sensor + "/Sensor/Value");
    liftedKeys_.push_back("leftFootContact");
    liftedKeys_.push_back("rightFootContact");
}

void PosturePlugin::init()
{
    xSubscribeMicroEvent(keys::kReady, "_onTesselReady");
    xRaiseEmptyEvents();
}

void PosturePlugin::exit()
{
    cancelRecheck(push_);
    cancelRecheck(fall_);
    try {
        xUnsubscribeMicroEvent(keys::kReady);
    } catch (const KRError&) {
        // It has exited before.
    }
    NimbraLaunchpadPluginModule::exit();
}

void PosturePlugin::onTesselReady(const std::string&, const KRValue&, const std::string&)
{
    try {
        const auto life = getParentBroker()->getProxy("KRNimbra");
        const vo::Lock lock(lifeMutex_);
        lifeProxy_ = life;
        ready_ = true;
    } catch (const KRError& e) {
        posturePluginLog.warning("onTesselReady",
                                 std::string("error at initialisation. Got: ") + e.what());
    }
}

void PosturePlugin::onPostureChanged(const std::string&, const KRValue&, const std::string&)
{
    const vo::Lock lock(postureMutex_);
    if (started_)
        notifyPostureChange(false);
}

void PosturePlugin::onFall(const std::string&, const KRValue&, const std::string&)
{
    xHandleFallRecoveryStatus();
}

void PosturePlugin::onPush(const std::string&, const KRValue&, const std::string&)
{
    xHandlePushRecoveryStatus();
}

void PosturePlugin::_startPlugin()
{
    if (!ready_) {
        posturePluginLog.warning("_startPlugin",
                                 "The plugin can't be started before Tessel is ready");
        return;
    }
    if (started_)
        return;
    xSubscribeMicroEvent(kFamilyKey, "_onPostureFamilyChanged");
    xSubscribeMicroEvent(kPostureKey, "_onPostureChanged");
    xSubscribeMicroEvent(kFallKey, "_onFall");
    xSubscribeMicroEvent(kPushKey, "_onPush");
    started_ = true;
    xNotifyPostureChange(true);
    xHandlePushRecoveryStatus();
    xHandleFallRecoveryStatus();
    xIsLifted(true);
    postureTask_.start(true);
    if (robotType_ == 0)
        liftedTask_.start(true);
}

void PosturePlugin::_stopPlugin()
{
    if (!started_)
        return;
    cancelRecheck(push_);
    cancelRecheck(fall_);
    postureTask_.stop();
    liftedTask_.stop();
    started_ = false;
    for (const auto& key : {kFallKey, kFamilyKey, kPostureKey, kPushKey})
        xUnsubscribeMicroEvent(key);
    // A callback in progress ends before the empty values; a later one finds the plugin stopped.
    for (auto* mutex : {&postureMutex_, &push_.mutex, &fall_.mutex})
        const vo::Lock lock(*mutex);
    xRaiseEmptyEvents();
}

void PosturePlugin::xNotifyPostureChange(bool force)
{
    const vo::Lock lock(postureMutex_);
    notifyPostureChange(force);
}

void PosturePlugin::notifyPostureChange(bool force)
{
    try {
        const auto posture = postureProxy_->call<std::string>("getPosture");
        if (posture != lastPosture_ || force) {
            lastPosture_ = posture;
            xRaiseLaunchpadEvent(fEventRaisedPosture, posture);
        }
        const auto family = postureProxy_->call<std::string>("getPostureFamily");
        if (family != lastFamily_ || force) {
            lastFamily_ = family;
            xRaiseLaunchpadEvent(fEventRaisedPostureFamily, family);
        }
    } catch (const KRError& e) {
        posturePluginLog.warning("xNotifyPostureChange",
                                 std::string("error NotifyPostureChange") + e.what());
    }
}

void PosturePlugin::xHandlePushRecoveryStatus()
{
    static std::atomic<bool> firstRun{false};
    handleRecency(push_, &PosturePlugin::xIsStillInRecentPushRecovery,
                  &PosturePlugin::xHandlePushRecoveryStatus, firstRun);
}

void PosturePlugin::xHandleFallRecoveryStatus()
{
    static std::atomic<bool> firstRun{false};
    handleRecency(fall_, &PosturePlugin::xIsStillInRecentFallRecovery,
                  &PosturePlugin::xHandleFallRecoveryStatus, firstRun);
}

void PosturePlugin::handleRecency(Recency& recency, Question question, Operation again,
                                  std::atomic<bool>& firstRun)
{
    const vo::Lock lock(recency.mutex);
    const bool recent = (this->*question)();
    if ((recent != recency.last || !firstRun) && started_) {
        firstRun = true;
        recency.last = recent;
        xRaiseLaunchpadEvent(recency.published, recent);
    }
    xTryCancelFuture(recency.recheck);
    if (!recency.last || !started_)
        return;
    recency.recheck = vo::getEventLoop()->async(
        [weak = weak_from_this(), again] {
            if (const auto plugin = weak.lock())
                (static_cast<PosturePlugin&>(*plugin).*again)();
        },
        xGetDelayUSec(recency.recheckDelay));
}

void PosturePlugin::cancelRecheck(Recency& recency)
{
    const vo::Lock lock(recency.mutex);
    xTryCancelFuture(recency.recheck);
}

bool PosturePlugin::xIsStillInRecentPushRecovery()
{
    try {
        return isRecent(push_);
    } catch (const KRError& e) {
        posturePluginLog.warning("xIsStillInRecentPushRecovery",
                                 std::string("error IsStillInRecentPushRecovery") + e.what());
        return false;
    }
}

bool PosturePlugin::xIsStillInRecentFallRecovery()
{
    try {
        return isRecent(fall_);
    } catch (const KRError&) {
        return false;
    }
}

bool PosturePlugin::isRecent(const Recency& recency) const
{
    const KRValue history = memoryProxy_->getEventHistory(recency.happened);
    if (history.getSize() == 0 || !ready_)
        return false;
    const std::int64_t time = history[history.getSize() - 1][1].toInt32();
    const std::int64_t age = xGetLifeTime() - time;
    return age >= 0 && age < recency.span;
}

std::int32_t PosturePlugin::xGetLifeTime() const
{
    boost::shared_ptr<KRProxy> life;
    {
        const vo::Lock lock(lifeMutex_);
        life = lifeProxy_;
    }
    if (!life)
        throw KRError("PosturePlugin", "xGetLifeTime", "This object is null");
    return life->call<std::int32_t>("getLifeTime");
}

void PosturePlugin::xIsLifted(bool reset)
{
    const vo::Lock lock(liftedMutex_);
    if (robotType_ != 0) {
        if (reset)
            xRaiseLaunchpadEvent(fEventRaisedLifted, false);
        return;
    }
    try {
        detectLifted(reset);
    } catch (const std::exception& e) {
        posturePluginLog.warning("xIsLifted", std::string("Cannot get data: ") + e.what());
    }
}

// What can fail comes first, and what is remembered changes only after it.
void PosturePlugin::detectLifted(bool reset)
{
    MotionMemory& memory = motionMemory();
    const KRValue current = memoryProxy_->getListData(liftedKeys_);
    if (!current.isArray() || current.getSize() != kReadings)
        throw KRError("PosturePlugin", "xIsLifted", "invalid data");
    if (reset) {
        lifted_ = false;
        memory.setReadings(current);
        xRaiseLaunchpadEvent(fEventRaisedLifted, false);
        return;
    }
    const KRValue previous = memory.readings();
    if (!holdsReadings(previous)) {
        posturePluginLog.warning("xIsLifted", "Previous values were not initialized");
        memory.setReadings(current);
        return;
    }
    const float motion = motionBetween(previous, current);
    const bool offGround =
        current[kLeftFoot].toFloat() < kFootContact && current[kRightFoot].toFloat() < kFootContact;
    const std::int32_t now = xGetLifeTime();
    memory.setReadings(current);

    const float threshold = lifted_ ? liftedThresholdWhileLifted_ : liftedThresholdWhileDown_;
    if (offGround && motion / kMotionScale > threshold)
        memory.perturbedTime = now;
    const bool candidate = std::int64_t{now} - memory.perturbedTime < liftedHoldTime_;
    if (candidate != lifted_ && started_) {
        lifted_ = candidate;
        xRaiseLaunchpadEvent(fEventRaisedLifted, candidate);
    }
}

void PosturePlugin::xRaiseEmptyEvents()
{
    for (const auto& name :
         {fEventRaisedPosture, fEventRaisedPostureFamily, fEventRaisedRobotPushedRecently,
          fEventRaisedRobotFellRecently, fEventRaisedLifted})
        xRaiseEmpty(name);
}

}  // namespace KR
