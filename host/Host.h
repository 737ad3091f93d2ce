#pragma once

#include <memory>
#include <string>
#include <vector>

#include "launchpad/NimbraLaunchpad.h"
#include "life/EventStream.h"
#include "life/Life.h"
#include "life/LifeService.h"
#include "platform/kr/KRBroker.h"
#include "platform/kr/KeyCatalogue.h"
#include "platform/vo/Application.h"
#include "platform/vo/Future.h"
#include "platform/vo/Log.h"
#include "robot/Robot.h"

namespace KR {

/// A robot that lives: the platform, the robot's services, and its life.
///
///     made --start()--> monitoring --stop()--> stopped (final)
///
/// Used by one thread; what it assembles is thread-safe.
class Host {
public:
    struct Options {
        std::string config;                     ///< its path; empty for no rules
        std::string packages;                   ///< the packages folder; empty for none
        std::vector<std::string> plugins = {};  ///< built-in ones to add to the usual ones
        Robot::Options robot = {};
        std::string state = {};  ///< see Life::Options
        ResumeLimits resume = {};
    };

    /// Errors in the log are published from here on. The stream outlives the host.
    Host(const std::shared_ptr<vo::Clock>& clock, EventStream& events, const Options& options);
    /// Stops.
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Ends when everybody knows that the robot is ready ("TesselReady"), which some plugins wait
    /// for: wait for it before start(), or under a virtual clock run what is pending.
    const vo::Future<void>& ready() const { return ready_; }

    /// Starts monitoring.
    void start();
    /// Ends its life (see Life::stop()). Idempotent.
    void stop();

    KRMemory& memory() { return broker_->memory(); }
    KeyCatalogue& keys() { return broker_->keys(); }
    LifeService& life() { return life_.service(); }
    NimbraLaunchpad& launchpad() { return life_.launchpad(); }

private:
    void publishError(const vo::LogRecord& record);

    EventStream& events_;
    const vo::LogListener log_;

    // In the order of who needs whom.
    vo::Application application_;
    boost::shared_ptr<KRBroker> broker_;
    Robot robot_;
    Life life_;
    vo::Connection chainChanges_;
    vo::Future<void> ready_;
};

}  // namespace KR
