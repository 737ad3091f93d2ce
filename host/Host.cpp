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

Host::Host(const std::shared_ptr<vo::Clock>& clock, Timeline& timeline, const Options& options)
    : timeline_(timeline),
      application_(clock),
      broker_(KRBroker::create(application_)),
      robot_(broker_, options.robot),
      life_(KRModule::createModule<LifeService>(broker_)),
      launcher_(KRModule::createModule<AppLauncher>(broker_)),
      permissions_(broker_),
      packages_(broker_, options.packages),
      activities_(broker_, permissions_, *life_),
      responder_(*life_, timeline)
{
    // The robot outlives the life service.
    life_->changed.connect([this](const LifeEvent& event) {
        if (event.kind == LifeEvent::Kind::chain)
            robot_.body().holdStill(event.subject, event.on);
    });
    const std::vector<vo::LogRecord> kept = makeLaunchpad(options.logLevel);
    const vo::LogListener listener([this](const vo::LogRecord& record) {
        if (record.level != vo::LogLevel::error)
            return;
        const vo::Lock lock(earlyErrorsMutex_);
        earlyErrors_.push_back(record);
    });
    for (const vo::LogRecord& record : kept)
        vo::Logger(record.category).error(record.label, record.text);
    for (const std::string& plugin : options.plugins)
        launchpad_->addModulePlugin(plugin);
    if (!options.config.empty())
        launchpad_->loadConfigFile(options.config);
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

/// Errors, and what plugins log of their starts and stops: nobody else tells of those.
void Host::recordLog(const vo::LogRecord& record)
{
    if (record.level == vo::LogLevel::error) {
        TimelineEvent event{TimelineEvent::Kind::error};
        event.subject = record.category;
        event.reason = record.label + ": " + record.text;
        timeline_.record(event);
        return;
    }
    if (record.category != "NimbraLaunchpadPlugin")
        return;
    for (const char* prefix : {"Started: ", "Stopped: "}) {
        if (!startsWith(record.text, prefix))
            continue;
        TimelineEvent event{TimelineEvent::Kind::plugin};
        event.subject = record.text.substr(std::strlen(prefix));
        event.on = record.label == "startPlugin";
        timeline_.record(event);
    }
}

/// A launchpad comes up with the default configuration, which is replaced right away by the one
/// that was chosen: what is logged about the default one would only mislead. Returns the errors
/// that are about something else.
std::vector<vo::LogRecord> Host::makeLaunchpad(vo::LogLevel logLevel)
{
    vo::Mutex mutex;
    std::vector<vo::LogRecord> kept;
    const vo::LogListener listener([&](const vo::LogRecord& record) {
        const bool ofDefault = startsWith(record.text, "Can't load default config file: ") ||
                               startsWith(record.text, "Cannot add condition: ");
        const vo::Lock lock(mutex);
        if (record.level == vo::LogLevel::error && !ofDefault)
            kept.push_back(record);
    });
    vo::setLogLevel(vo::LogLevel::silent);
    try {
        launchpad_ = std::make_unique<NimbraLaunchpad>(broker_, &permissions_.contextPermission(),
                                                       &responder_);
    } catch (...) {
        vo::setLogLevel(logLevel);
        throw;
    }
    vo::setLogLevel(logLevel);
    const vo::Lock lock(mutex);
    return kept;
}

Host::~Host()
{
    stop();
}

void Host::start(const std::vector<std::string>& moreKeys)
{
    std::vector<vo::LogRecord> early;
    {
        const vo::Lock lock(earlyErrorsMutex_);
        early.swap(earlyErrors_);
    }
    for (const vo::LogRecord& record : early)
        recordLog(record);
    log_.emplace([this](const vo::LogRecord& record) { recordLog(record); });
    std::set<std::string> keys(moreKeys.begin(), moreKeys.end());
    for (const auto& value : launchpad_->getPersistentValues()) {
        // Changes of the first are shown as what they are, changes of the robot's life; the others
        // pass with the time.
        if (!startsWith(value.first, "Nimbra/") && !kTimes.count(value.first))
            keys.insert(value.first);
    }
    timeline_.follow(broker_, {keys.begin(), keys.end()});
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
    timeline_.unfollow();
}

}  // namespace KR
