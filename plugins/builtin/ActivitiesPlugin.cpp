#include "plugins/builtin/ActivitiesPlugin.h"

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRError.h"
#include "platform/kr/SharedKeys.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger activitiesPluginLog("LaunchpadPluginActivities");
/// Reports are the life service's matter, and their failures are logged under its name.
const vo::Logger nimbraLogger("Nimbra");

/// Of a history with the newest last: the newest (0) or the one before (1).
KRValue entry(const KRValue& history, std::size_t back)
{
    const std::size_t size = history.getSize();
    return size > back ? history[size - 1 - back] : KRValue("");
}

}  // namespace

const std::string ActivitiesPlugin::fEventRaisedFocusedActivity = "FocusedActivity";
const std::string ActivitiesPlugin::fEventRaisedPreviousActivity = "PreviousActivity";
const std::string ActivitiesPlugin::fEventRaisedState = "State";
const std::string ActivitiesPlugin::fEventRaisedPreviousState = "PreviousState";
const std::string ActivitiesPlugin::fEventRaisedFocusCount = "FocusCount/";
const std::string ActivitiesPlugin::fEventRaisedLifeTime = "LifeTime";

ActivitiesPlugin::ActivitiesPlugin(boost::shared_ptr<KRBroker> broker)
    : NimbraLaunchpadPluginModule(broker, "_LaunchpadPluginActivities")
{
    groups_.push_back("solitary");
    groups_.push_back("interactive");
    setModuleDescription("Provides information about Activity Statistics into Launchpad space");
    const std::vector<ParameterInfo> parameters = {{"key", "Name of the event"},
                                                   {"value", "Value of the event"},
                                                   {"message", "Event message"}};
    bindMethod("_onReady", &ActivitiesPlugin::_onReady, this, "The platform is ready", parameters);
    bindMethod("_onActivityStatusChange", &ActivitiesPlugin::_onActivityStatusChange, this,
               "The focus or the life state changed", parameters);
    describeKeys();
    _declareEvents();
    lifeTimeTask_.setName("LifeTime");
    lifeTimeTask_.setCallback([this] { _onTimeout(); });
    lifeTimeTask_.setUsPeriod(kTimeoutPeriodUs);
    lifeTimeTask_.compensateCallbackTime(true);
}

void ActivitiesPlugin::describeKeys()
{
    const std::vector<KRValue> states = {"disabled", "safeguard", "solitary", "interactive", ""};
    xDescribe(KeyDescription::text(fEventRaisedFocusedActivity, "activity in focus; \"\" for none")
                  .emptyAs(KRValue()));
    xDescribe(
        KeyDescription::text(fEventRaisedPreviousActivity, "the one before").emptyAs(KRValue()));
    xDescribe(
        KeyDescription::text(fEventRaisedState, "life state").oneOf(states).emptyAs(KRValue()));
    xDescribe(KeyDescription::text(fEventRaisedPreviousState, "the one before; \"\" for none")
                  .oneOf(states)
                  .emptyAs(KRValue()));
    xDescribe(KeyDescription::integer(fEventRaisedFocusCount + "*",
                                      "how often the named activity had the focus")
                  .atLeast(0)
                  .emptyAs(KRValue()));
    xDescribe(KeyDescription::integer(fEventRaisedLifeTime, "life of the robot, s")
                  .atLeast(0)
                  .emptyAs(KRValue()));
    for (const auto& key : {keys::kReady, keys::kFocusedActivity, keys::kState})
        xReads(key);
}

ActivitiesPlugin::~ActivitiesPlugin()
{
    lifeTimeTask_.stop();
}

void ActivitiesPlugin::init()
{
    xSubscribeMicroEvent(keys::kReady, "_onReady");
}

void ActivitiesPlugin::exit()
{
    lifeTimeTask_.stop();
    for (const auto& key : {keys::kReady, keys::kFocusedActivity, keys::kState}) {
        try {
            xUnsubscribeMicroEvent(key);
        } catch (const KRError&) {
            // It never got ready, or has exited before.
        }
    }
    NimbraLaunchpadPluginModule::exit();
}

void ActivitiesPlugin::_onReady(const std::string&, const KRValue&, const std::string&)
{
    try {
        const auto life = getParentBroker()->getProxy("KRNimbra");
        {
            const vo::Lock lock(lifeMutex_);
            lifeProxy_ = life;
        }
        xSubscribeMicroEvent(keys::kFocusedActivity, "_onActivityStatusChange");
        xSubscribeMicroEvent(keys::kState, "_onActivityStatusChange");
        ready_ = true;
    } catch (const std::exception& e) {
        activitiesPluginLog.error(
            "_onReady",
            std::string("Cannot initiate, data will not be updated properly: ") + e.what());
    }
}

void ActivitiesPlugin::_onActivityStatusChange(const std::string&, const KRValue&,
                                               const std::string&)
{
    _doReport(false);
}

void ActivitiesPlugin::_startPlugin()
{
    if (!ready_)
        return;
    {
        const vo::Lock lock(reportMutex_);
        publishing_ = true;
    }
    lifeTimeTask_.start(true);
    _doReport(true);
}

void ActivitiesPlugin::_stopPlugin()
{
    lifeTimeTask_.stop();
    {
        // A report that waits for the mutex must not write over the blanks.
        const vo::Lock lock(reportMutex_);
        publishing_ = false;
    }
    _declareEvents();
}

void ActivitiesPlugin::_declareEvents()
{
    // The keys that always exist are blanked by the process's first plugin alone: a later one
    // would take away what an earlier one has published.
    static std::atomic<bool> isFirst{true};
    const vo::Lock lock(reportMutex_);
    if (isFirst.exchange(false)) {
        for (const auto& key : {fEventRaisedFocusedActivity, fEventRaisedPreviousActivity,
                                fEventRaisedState, fEventRaisedPreviousState})
            lastReport_[key] = KRValue();
    }
    for (auto& [key, value] : lastReport_) {
        value = KRValue();
        xRaiseLaunchpadEvent(key, value);
    }
    xRaiseLaunchpadEvent(fEventRaisedLifeTime, KRValue());
}

void ActivitiesPlugin::_doReport(bool force)
{
    try {
        const vo::Lock lock(reportMutex_);
        if (!force && !publishing_)
            return;
        Report report;
        _makeReportStatusChange(report);
        _sendReport(report, force);
    } catch (const std::exception& e) {
        nimbraLogger.error("_doReport", std::string("Cannot do report: ") + e.what());
    }
}

void ActivitiesPlugin::_makeReportStatusChange(Report& report)
{
    const auto life = lifeProxy();
    const auto focusHistory = life->call<KRValue>("getFocusHistory", 2);
    const auto stateHistory = life->call<KRValue>("getStateHistory", 2);

    using Statistics = std::map<std::string, KRValue>;
    const auto activities =
        life->call<std::map<std::string, Statistics>>("getAutonomousActivityStatistics");
    for (const auto& [activity, statistics] : activities) {
        const auto count = statistics.find("focusCount");
        report[fEventRaisedFocusCount + activity] =
            count == statistics.end() ? KRValue() : count->second;
    }

    report[fEventRaisedFocusedActivity] = entry(focusHistory, 0);
    report[fEventRaisedPreviousActivity] = entry(focusHistory, 1);
    report[fEventRaisedState] = entry(stateHistory, 0);
    report[fEventRaisedPreviousState] = entry(stateHistory, 1);
}

void ActivitiesPlugin::_sendReport(const Report& report, bool force)
{
    for (const auto& [key, value] : report) {
        const auto last = lastReport_.find(key);
        if (force || last == lastReport_.end() || last->second != value)
            xRaiseLaunchpadEvent(key, value);
    }
    lastReport_ = report;
}

void ActivitiesPlugin::_onTimeout()
{
    xRaiseLaunchpadEvent(fEventRaisedLifeTime, lifeProxy()->call<KRValue>("getLifeTime"));
}

boost::shared_ptr<KRProxy> ActivitiesPlugin::lifeProxy() const
{
    const vo::Lock lock(lifeMutex_);
    return lifeProxy_;
}

}  // namespace KR
