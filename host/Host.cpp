#include "host/Host.h"

#include <cstring>
#include <set>

#include "platform/kr/KRMemory.h"
#include "platform/vo/EventLoop.h"
#include "robot/Body.h"

namespace KR {

namespace {

const vo::Logger logger("Nimbra.Host");

constexpr const char* kHost = "nimbra";  ///< as a publisher of keys
constexpr const char* kReadyKey = "TesselReady";

/// Keys that change every minute or more often, whatever happens.
const std::set<std::string> kTimes{"Launchpad/LifeTime", "Launchpad/Minute",
                                   "Launchpad/MinuteOfDay"};

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
      life_(KRModule::createModule<LifeService>(broker_)),
      launcher_(KRModule::createModule<AppLauncher>(broker_)),
      permissions_(broker_),
      packages_(broker_, options.packages),
      activities_(broker_, permissions_, *life_),
      responder_(*life_, events)
{
    vo::setLogLevel(options.logLevel);
    // The robot outlives the life service.
    life_->changed.connect([this](const LifeChange& change) {
        if (const auto* const chain = std::get_if<ChainChanged>(&change))
            robot_.body().holdStill(chain->chain, chain->frozen);
    });
    launchpad_ = std::make_unique<NimbraLaunchpad>(broker_, &permissions_.contextPermission(),
                                                   &responder_, options.config);
    for (const std::string& plugin : options.plugins)
        launchpad_->addModulePlugin(plugin);
    responder_.setSuggestions(
        [launchpad = launchpad_.get()](int mask) { return launchpad->getActionSuggestions(mask); });
    pluginSwitch_.emplace(*life_, *launchpad_);
    responder_.setPluginsChanged([this] { pluginSwitch_->apply(); });
    pluginSwitch_->apply();  // to plugins that came in between
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
    std::set<std::string> keys(moreKeys.begin(), moreKeys.end());
    for (const auto& value : launchpad_->getPersistentValues()) {
        // Changes of the first are shown as what they are, changes of the robot's life; the others
        // pass with the time.
        if (!startsWith(value.first, "Nimbra/") && !kTimes.count(value.first))
            keys.insert(value.first);
    }
    events_.follow(broker_, {keys.begin(), keys.end()});
    // What fails leaves the rest of the robot alive.
    try {
        launchpad_->startMonitoringConditions();
    } catch (const std::exception& e) {
        logger.error("start", e.what());
    }
}

void Host::stop()
{
    if (stopped_)
        return;
    stopped_ = true;
    responder_.setPluginsChanged({});
    pluginSwitch_.reset();
    try {
        launchpad_->stopMonitoringConditions();
    } catch (const std::exception& e) {
        logger.error("stop", e.what());
    }
    launchpad_->exit();
    application_.eventLoop().close();
    life_->exit();
    events_.unfollow();
}

}  // namespace KR
