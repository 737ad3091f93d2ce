#include "life/ServiceActivities.h"

#include <algorithm>

#include "life/Deadline.h"
#include "life/FocusRequest.h"
#include "life/PermissionText.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"
#include "platform/vo/PackageInfo.h"
#include "platform/vo/Session.h"

namespace KR {

namespace {

const vo::Logger serviceActivitiesLog("Nimbra.Activities");

constexpr const char* kCheck = "check";

[[noreturn]] void refuse(const std::string& reason)
{
    throw LifeRefusal("KRNimbra", "switchFocus", reason);
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

const std::vector<ServiceActivities::Kind>& ServiceActivities::kinds()
{
    static const std::vector<Kind> kKinds{
        {"dialog:", "dialog", "start", "stop", "onEnded"},
        {"action:", "action", "start", "stop", "onEnded"},
        {"", "KRBehaviorManager", "startBehavior", "stopBehavior", "onBehaviorEnded"}};
    return kKinds;
}

const ServiceActivities::Kind& ServiceActivities::kindOf(const std::string& activity)
{
    return *std::find_if(kinds().begin(), kinds().end(), [&](const Kind& kind) {
        return BehaviorsCache::hasActivityPrefixes({kind.prefix}, activity);
    });
}

std::string ServiceActivities::Running::name() const
{
    return activity.substr(kind->prefix.size());
}

ServiceActivities::ServiceActivities(const boost::shared_ptr<KRBroker>& broker,
                                     ActivityPermissions& permissions, ServiceCalls& calls)
    : broker_(broker),
      permissions_(permissions),
      calls_(calls),
      // On the removing thread: what is started after the removal is another stay.
      removals_(broker->session()
                    .service("PackageManager")
                    .object()
                    ->connect("onPackageRemoved", [this](const std::vector<vo::Value>& package) {
                        onPackageRemoved(vo::fromValue<vo::PackageInfo>(package.at(0)));
                    }))
{
    for (const Kind& kind : kinds()) {
        const auto checks = std::make_shared<vo::ServiceObject>("checks of " + kind.prefix);
        checks->method(kCheck, [this](const std::string& activity) { checkNow(activity); });
        checks_.emplace(&kind, checks);
    }
}

ServiceActivities::~ServiceActivities()
{
    for (const auto& [kind, checks] : checks_)
        checks->close();
    removals_.disconnect();
    if (const auto running = takeRunning())
        running->end->disconnect();
}

/// It is waited for no longer than the deadline, and made even later: nothing runs without the
/// focus.
vo::Future<void> ServiceActivities::callStop(const Running& running)
{
    const vo::Promise<void> promise;
    const char* const method = running.kind->stop;
    calls_.callAnyway(running.service, method, {vo::toValue(running.name())})
        .then(
            [promise](const vo::Future<vo::Value>& end) { promise.endWith([&] { end.value(); }); });
    failAfter(promise, kDefaultDeadline, running.service.name(), method);
    return promise.future();
}

/// It asks several services, the activity's module among them, so it is a call itself.
vo::Future<void> ServiceActivities::check(const std::string& activity)
{
    const vo::AnyObject checks(checks_.at(&kindOf(activity)));
    return calls_.call(checks, kCheck, {vo::toValue(activity)}).map([](const vo::Value&) {});
}

void ServiceActivities::checkNow(const std::string& activity)
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

/// Without a deadline: a start that ends late is to be undone.
vo::Future<void> ServiceActivities::start(const std::string& activity, FocusId stay)
{
    const vo::Promise<void> promise;
    try {
        const Kind& kind = kindOf(activity);
        Running running{&kind, activity, stay, broker_->session().service(kind.service)};
        followEnd(running);
        {
            const vo::Lock lock(mutex_);
            running_ = running;
        }
        const vo::Future<vo::Value> started =
            calls_.call(running.service, kind.start, {vo::toValue(running.name())});
        {
            const vo::Lock lock(mutex_);
            if (running_ && running_->stay == stay)
                running_->started = started;
        }
        started.then([this, running, promise](const vo::Future<vo::Value>& end) {
            onStarted(running, !end.hasValue());
            promise.endWith([&] { end.value(); });
        });
    } catch (...) {
        promise.setError(std::current_exception());
    }
    return promise.future();
}

/// Stops what was given up meanwhile, unless it is wanted again.
void ServiceActivities::onStarted(const Running& running, bool hasFailed)
{
    bool isWanted = false;
    {
        const vo::Lock lock(mutex_);
        isWanted = running_ && running_->activity == running.activity;
        if (hasFailed && running_ && running_->stay == running.stay)
            running_.reset();
    }
    if (hasFailed)
        running.end->disconnect();
    else if (!isWanted)
        callStop(running).then([activity = running.activity](const vo::Future<void>& stopped) {
            if (stopped.hasError())
                serviceActivitiesLog.error("start",
                                           activity + " was given up, but: " + stopped.error());
        });
}

/// Before the start, so that not even the earliest end is missed.
void ServiceActivities::followEnd(Running& running)
{
    try {
        *running.end = running.service.object()->connect(
            running.kind->ended,
            [this, name = running.name(), stay = running.stay](const std::vector<vo::Value>& news) {
                if (vo::fromValue<std::string>(news.at(0)) == name)
                    postEnd(stay, endText(news));
            });
    } catch (const std::exception& e) {
        serviceActivitiesLog.verbose("start",
                                     std::string("Nobody tells when it ends: ") + e.what());
    }
}

vo::Future<void> ServiceActivities::stop()
{
    const auto running = takeRunning();
    if (running)
        running->end->disconnect();
    // A service that has gone took with it what it ran.
    if (running && !running->isStarting() && !running->service.object()->isClosed())
        return callStop(*running);
    if (running && running->started.isValid())
        running->started.cancel();
    const vo::Promise<void> stopped;
    stopped.setValue();
    return stopped.future();
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
    vo::getEventLoop()->async([this, stay, reason] { ended(stay, reason); });
}

}  // namespace KR
