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

/// Has the stream follow memory while it is there.
struct Following {
    Following(const boost::shared_ptr<KRBroker>& broker, EventStream& theEvents) : events(theEvents)
    {
        events.follow(broker);
    }
    ~Following() { events.unfollow(); }
    Following(const Following&) = delete;
    Following& operator=(const Following&) = delete;

    EventStream& events;
};

}  // namespace

/// In the order of who needs whom.
struct Life::Parts {
    Parts(const boost::shared_ptr<KRBroker>& theBroker, EventStream& theEvents,
          const Options& options)
        : broker(theBroker),
          events(theEvents),
          following(broker, events),
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
    const Following following;
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

void Life::start()
{
    std::vector<std::string> keys;
    for (const auto& value : parts_->launchpad.getPersistentValues())
        keys.push_back(value.first);
    parts_->events.publish(MonitoringSwitched{true, std::move(keys)});
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
    parts_->events.publish(MonitoringSwitched{false, {}});
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
