#include "life/ActivityPermissions.h"

#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"
#include "platform/vo/Session.h"

namespace KR {

namespace {

const vo::Logger activityPermissionsLog("Nimbra.Permissions");

constexpr const char* kService = "ContextPermission";
constexpr const char* kSpeech = "KRTextToSpeech";
constexpr const char* kLanguageProperty = "languageTTS";

}  // namespace

ActivityPermissions::ActivityPermissions(const boost::shared_ptr<KRBroker>& broker)
    : broker_(broker), permission_(broker, &behaviors_, this)
{
    permission_.connectSignals();
    // After the permission object, so that it knows the new language when its cache is refreshed.
    services_ = broker->session().registered().connect([this](const vo::AnyObject& service) {
        if (service.name() != kSpeech)
            return;
        followSpeech();
        postRefresh();
    });
    followSpeech();
    registerService();
}

ActivityPermissions::~ActivityPermissions()
{
    broker_->session().unregisterService(kService);
    services_.disconnect();
    {
        const vo::Lock lock(speechMutex_);
        language_.disconnect();
    }
    refreshGate_->close();
}

/// That of the service that is there: it may come late, or in place of another one.
void ActivityPermissions::followSpeech()
{
    const vo::Lock lock(speechMutex_);
    const vo::AnyObject speech = broker_->session().findService(kSpeech);
    if (!speech || speech.object() == speech_.object())
        return;
    language_.disconnect();
    speech_ = {};
    // A robot's own speech service may know one language only.
    try {
        language_ = speech.follow<std::string>(kLanguageProperty,
                                               [this](const std::string&) { postRefresh(); });
        speech_ = speech;
    } catch (const std::exception& e) {
        activityPermissionsLog.verbose("followSpeech", e.what());
    }
}

void ActivityPermissions::registerService()
{
    using Text = const std::string&;
    const auto object = std::make_shared<vo::ServiceObject>(kService);
    object
        ->method(
            "checkPermissionViolations",
            [this](Text activity) { return permission_.checkPermissionViolations(activity); },
            "The reasons against an activity now; none when it may run")
        .method(
            "getPermissionsCache",
            [this](Text activity) { return permission_.getPermissionsCache(activity); },
            "The kept reasons against an activity that a user may ask for")
        .readOnlyProperty("permissions", permission_.permissions());
    broker_->session().registerService(object);
}

bool ActivityPermissions::isBehavior(const std::string& activity) const
{
    try {
        behaviors_.getBehaviorInfo(activity);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

/// The permission object hears of the context's changes on the platform's threads, later than a
/// rule that, say, wakes the robot and then starts an activity. So it has to read it now; what it
/// has read is no news to it any more, which leaves the refresh to us.
std::vector<std::string> ActivityPermissions::violations(const std::string& activity)
{
    permission_.connectSignals();
    postRefresh();
    return permission_.checkPermissionViolations(activity);
}

void ActivityPermissions::postRefresh()
{
    if (refreshPosted_.exchange(true))
        return;
    vo::getEventLoop()->async([this, gate = refreshGate_] {
        const vo::CallbackGate::Pass pass(*gate);
        if (!pass)
            return;
        refreshPosted_ = false;
        permission_.refreshBehaviorsPermissions();
    });
}

}  // namespace KR
