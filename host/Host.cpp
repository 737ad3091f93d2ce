#include "host/Host.h"

#include <cstring>

#include "platform/kr/KRMemory.h"
#include "robot/Body.h"
#include "robot/RobotBody.h"

namespace KR {

namespace {

constexpr const char* kHost = "nimbra";  ///< as a publisher of keys
constexpr const char* kReadyKey = "TesselReady";

bool startsWith(const std::string& text, const char* prefix)
{
    return text.rfind(prefix, 0) == 0;
}

}  // namespace

Host::Host(const std::shared_ptr<vo::Clock>& clock, EventStream& events, const Options& options)
    : events_(events),
      application_(clock),
      broker_(KRBroker::create(application_)),
      robot_(broker_, options.robot),
      life_(broker_, events, {options.config, options.packages, options.plugins, robotChains()})
{
    // The robot outlives the life service.
    life().changed.connect([this](const LifeChange& change) {
        if (const auto* const chain = std::get_if<ChainChanged>(&change))
            robot_.body().holdStill(chain->chain, chain->frozen);
    });
    broker_->keys().addPublished(
        KeyDescription::integer(kReadyKey, "1 once the robot may begin to live").between(1, 1),
        kHost);
    memory().raiseEvent(kReadyKey, 1);
    ready_ = memory().delivered();
}

/// Nobody listens yet to what happens before the start; errors are kept for then.
void Host::takeLog(const vo::LogRecord& record)
{
    {
        const vo::Lock lock(earlyErrorsMutex_);
        if (earlyErrors_) {
            if (record.level == vo::LogLevel::error)
                earlyErrors_->push_back(record);
            return;
        }
    }
    publishLog(record);
}

/// In the order in which they came, those that come meanwhile included.
void Host::tellEarlyErrors()
{
    for (;;) {
        std::vector<vo::LogRecord> errors;
        {
            const vo::Lock lock(earlyErrorsMutex_);
            if (!earlyErrors_)
                return;
            errors.swap(*earlyErrors_);
            if (errors.empty())
                earlyErrors_.reset();
        }
        for (const vo::LogRecord& error : errors)
            publishLog(error);
    }
}

/// Errors, and what plugins log of their starts and stops: nobody else tells of those.
void Host::publishLog(const vo::LogRecord& record)
{
    if (record.level == vo::LogLevel::error) {
        events_.publish(ErrorReported{record.category, record.label + ": " + record.text});
        return;
    }
    if (record.category != "NimbraLaunchpadPlugin")
        return;
    for (const char* prefix : {"Started: ", "Stopped: "}) {
        if (!startsWith(record.text, prefix))
            continue;
        events_.publish(
            PluginSwitched{record.text.substr(std::strlen(prefix)), record.label == "startPlugin"});
    }
}

Host::~Host()
{
    stop();
}

void Host::start(const std::vector<std::string>& moreKeys)
{
    tellEarlyErrors();
    life_.start(moreKeys);
}

void Host::stop()
{
    life_.stop();
}

}  // namespace KR
