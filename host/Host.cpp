#include "host/Host.h"

#include "platform/kr/KRMemory.h"
#include "platform/kr/SharedKeys.h"
#include "robot/Body.h"
#include "robot/RobotBody.h"

namespace KR {

namespace {

constexpr const char* kHost = "nimbra";  ///< as a publisher of keys

}  // namespace

Host::Host(const std::shared_ptr<vo::Clock>& clock, EventStream& events, const Options& options)
    : events_(events),
      log_([this](const vo::LogRecord& record) { publishError(record); }),
      application_(clock),
      broker_(KRBroker::create(application_)),
      robot_(broker_, options.robot),
      life_(broker_, events,
            {options.config, options.packages, options.plugins, robotChains(), options.state,
             options.resume})
{
    // The robot outlives the life service.
    chainChanges_ = life().changed.connect([this](const LifeChange& change) {
        if (const auto* const chain = std::get_if<ChainChanged>(&change))
            robot_.body().holdStill(chain->chain, chain->frozen);
    });
    broker_->keys().addPublished(
        KeyDescription::integer(keys::kReady, "1 once the robot may begin to live").between(1, 1),
        kHost);
    memory().raiseEvent(keys::kReady, 1);
    ready_ = memory().delivered();
}

/// The launchpad's own come as events from there.
void Host::publishError(const vo::LogRecord& record)
{
    if (record.level == vo::LogLevel::error && record.category != NimbraLaunchpad::kLogCategory)
        events_.publish(ErrorReported{record.category, record.label + ": " + record.text});
}

Host::~Host()
{
    stop();
}

void Host::start()
{
    life_.start();
}

void Host::stop()
{
    life_.stop();
}

}  // namespace KR
