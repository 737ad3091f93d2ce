#include <exception>
#include <utility>

#include "launchpad/GatheredErrors.h"
#include "launchpad/LaunchpadLog.h"
#include "launchpad/LaunchpadNews.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/kr/KRError.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/TaskHint.h"

namespace KR {
namespace {

/// How often conditions that stay true are reported anew.
constexpr unsigned kReportPeriodInMicroseconds = 6'000'000;

}  // namespace

void NimbraLaunchpad::_startConditionChecker()
{
    const vo::Lock lock(conditionCheckerMutex_);
    if (conditionCheckerRunning_)
        return;
    // Again, under the lock that exit() takes after it has said so.
    _refuseAfterExit();
    conditionChecker_.resetChecks();
    shared_->conditionsStartPlugins = true;  // before there are hits
    conditionChecker_.run(kReportPeriodInMicroseconds, false);
    conditionCheckerRunning_ = true;
}

void NimbraLaunchpad::_stopConditionChecker()
{
    const vo::Lock lock(conditionCheckerMutex_);
    if (!conditionCheckerRunning_)
        return;
    launchpadLog.verbose("_stopConditionChecker", "NimbraLaunchpad conditions will be ignored.");
    conditionChecker_.stop();
    conditionCheckerRunning_ = false;
    shared_->conditionsStartPlugins = false;
}

bool NimbraLaunchpad::_isConditionCheckerRunning() const
{
    const vo::SharedLock lock(conditionCheckerMutex_);
    return conditionCheckerRunning_;
}

bool NimbraLaunchpad::isMonitoringConditions() const
{
    return _isConditionCheckerRunning();
}

void NimbraLaunchpad::_refuseAfterExit() const
{
    if (exited_)
        throw KRError(kLaunchpadCategory, "startMonitoringConditions", "exit() was called before");
}

void NimbraLaunchpad::startMonitoringConditions()
{
    if (_isConditionCheckerRunning())
        return;
    _refuseAfterExit();
    GatheredErrors errors("_startMonitoringConditions");
    errors.run([this] { _startEnabledStopDisabledPlugins(); });
    errors.run([this] { _startConditionChecker(); });
    errors.raise();
}

void NimbraLaunchpad::stopMonitoringConditions()
{
    if (!_isConditionCheckerRunning())
        return;
    GatheredErrors errors("_stopMonitoringConditions");
    errors.run([this] { _stopConditionChecker(); });
    errors.run([this] { _stopPlugins(); });
    errors.raise();
}

void NimbraLaunchpad::checkConditions()
{
    conditionChecker_.checkConditions(true);
}

/// Called by the condition checker, which gives the list away and must see no exception.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void NimbraLaunchpad::_conditionHit(ConditionChecker::Hits hits)
{
    constexpr const char* kLabel = "_conditionHit";
    const vo::SharedLock lock(actions_.mutex());
    try {
        std::list<AutonomousAction> actions = _actionsOfHits(hits);
        if (responder_ && !actions.empty())
            _postActions(std::move(actions));
    } catch (const std::exception& e) {
        news_->error(kLabel, std::string("Error processing hit condition, aborting: ") + e.what());
    } catch (...) {
        news_->error(kLabel, "Unknown error processing hit condition, aborting.");
    }
}

/// Copies of the actions of those hits that are true, in hit order.
std::list<AutonomousAction> NimbraLaunchpad::_actionsOfHits(const ConditionChecker::Hits& hits)
{
    std::list<AutonomousAction> actions;
    for (const auto& [conditionId, value] : hits) {
        if (!value.isTrue())
            continue;
        const AutonomousAction* const action = actions_.ofCondition(conditionId);
        if (!action)
            continue;
        if (actions.empty() && responder_)
            vo::TaskHint::give(*vo::getEventLoop());
        shared_->copies.append(*action, actions);
    }
    return actions;
}

/// Told before the responder can have them.
void NimbraLaunchpad::_tellHits(const std::list<AutonomousAction>& actions) const
{
    if (!news_->observer().hits)
        return;
    LaunchpadHits hits{{}, conditionChecker_.lastWrite()};
    hits.hits.reserve(actions.size());
    for (const AutonomousAction& action : actions)
        hits.hits.push_back({action.conditionId, action.description});
    news_->observer().hits(hits);
}

/// Hands actions over to the event loop. The responder runs there, with copies and no lock, so the
/// checker never waits for the host; it may destroy the launchpad, so this is not captured.
void NimbraLaunchpad::_postActions(std::list<AutonomousAction> actions)
{
    _tellHits(actions);
    vo::getEventLoop()->async(
        [responder = responder_, shared = shared_, news = news_, actions = std::move(actions),
         values = conditionChecker_.sharePersistentValues()]() mutable {
            const vo::CallbackGate::Pass pass(shared->gate);
            if (!pass)
                return;
            try {
                responder->processActions(actions, *values);
            } catch (const std::exception& e) {
                news->error("processActions", std::string("The responder failed: ") + e.what());
            } catch (...) {
                news->error("processActions", "The responder failed with an unknown error.");
            }
            shared->copies.giveBack(std::move(actions));
        },
        0);
}

}  // namespace KR
