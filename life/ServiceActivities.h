#pragma once

#include <boost/shared_ptr.hpp>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "life/ActivityPermissions.h"
#include "life/ActivityRunner.h"
#include "life/ServiceCalls.h"
#include "platform/kr/KRBroker.h"
#include "platform/vo/AnyObject.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// Runs activities through the robot's services, by the name of the activity:
///
/// | | service | methods | signal |
/// |---|---|---|---|
/// | "dialog:" and a topic | "dialog" | "start", "stop" (topic) | "onEnded" (topic) |
/// | "action:" and a module | "action" | "start", "stop" (module) | "onEnded" (module) |
/// | any other: a behaviour's key | "KRBehaviorManager" | "startBehavior", "stopBehavior" | ... |
///
/// The methods may return futures. The signal is optional. It tells of what ended by itself; what a
/// stop has to tell is told before the stop has ended. Ends, and the removal of the package of the
/// behaviour that runs, are passed on as `ended` on the event loop.
///
/// Thread-safe, but one start or stop at a time. Destroyed after the event loop is closed, and when
/// a check in progress has ended.
class ServiceActivities : public ActivityRunner {
public:
    /// All outlive it. Needs the service "PackageManager".
    ServiceActivities(const boost::shared_ptr<KRBroker>& broker, ActivityPermissions& permissions,
                      ServiceCalls& calls);
    ~ServiceActivities() override;
    ServiceActivities(const ServiceActivities&) = delete;
    ServiceActivities& operator=(const ServiceActivities&) = delete;

    vo::Future<void> check(const std::string& activity) override;
    vo::Future<void> start(const std::string& activity, FocusId stay) override;
    vo::Future<void> stop() override;

private:
    struct Kind;
    /// What is started or runs, and how it is stopped.
    struct Running {
        const Kind* kind;
        std::string activity;
        FocusId stay;
        vo::AnyObject service;
        std::shared_ptr<vo::Connection> end = std::make_shared<vo::Connection>();
        vo::Future<vo::Value> started = {};  ///< invalid until the start is called

        std::string name() const;
        bool isStarting() const { return !started.isValid() || started.isRunning(); }
    };

    static const std::vector<Kind>& kinds();
    static const Kind& kindOf(const std::string& activity);
    void checkNow(const std::string& activity);
    vo::Future<void> callStop(const Running& running);
    void followEnd(Running& running);
    void onStarted(const Running& running, bool hasFailed);
    void onPackageRemoved(const vo::PackageInfo& package);
    void postEnd(FocusId stay, const std::string& reason);
    std::optional<Running> takeRunning();

    // Constant after construction.
    const boost::shared_ptr<KRBroker> broker_;
    ActivityPermissions& permissions_;
    ServiceCalls& calls_;
    /// What calls_ has check activities. One for each kind, so that a module that hangs holds up no
    /// behaviour.
    std::map<const Kind*, std::shared_ptr<vo::ServiceObject>> checks_;

    vo::Mutex mutex_;
    std::optional<Running> running_ VO_GUARDED_BY(mutex_);

    /// Constant after construction. Last, as removals may come from then on.
    vo::Connection removals_;
};

}  // namespace KR
