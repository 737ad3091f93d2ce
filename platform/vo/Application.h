#pragma once

#include <memory>

#include "platform/vo/Clock.h"

namespace vo {

class EventLoop;
class Executor;
class Session;

/// One running platform: a clock, the event loop, and the session in which services find one
/// another.
///
/// Making one installs it as the process's current application, which getEventLoop(), import()
/// and PeriodicTask use; destroying it takes it away again. At most one exists at a time
/// (std::logic_error otherwise), so a test makes its own and is alone with it.
///
/// Everything that was made on an application is destroyed before it. The destructor refuses new
/// work and waits for the task in progress.
class Application {
public:
    explicit Application(std::shared_ptr<Clock> clock);
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    /// The current application; std::logic_error when there is none. Thread-safe.
    static Application& current();
    /// The same, or null when there is none. Thread-safe.
    static Application* currentOrNull();
    /// The clock of the current application, or null when there is none. Thread-safe; the clock
    /// stays valid however soon the application goes away.
    static std::shared_ptr<Clock> currentClock();

    const std::shared_ptr<Clock>& clock() const { return clock_; }
    EventLoop& eventLoop() { return *eventLoop_; }
    Session& session() { return *session_; }
    /// Serial queue on which signals of services reach those who connected through a handle.
    Executor& signalExecutor() { return *signalExecutor_; }

private:
    // Constant after construction.
    std::shared_ptr<Clock> clock_;
    std::shared_ptr<Executor> signalExecutor_;
    std::unique_ptr<EventLoop> eventLoop_;
    std::unique_ptr<Session> session_;
};

}  // namespace vo
