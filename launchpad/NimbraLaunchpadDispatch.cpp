#include <exception>
#include <utility>

#include "launchpad/GatheredErrors.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/kr/KRError.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"

namespace KR {
namespace {

const vo::Logger kLog("NimbraLaunchpad");

/// How often conditions that stay true are reported anew.
constexpr unsigned kReportPeriodInMicroseconds = 6'000'000;

ConditionChecker::ReportMode reportModeOf(std::uint32_t synchronicity)
{
    if (synchronicity & ExecuteAnyTimeConditionTrue)
        return ConditionChecker::ReportWhileTrue;
    if (synchronicity & ExecuteAnyTimeConditionEdgeTrue)
        return ConditionChecker::ReportBecomesTrue;
    if (synchronicity & ExecuteBeforeActivityIfConditionTrue)
        return ConditionChecker::ReportNever;
    return ConditionChecker::ReportWhileTrue;
}

}  // namespace

unsigned NimbraLaunchpad::_addAction(const AutonomousAction& action)
{
    const std::uint32_t id = ++lastActionId_;
    actions_[id] = action;
    _registerActionCondition(id);
    return id;
}

bool NimbraLaunchpad::_removeAction(const unsigned& id)
{
    const bool unregistered = _unregisterActionCondition(id);
    return actions_.erase(id) > 0 || unregistered;
}

/// An empty origin stands for all.
bool NimbraLaunchpad::_removeActions(const std::string& origin)
{
    std::vector<std::uint32_t> ids;
    for (const auto& [id, action] : actions_) {
        if (origin.empty() || action.origin == origin)
            ids.push_back(id);
    }
    bool removed = false;
    for (const std::uint32_t id : ids)
        removed = _removeAction(id) || removed;
    return removed;
}

void NimbraLaunchpad::_registerActionCondition(const unsigned& id)
{
    constexpr const char* kLabel = "_registerActionCondition";
    AutonomousAction& action = actions_[id];
    if (action.condition.empty()) {
        kLog.warning(kLabel, "_registerActionCondition called with invalid action id: " +
                                 std::to_string(id) +
                                 ", or empty condition.  Will remove action id");
        actions_.erase(id);
        return;
    }
    try {
        const std::uint32_t oldId = action.conditionId;
        const bool isMapped = conditionToAction_.count(oldId) > 0;
        const bool isRegistered = conditionChecker_.hasCondition(oldId);
        if (isMapped && isRegistered) {
            kLog.error(kLabel,
                       "It appears that an action already has a condition bound to it.  A new "
                       "condition will not be registered for it.");
            return;
        }
        if (isMapped) {
            kLog.warning(kLabel,
                         "_registerActionCondition found existing condition map but no actual "
                         "condition, will replace map value for action: " +
                             action.description);
            conditionToAction_.erase(oldId);
        }
        if (isRegistered) {
            kLog.warning(kLabel,
                         "_registerActionCondition found actual condition but no map, will "
                         "replace condition for action: " +
                             action.description);
            conditionChecker_.removeCondition(oldId);
        }
        action.conditionId =
            conditionChecker_.addCondition(action.condition, reportModeOf(action.synchronicity));
        conditionToAction_[action.conditionId] = id;
    } catch (const std::exception& e) {
        kLog.error(kLabel, "Cannot add condition: " + action.condition +
                               ", for action: " + action.description + ": " + e.what());
    }
}

bool NimbraLaunchpad::_unregisterActionCondition(const unsigned& id)
{
    constexpr const char* kLabel = "_unregisterActionCondition";
    AutonomousAction& action = actions_[id];
    if (action.condition.empty()) {
        kLog.warning(kLabel, "_unregisterActionCondition called with invalid action id: " +
                                 std::to_string(id) +
                                 ", or empty condition.  Will remove action id");
        actions_.erase(id);
        return false;
    }
    try {
        bool removed = false;
        if (conditionChecker_.hasCondition(action.conditionId)) {
            conditionChecker_.removeCondition(action.conditionId);
            removed = true;
        }
        if (conditionToAction_.erase(action.conditionId) > 0) {
            action.conditionId = 0;
            removed = true;
        }
        return removed;
    } catch (const std::exception& e) {
        kLog.error(kLabel, "Cannot remove condition: " + action.condition +
                               ", for action: " + action.description + ": " + e.what());
        return false;
    }
}

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
    kLog.verbose("_stopConditionChecker", "NimbraLaunchpad conditions will be ignored.");
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
        throw KRError("NimbraLaunchpad", "startMonitoringConditions", "exit() was called before");
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
    const vo::SharedLock lock(actionMutex_);
    try {
        std::list<AutonomousAction> actions = _actionsOfHits(hits);
        if (responder_ && !actions.empty())
            _postActions(std::move(actions));
    } catch (const std::exception& e) {
        kLog.error(kLabel, std::string("Error processing hit condition, aborting: ") + e.what());
    } catch (...) {
        kLog.error(kLabel, "Unknown error processing hit condition, aborting.");
    }
}

/// Copies of the actions of those hits that are true, in hit order.
std::list<AutonomousAction> NimbraLaunchpad::_actionsOfHits(const ConditionChecker::Hits& hits)
{
    std::list<AutonomousAction> actions;
    for (const auto& [conditionId, value] : hits) {
        if (!value.isTrue())
            continue;
        // Removed after the checker had found it true.
        const auto mapped = conditionToAction_.find(conditionId);
        if (mapped == conditionToAction_.end())
            continue;
        const auto action = actions_.find(mapped->second);
        if (action == actions_.end()) {
            kLog.error("_conditionHit", "Got a mapped action that does not exist.");
            continue;
        }
        // Its thread wakes up while the copies are made.
        if (actions.empty() && responder_)
            vo::getEventLoop()->announce();
        shared_->copies.append(action->second, actions);
    }
    return actions;
}

/// Hands actions over to the event loop. The responder runs there, with copies and no lock, so the
/// checker never waits for the host; it may destroy the launchpad, so this is not captured.
void NimbraLaunchpad::_postActions(std::list<AutonomousAction> actions)
{
    vo::getEventLoop()->async(
        [responder = responder_, shared = shared_, actions = std::move(actions),
         values = conditionChecker_.sharePersistentValues()]() mutable {
            const vo::CallbackGate::Pass pass(shared->gate);
            if (!pass)
                return;
            try {
                responder->processActions(actions, *values);
            } catch (const std::exception& e) {
                kLog.error("processActions", std::string("The responder failed: ") + e.what());
            } catch (...) {
                kLog.error("processActions", "The responder failed with an unknown error.");
            }
            shared->copies.giveBack(std::move(actions));
        },
        0);
}

}  // namespace KR
