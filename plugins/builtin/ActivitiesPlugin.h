#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <string>

#include "platform/kr/KRProxy.h"
#include "platform/vo/PeriodicTask.h"
#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {

/// Publishes what the life service "KRNimbra" knows of activities:
///
///     Launchpad/FocusedActivity   string, the newest in the focus history; "" for none
///     Launchpad/PreviousActivity  string, the one before; "" for none
///     Launchpad/State             string, the life state
///     Launchpad/PreviousState     string, the one before; "" for none
///     Launchpad/FocusCount/<activity>  int, how often each activity had the focus
///     Launchpad/LifeTime          int, seconds, once a second
///
/// At its start it raises all of them, and then what changed, whenever "Nimbra/FocusedActivity" or
/// "Nimbra/State" is written. A stop blanks them with the invalid value. None is declared.
///
/// It can work from the event "TesselReady" on, which says that the life service is there: a start
/// before that publishes nothing, nor does anything until the next start.
///
/// Life reports are made one at a time, under a mutex of their own that comes before the locks of
/// the life service and of memory.
class ActivitiesPlugin : public NimbraLaunchpadPluginModule {
public:
    /// From start to start of the readings of the life time.
    static constexpr std::uint64_t kTimeoutPeriodUs = 1'000'000;

    static const std::string fEventRaisedFocusedActivity;
    static const std::string fEventRaisedPreviousActivity;
    static const std::string fEventRaisedState;
    static const std::string fEventRaisedPreviousState;
    static const std::string fEventRaisedFocusCount;  ///< before the activity's name
    static const std::string fEventRaisedLifeTime;

    explicit ActivitiesPlugin(boost::shared_ptr<KRBroker> broker);
    ~ActivitiesPlugin() override;

    void init() override;
    void exit() override;

    /// The platform is ready: finds the life service and follows it. A failure is logged.
    void _onReady(const std::string& key, const KRValue& value, const std::string& message);
    /// The focus or the state changed.
    void _onActivityStatusChange(const std::string& key, const KRValue& value,
                                 const std::string& message);

private:
    using Report = std::map<std::string, KRValue>;

    void _startPlugin() override VO_REQUIRES(mutex_);
    void _stopPlugin() override VO_REQUIRES(mutex_);
    void describeKeys();
    /// Blanks everything that was published.
    void _declareEvents() VO_EXCLUDES(reportMutex_);
    /// Reports what changed, or, forced, everything; logs what keeps it from doing so.
    void _doReport(bool force) VO_EXCLUDES(reportMutex_);
    void _makeReportStatusChange(Report& report) VO_REQUIRES(reportMutex_);
    void _sendReport(const Report& report, bool force) VO_REQUIRES(reportMutex_);
    void _onTimeout();
    boost::shared_ptr<KRProxy> lifeProxy() const;

    mutable vo::Mutex reportMutex_;
    Report lastReport_ VO_GUARDED_BY(reportMutex_);  ///< the values last raised
    /// Whether a start found the plugin ready, and no stop has come since.
    bool publishing_ VO_GUARDED_BY(reportMutex_) = false;

    /// Only held to copy the proxy; the platform may say more than once that it is ready.
    mutable vo::Mutex lifeMutex_;
    boost::shared_ptr<KRProxy> lifeProxy_ VO_GUARDED_BY(lifeMutex_);
    std::atomic<bool> ready_{false};

    vo::PeriodicTask lifeTimeTask_;
};

}  // namespace KR
