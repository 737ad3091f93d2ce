#include "life/ServiceActivities.h"

#include <algorithm>

#include "life/PermissionText.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"
#include "platform/vo/PackageInfo.h"
#include "platform/vo/Session.h"

namespace KR {

namespace {

const vo::Logger logger("Nimbra.Activities");

[[noreturn]] void refuse(const std::string& reason)
{
    throw LifeRefusal(LifeService::kName, "switchFocus", reason);
}

bool isOf(const vo::PackageInfo& package, const std::string& activity)
{
    return std::any_of(
        package.behaviors().begin(), package.behaviors().end(),
        [&](const auto& each) { return vo::behaviorKey(package, each) == activity; });
}

/// How the news of an end are worded; a behaviour's come with the status of its program.
std::string endText(const std::vector<vo::Value>& news)
{
    const int status = news.size() < 2 ? 0 : vo::fromValue<int>(news[1]);
    if (status < 0)
        return "it was ended by signal " + std::to_string(-status);
    return status == 0 ? "it has ended" : "it ended with exit code " + std::to_string(status);
}

}  // namespace

struct ServiceActivities::Kind {
    std::string prefix;
    const char* service;
    const char* start;
    const char* stop;
    const char* ended;
};

const ServiceActivities::Kind& ServiceActivities::kindOf(const std::string& activity)
{
    static const Kind kKinds[] = {
        {"dialog:", "dialog", "start", "stop", "onEnded"},
        {"action:", "action", "start", "stop", "onEnded"},
        {"", "KRBehaviorManager", "startBehavior", "stopBehavior", "onBehaviorEnded"}};
    return *std::find_if(std::begin(kKinds), std::end(kKinds), [&](const Kind& kind) {
        return BehaviorsCache::hasActivityPrefixes({kind.prefix}, activity);
    });
}

ServiceActivities::ServiceActivities(const boost::shared_ptr<KRBroker>& broker,
                                     ActivityPermissions& permissions, LifeService& life)
    : broker_(broker),
      permissions_(permissions),
      life_(life),
      // On the removing thread: what is started after the removal is another stay.
      unfollowPackages_(
          broker->session()
              .service("PackageManager")
              .object()
              ->connect("onPackageRemoved", [this](const std::vector<vo::Value>& package) {
                  onPackageRemoved(vo::fromValue<vo::PackageInfo>(package.at(0)));
              }))
{
    life_.setRunner(this);
}

ServiceActivities::~ServiceActivities()
{
    life_.setRunner(nullptr);
    unfollowPackages_();
    if (const auto running = takeRunning())
        running->disconnect();
}

void ServiceActivities::check(const std::string& activity)
{
    const Kind& kind = kindOf(activity);
    const bool isBehavior = kind.prefix.empty();
    if (isBehavior && !permissions_.isBehavior(activity))
        refuse("no behaviour '" + activity + "' is installed");
    const vo::AnyObject service = broker_->session().findService(kind.service);
    if (!service)
        refuse(std::string("there is no service '") + kind.service + "' that could run it");
    const std::vector<std::string> violations = permissions_.violations(activity);
    if (!violations.empty())
        refuse(permissionTexts(violations, presentContext(broker_->session())));
    if (isBehavior)
        service.call("preloadBehavior", activity);
}

void ServiceActivities::start(const std::string& activity, FocusId stay)
{
    const Kind& kind = kindOf(activity);
    const std::string name = activity.substr(kind.prefix.size());
    Running running{&kind, activity, stay, broker_->session().service(kind.service), [] {}};
    followEnd(running, name);
    {
        const vo::Lock lock(mutex_);
        running_ = running;
    }
    try {
        running.service.call(kind.start, name);
    } catch (...) {
        takeRunning();
        running.disconnect();
        throw;
    }
}

/// Before the start, so that not even the earliest end is missed.
void ServiceActivities::followEnd(Running& running, const std::string& name)
{
    try {
        running.disconnect = running.service.object()->connect(
            running.kind->ended,
            [this, name, stay = running.stay](const std::vector<vo::Value>& news) {
                if (vo::fromValue<std::string>(news.at(0)) == name)
                    postEnd(stay, endText(news));
            });
    } catch (const std::exception& e) {
        logger.verbose("start", std::string("Nobody tells when it ends: ") + e.what());
    }
}

void ServiceActivities::stop()
{
    const auto running = takeRunning();
    if (!running)
        return;
    running->disconnect();
    // A service that has gone took with it what it ran.
    if (running->service.object()->isClosed())
        return;
    const Kind& kind = *running->kind;
    running->service.call(kind.stop, running->activity.substr(kind.prefix.size()));
}

std::optional<ServiceActivities::Running> ServiceActivities::takeRunning()
{
    const vo::Lock lock(mutex_);
    return std::exchange(running_, std::nullopt);
}

void ServiceActivities::onPackageRemoved(const vo::PackageInfo& package)
{
    FocusId stay = 0;
    {
        const vo::Lock lock(mutex_);
        if (running_ && isOf(package, running_->activity))
            stay = running_->stay;
    }
    if (stay != 0)
        postEnd(stay, "its package was removed");
}

void ServiceActivities::postEnd(FocusId stay, const std::string& reason)
{
    vo::getEventLoop()->async([this, stay, reason] { life_.activityEnded(stay, reason); });
}

}  // namespace KR
