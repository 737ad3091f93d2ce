#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/kr/KRProxy.h"
#include "platform/vo/Future.h"
#include "platform/vo/PeriodicTask.h"
#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {

/// Publishes how the robot stands, and what was done to it:
///
///     Launchpad/Posture              string   as the service "KRRobotPosture" names them, when
///     Launchpad/PostureFamily        string   they change; looked up every 2 s and on its events
///     Launchpad/RobotPushedRecently  bool, true for 13 s after "KRMotion/Safety/PushRecovery"
///     Launchpad/RobotFellRecently    bool, true for 13 s after "robotHasFallen"
///     Launchpad/Lifted               bool, whether it is held off the ground; not declared
///
/// All are invalid when the plugin is made and when it is stopped. It starts only once the event
/// "TesselReady" has said that the life service is there, whose life time, in whole seconds, the
/// spans are counted in; a start before that is logged and does nothing.
///
/// Lifted is worked out for robots of type 0 alone, every 0.2 s: true from the moment when both
/// feet have lost contact while the body moves, until it has hardly moved for 4 s; for other types
/// it is false. The last motion readings, and whether pushed and fell were ever published, are kept
/// for the process, over all plugins of this class: a second plugin does not repeat what the first
/// has said.
///
/// Four mutexes guard the four concerns. They never nest, and come before the locks of the services
/// and of memory.
class PosturePlugin : public NimbraLaunchpadPluginModule {
public:
    static const std::string fEventRaisedRobotPushedRecently;
    static const std::string fEventRaisedRobotFellRecently;
    static const std::string fEventRaisedPosture;
    static const std::string fEventRaisedPostureFamily;
    static const std::string fEventRaisedLifted;

    /// KRError when there is no service "KRRobotPosture", or when "KRRobotModel" cannot say what
    /// robot this is.
    explicit PosturePlugin(boost::shared_ptr<KRBroker> broker);
    ~PosturePlugin() override;

    /// Waits for the platform from here on, and publishes the empty values.
    void init() override;
    void exit() override;

    void onTesselReady(const std::string& name, const KRValue& value, const std::string& message);
    void onPostureChanged(const std::string& name, const KRValue& value,
                          const std::string& message);
    void onFall(const std::string& name, const KRValue& value, const std::string& message);
    void onPush(const std::string& name, const KRValue& value, const std::string& message);

    /// Raises the posture and its family if they changed, or if forced to. Failures are logged.
    void xNotifyPostureChange(bool force);
    /// Raises whether it was pushed recently, if that changed, and comes back after a second as
    /// long as it is so.
    void xHandlePushRecoveryStatus();
    void xHandleFallRecoveryStatus();
    /// Whether the last push is less than 13 s old; false when that cannot be told.
    bool xIsStillInRecentPushRecovery();
    bool xIsStillInRecentFallRecovery();
    /// One look at the motion since the one before; a reset starts afresh from not lifted.
    /// Failures are logged.
    void xIsLifted(bool reset);
    void xRaiseEmptyEvents();

private:
    /// Something that happens to the robot and is published as having happened recently.
    struct Recency {
        Recency(std::string key, std::string datum)
            : happened(std::move(key)), published(std::move(datum))
        {
        }

        // Constant after construction.
        const std::string happened;       ///< the event's key
        const std::string published;      ///< the datum's name
        const std::int32_t span = 13;     ///< in units of the life time
        const float recheckDelay = 1.0F;  ///< seconds

        vo::Mutex mutex;
        bool last VO_GUARDED_BY(mutex) = false;  ///< the value last published
        vo::Future<void> recheck VO_GUARDED_BY(mutex);
    };
    using Operation = void (PosturePlugin::*)();
    using Question = bool (PosturePlugin::*)();

    void _startPlugin() override VO_REQUIRES(mutex_);
    void _stopPlugin() override VO_REQUIRES(mutex_);
    void describeKeys();
    void bindCallbacks();
    void notifyPostureChange(bool force) VO_REQUIRES(postureMutex_);
    void handleRecency(Recency& recency, Question question, Operation again,
                       std::atomic<bool>& firstRun);
    bool isRecent(const Recency& recency) const;
    void cancelRecheck(Recency& recency);
    void xSetupLiftedKeys();
    void detectLifted(bool reset) VO_REQUIRES(liftedMutex_);
    /// KRError when the platform is not ready, or the life service does not say.
    std::int32_t xGetLifeTime() const;

    // The callbacks read them without the plugin's mutex.
    std::atomic<bool> started_{false};
    std::atomic<bool> ready_{false};

    // Constant after construction.
    boost::shared_ptr<KRProxy> postureProxy_;
    boost::shared_ptr<KRProxy> robotModelProxy_;
    std::int32_t robotType_ = 0;
    std::vector<std::string> liftedKeys_;

    /// Only held to copy the proxy; the platform may say more than once that it is ready.
    mutable vo::Mutex lifeMutex_;
    boost::shared_ptr<KRProxy> lifeProxy_ VO_GUARDED_BY(lifeMutex_);

    vo::Mutex postureMutex_;
    std::string lastPosture_ VO_GUARDED_BY(postureMutex_);
    std::string lastFamily_ VO_GUARDED_BY(postureMutex_);

    Recency push_;
    Recency fall_;

    vo::Mutex liftedMutex_;
    bool lifted_ VO_GUARDED_BY(liftedMutex_) = false;
    const float liftedThresholdWhileDown_ = 0.175F;  ///< of the scaled motion of one step
    const float liftedThresholdWhileLifted_ = 0.01F;
    const std::int32_t liftedHoldTime_ = 4;  ///< in units of the life time

    const float posturePeriod_ = 2.0F;  ///< seconds
    vo::PeriodicTask postureTask_;
    const float liftedPeriod_ = 0.2F;  ///< seconds
    vo::PeriodicTask liftedTask_;
};

}  // namespace KR
