#include "life/Life.h"

#include <atomic>
#include <optional>

#include "launchpad/NimbraLaunchpad.h"
#include "life/ActivityPermissions.h"
#include "life/AppLauncher.h"
#include "life/EventStream.h"
#include "life/FocusQueue.h"
#include "life/FrozenChains.h"
#include "life/HistoryKeeper.h"
#include "life/InstalledPackages.h"
#include "life/LifeDriver.h"
#include "life/LifeService.h"
#include "life/LifeStatus.h"
#include "life/PluginSwitch.h"
#include "life/Requests.h"
#include "life/Responder.h"
#include "life/ServiceActivities.h"
#include "life/ServiceCalls.h"
#include "life/Turns.h"
#include "platform/vo/Application.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"
#include "platform/vo/PackageInfo.h"
#include "platform/vo/Session.h"

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

/// Publishes which packages are there, and which come and go.
class PackageNews {
public:
    /// Needs the service "PackageManager".
    PackageNews(const boost::shared_ptr<KRBroker>& broker, EventStream& events)
    {
        const vo::AnyObject manager = broker->session().service("PackageManager");
        for (const auto& [signal, installed] :
             {std::pair("onPackageInstalled", true), {"onPackageRemoved", false}})
            connections_.push_back(manager.connect(
                signal, [&events, installed = installed](const vo::PackageInfo& package) {
                    events.note(PackageChanged{package, installed});
                }));
        for (const auto& package : manager.call<std::vector<vo::PackageInfo>>("packages"))
            events.note(PackageChanged{package, true});
    }
    ~PackageNews()
    {
        for (vo::Connection& connection : connections_)
            connection.disconnect();
    }
    PackageNews(const PackageNews&) = delete;
    PackageNews& operator=(const PackageNews&) = delete;

private:
    std::vector<vo::Connection> connections_;
};

/// In the order of who needs whom.
struct Life::Parts {
    Parts(const boost::shared_ptr<KRBroker>& theBroker, EventStream& theEvents,
          const Options& options, LifeDriver* theDriver)
        : broker(theBroker),
          events(theEvents),
          driver(theDriver),
          following(broker, events),
          turns(events, *broker->clock(), driver),
          requests(events, turns),
          status(broker, driver),
          chains(broker->clock(), turns, options.chains,
                 [this](const ChainChanged& change) { status.changed(change); }),
          launcher(KRModule::createModule<AppLauncher>(broker)),
          permissions(broker),
          packages(driver ? nullptr
                          : std::make_unique<InstalledPackages>(broker, options.packages)),
          packageNews(broker, events),
          calls(broker),
          activities(broker, permissions, calls),
          requested(requests, activities),
          focus(broker->clock(), turns, status, &requested),
          responder(status, chains, focus, calls, requests, turns, events),
          service(
              KRModule::createModule<LifeService>(broker, turns, status, chains, focus, responder)),
          launchpad(broker, &permissions.contextPermission(), &responder, options.config,
                    observer())
    {
        for (const std::string& plugin : options.plugins)
            launchpad.addModulePlugin(plugin);
        responder.setSuggestions([this](int mask) { return suggestions(mask); });
        if (driver) {
            driverEnds = driver->activityEnded.connect(
                [this](FocusId stay, const std::string& why) { requested.ended(stay, why); });
            return;
        }
        pluginSwitch.emplace(status, launchpad);
        responder.setPluginsChanged([this] { pluginSwitch->apply(); });
        pluginSwitch->apply();  // to plugins that came in between
        if (!options.state.empty())
            keepHistories(options);
    }

    void keepHistories(const Options& options)
    {
        try {
            histories.emplace(broker->clock(), launchpad, events, options.state, options.resume);
        } catch (...) {
            // Somebody may have asked for a turn already, which is not to come when all this goes.
            broker->application().eventLoop().close();
            throw;
        }
    }

    LaunchpadObserver observer()
    {
        LaunchpadObserver observer;
        observer.error = [this](const std::string& function, const std::string& text) {
            events.note(ErrorReported{NimbraLaunchpad::kLogCategory, function + ": " + text});
        };
        observer.switched = [this](const std::string& plugin, bool running) {
            events.note(PluginSwitched{plugin, running});
        };
        // Life takes it up at once, which is the next event.
        observer.hits = [this](const LaunchpadHits& list) { events.leave(found(list)); };
        observer.checkerMoved = [this](const CheckerMove& move) {
            events.note(CheckerMoved{move.kind, move.after, move.uptime});
        };
        observer.script = driver ? driver->checker() : nullptr;
        return observer;
    }

    /// Hit lists are delivered one at a time.
    HitsFound found(const LaunchpadHits& list)
    {
        HitsFound event{++lastHits, list.after, {}};
        for (const LaunchpadHits::Hit& hit : list.hits)
            event.hits.push_back({hit.condition, hit.rule});
        return event;
    }

    std::list<AutonomousAction> suggestions(int mask)
    {
        std::list<AutonomousAction> actions =
            driver ? driver->suggestions(launchpad, mask) : launchpad.getActionSuggestions(mask);
        TruthsRead read;
        for (const AutonomousAction& action : actions)
            read.rules.push_back(action.description);
        events.publish(std::move(read));
        return actions;
    }

    const boost::shared_ptr<KRBroker> broker;
    EventStream& events;
    LifeDriver* const driver;
    const Following following;
    std::atomic<std::uint64_t> lastHits{0};
    Turns turns;
    Requests requests;
    LifeStatus status;
    FrozenChains chains;
    const boost::shared_ptr<AppLauncher> launcher;
    ActivityPermissions permissions;
    const std::unique_ptr<InstalledPackages> packages;
    const PackageNews packageNews;
    ServiceCalls calls;
    ServiceActivities activities;
    RequestedActivities requested;
    FocusQueue focus;
    Responder responder;
    const boost::shared_ptr<LifeService> service;
    NimbraLaunchpad launchpad;
    vo::Connection driverEnds;
    std::optional<PluginSwitch> pluginSwitch;
    std::optional<HistoryKeeper> histories;
    bool stopped = false;
};

Life::Life(const boost::shared_ptr<KRBroker>& broker, EventStream& events, const Options& options,
           LifeDriver* driver)
    : parts_(std::make_unique<Parts>(broker, events, options, driver))
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
    parts_->driverEnds.disconnect();
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
