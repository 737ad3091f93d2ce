#include "platform/vo/Application.h"

#include <stdexcept>
#include <utility>

#include "platform/vo/EventLoop.h"
#include "platform/vo/Executor.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/Session.h"

namespace vo {

namespace {

struct Installed {
    Mutex mutex;
    Application* application VO_GUARDED_BY(mutex) = nullptr;
};

Installed installed;

}  // namespace

// Both queues have threads of their own: neither may wait behind a poll that is slow.
Application::Application(std::shared_ptr<Clock> clock)
    : clock_(std::move(clock)),
      signalExecutor_(clock_->makeExecutor("signals", Clock::Threading::own)),
      eventLoop_(
          std::make_unique<EventLoop>(clock_->makeExecutor("event loop", Clock::Threading::own))),
      session_(std::make_unique<Session>())
{
    const Lock<Mutex> lock(installed.mutex);
    if (installed.application)
        throw std::logic_error("there is an Application already");
    installed.application = this;
}

// It stays current until the last: services that go down still ask for it.
Application::~Application()
{
    eventLoop_->close();
    signalExecutor_->close();
    session_->close();
    const Lock<Mutex> lock(installed.mutex);
    installed.application = nullptr;
}

Application& Application::current()
{
    if (Application* const application = currentOrNull())
        return *application;
    throw std::logic_error("there is no Application");
}

Application* Application::currentOrNull()
{
    const Lock<Mutex> lock(installed.mutex);
    return installed.application;
}

std::shared_ptr<Clock> Application::currentClock()
{
    const Lock<Mutex> lock(installed.mutex);
    return installed.application ? installed.application->clock_ : nullptr;
}

}  // namespace vo
