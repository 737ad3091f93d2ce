#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/AppLauncher.h"
#include "host/LifeService.h"
#include "host/Responder.h"
#include "host/Timeline.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/kr/KRBroker.h"
#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "robot/Robot.h"

namespace KR {

/// A robot that lives: the platform, the robot's services, the life service, the launchpad, and
/// the responder between them.
///
///     made --start()--> monitoring --stop()--> stopped (final)
///
/// Used by one thread; what it assembles is thread-safe.
class Host {
public:
    /// Loads the configuration file at `config`, and throws what that throws. The timeline
    /// outlives the host. `logLevel` is what the logger prints.
    Host(const std::shared_ptr<vo::Clock>& clock, Timeline& timeline, const std::string& config,
         vo::LogLevel logLevel = vo::LogLevel::warning);
    /// Stops.
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Has the timeline record errors of the log, also earlier ones, and the changes of the keys
    /// that the rules read and of these; then starts monitoring.
    void start(const std::vector<std::string>& moreKeys = {});
    /// Ends monitoring, then the launchpad, then the event loop. What was posted and has not begun
    /// is dropped. Idempotent.
    void stop();

    KRMemory& memory() { return broker_->memory(); }
    LifeService& life() { return *life_; }
    NimbraLaunchpad& launchpad() { return *launchpad_; }

private:
    std::vector<vo::LogRecord> makeLaunchpad(vo::LogLevel logLevel);
    void recordError(const vo::LogRecord& record);

    // In the order of who needs whom.
    Timeline& timeline_;
    vo::Application application_;
    boost::shared_ptr<KRBroker> broker_;
    Robot robot_;
    boost::shared_ptr<LifeService> life_;
    boost::shared_ptr<AppLauncher> launcher_;
    Responder responder_;
    std::unique_ptr<NimbraLaunchpad> launchpad_;
    std::vector<vo::LogRecord> earlyErrors_;  ///< from before start()
    std::optional<vo::LogListener> errors_;
    bool stopped_ = false;
};

}  // namespace KR
