#include "life/Life.h"

#include <optional>

#include "launchpad/NimbraLaunchpad.h"
#include "life/ActivityPermissions.h"
#include "life/AppLauncher.h"
#include "life/EventStream.h"
#include "life/FocusQueue.h"
#include "life/FrozenChains.h"
#include "life/HistoryKeeper.h"
#include "life/InstalledPackages.h"
#include "life/LifeService.h"
#include "life/LifeStatus.h"
#include "life/PluginSwitch.h"
#include "life/Responder.h"
#include "life/ServiceActivities.h"
#include "life/ServiceCalls.h"
#include "platform/vo/Application.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger lifeLog("Nimbra.Life");

/// Keys that change every minute or more often, whatever happens.
const std::set<std::string> kTimes{"Launchpad/LifeTime", "Launchpad/Minute",
                                   "Launchpad/MinuteOfDay"};

/// Keys of the first kind change as what they stand for changes, which is an event of its own.
bool isWorthFollowing(const std::string& key)
{
    return key.rfind("Nimbra/", 0) != 0 && kTimes.count(key) == 0;
}

}  // namespace

/// In the order of who needs whom.
struct Life::Parts {
    Parts(const boost::shared_ptr<KRBroker>& theBroker, EventStream& theEvents,
          const Options& options)
        : broker(theBroker),
          events(theEvents),
          status(broker),
          chains(broker->clock(), options.chains,
                 [this](const ChainChanged& change) { status.changed(change); }),
          launcher(KRModule::createModule<AppLauncher>(broker)),
          permissions(broker),
          packages(broker, options.packages),
          calls(broker),
          activities(broker, permissions, calls),
          focus(broker->clock(), status, &activities),
          responder(status, chains, focus, calls, events),
          service(KRModule::createModule<LifeService>(broker, status, chains, focus, responder)),
          launchpad(broker, &permissions.contextPermission(), &responder, options.config,
                    {[this](const std::string& function, const std::string& text) {
                         events.note(
                             ErrorReported{NimbraLaunchpad::kLogCategory, function + ": " + text});
                     },
                     [this](const std::string& plugin, bool running) {
                         events.note(PluginSwitched{plugin, running});
                     }})
    {
        for (const std::string& plugin : options.plugins)
            launchpad.addModulePlugin(plugin);
        responder.setSuggestions([this](int mask) { return launchpad.getActionSuggestions(mask); });
        pluginSwitch.emplace(status, launchpad);
        responder.setPluginsChanged([this] { pluginSwitch->apply(); });
        pluginSwitch->apply();  // to plugins that came in between
        if (!options.state.empty())
            histories.emplace(broker->clock(), launchpad, options.state, options.resume);
    }

    const boost::shared_ptr<KRBroker> broker;
    EventStream& events;
    LifeStatus status;
    FrozenChains chains;
    const boost::shared_ptr<AppLauncher> launcher;
    ActivityPermissions permissions;
    InstalledPackages packages;
    ServiceCalls calls;
    ServiceActivities activities;
    FocusQueue focus;
    Responder responder;
    const boost::shared_ptr<LifeService> service;
    NimbraLaunchpad launchpad;
    std::optional<PluginSwitch> pluginSwitch;
    std::optional<HistoryKeeper> histories;
    bool stopped = false;
};

Life::Life(const boost::shared_ptr<KRBroker>& broker, EventStream& events, const Options& options)
    : parts_(std::make_unique<Parts>(broker, events, options))
{
}

Life::~Life()
{
    stop();
}

void Life::start(const std::vector<std::string>& moreKeys)
{
    std::set<std::string> keys(moreKeys.begin(), moreKeys.end());
    for (const auto& value : parts_->launchpad.getPersistentValues()) {
        if (isWorthFollowing(value.first))
            keys.insert(value.first);
    }
    parts_->events.follow(parts_->broker, {keys.begin(), keys.end()});
    if (parts_->histories)
        parts_->histories->start();
    try {
        parts_->launchpad.startMonitoringConditions();
    } catch (const std::exception& e) {
        lifeLog.error("start", e.what());
    }
}

void Life::stop()
{
    if (std::exchange(parts_->stopped, true))
        return;
    parts_->responder.setPluginsChanged({});
    parts_->pluginSwitch.reset();
    if (parts_->histories)
        parts_->histories->stop();
    try {
        parts_->launchpad.stopMonitoringConditions();
    } catch (const std::exception& e) {
        lifeLog.error("stop", e.what());
    }
    parts_->launchpad.exit();
    parts_->responder.exit();
    parts_->focus.exit();
    parts_->broker->application().eventLoop().close();
    parts_->service->exit();
    parts_->events.unfollow();
}

LifeService& Life::service()
{
    return *parts_->service;
}

NimbraLaunchpad& Life::launchpad()
{
    return parts_->launchpad;
}

}  // namespace KR
