#include "launchpad/ActionTable.h"

#include <exception>
#include <stdexcept>

#include "launchpad/LaunchpadLog.h"
#include "launchpad/LaunchpadNews.h"

namespace KR {
namespace {

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

std::uint32_t ActionTable::add(const AutonomousAction& action)
{
    const std::uint32_t id = ++lastId_;
    actions_[id] = action;
    registerCondition(id);
    return id;
}

bool ActionTable::remove(std::uint32_t id)
{
    const bool unregistered = unregisterCondition(id);
    return actions_.erase(id) > 0 || unregistered;
}

bool ActionTable::removeOrigin(const std::string& origin)
{
    std::vector<std::uint32_t> ids;
    for (const auto& [id, action] : actions_) {
        if (origin.empty() || action.origin == origin)
            ids.push_back(id);
    }
    bool removed = false;
    for (const std::uint32_t id : ids)
        removed = remove(id) || removed;
    return removed;
}

void ActionTable::registerCondition(std::uint32_t id)
{
    constexpr const char* kLabel = "_registerActionCondition";
    AutonomousAction& action = actions_[id];
    if (action.condition.empty()) {
        launchpadLog.warning(kLabel, "_registerActionCondition called with invalid action id: " +
                                         std::to_string(id) +
                                         ", or empty condition.  Will remove action id");
        actions_.erase(id);
        return;
    }
    try {
        const std::uint32_t oldId = action.conditionId;
        const bool isMapped = conditionToAction_.count(oldId) > 0;
        const bool isRegistered = checker_.hasCondition(oldId);
        if (isMapped && isRegistered) {
            news_.error(kLabel,
                        "It appears that an action already has a condition bound to it.  A new "
                        "condition will not be registered for it.");
            return;
        }
        if (isMapped) {
            launchpadLog.warning(
                kLabel,
                "_registerActionCondition found existing condition map but no actual "
                "condition, will replace map value for action: " +
                    action.description);
            conditionToAction_.erase(oldId);
        }
        if (isRegistered) {
            launchpadLog.warning(kLabel,
                                 "_registerActionCondition found actual condition but no map, will "
                                 "replace condition for action: " +
                                     action.description);
            checker_.removeCondition(oldId);
        }
        action.conditionId =
            checker_.addCondition(action.condition, reportModeOf(action.synchronicity));
        conditionToAction_[action.conditionId] = id;
    } catch (const std::exception& e) {
        news_.error(kLabel, "Cannot add condition: " + action.condition +
                                ", for action: " + action.description + ": " + e.what());
    }
}

bool ActionTable::unregisterCondition(std::uint32_t id)
{
    constexpr const char* kLabel = "_unregisterActionCondition";
    AutonomousAction& action = actions_[id];
    if (action.condition.empty()) {
        launchpadLog.warning(kLabel, "_unregisterActionCondition called with invalid action id: " +
                                         std::to_string(id) +
                                         ", or empty condition.  Will remove action id");
        actions_.erase(id);
        return false;
    }
    try {
        bool removed = false;
        if (checker_.hasCondition(action.conditionId)) {
            checker_.removeCondition(action.conditionId);
            removed = true;
        }
        if (conditionToAction_.erase(action.conditionId) > 0) {
            action.conditionId = 0;
            removed = true;
        }
        return removed;
    } catch (const std::exception& e) {
        news_.error(kLabel, "Cannot remove condition: " + action.condition +
                                ", for action: " + action.description + ": " + e.what());
        return false;
    }
}

void ActionTable::addActivity(const std::string& key, const AutonomousAction& action)
{
    activities_[key] = add(action);
}

void ActionTable::removeActivity(const std::string& key)
{
    const auto found = activities_.find(key);
    if (found == activities_.end()) {
        launchpadLog.warning("_removeBehaviorAction",
                             "Tried to remove a non mapped behavior action for: " + key);
        return;
    }
    unregisterCondition(found->second);
    actions_.erase(found->second);
    activities_.erase(found);
}

std::vector<std::string> ActionTable::activities() const
{
    std::vector<std::string> keys;
    const vo::SharedLock lock(mutex_);
    keys.reserve(activities_.size());
    for (const auto& [key, id] : activities_)
        keys.push_back(key);
    return keys;
}

const AutonomousAction* ActionTable::ofCondition(std::uint32_t conditionId) const
{
    // Removed after the checker had found it true.
    const auto mapped = conditionToAction_.find(conditionId);
    if (mapped == conditionToAction_.end())
        return nullptr;
    const auto action = actions_.find(mapped->second);
    if (action != actions_.end())
        return &action->second;
    news_.error("_conditionHit", "Got a mapped action that does not exist.");
    return nullptr;
}

std::list<AutonomousAction> ActionTable::suggestions(std::uint32_t mask) const
{
    std::list<AutonomousAction> suggestions;
    const vo::SharedLock lock(mutex_);
    for (const auto& [id, action] : actions_) {
        if ((action.synchronicity & mask) != 0 && checker_.isConditionTrue(action.conditionId))
            suggestions.push_back(action);
    }
    return suggestions;
}

std::list<AutonomousAction> ActionTable::all() const
{
    std::list<AutonomousAction> all;
    const vo::SharedLock lock(mutex_);
    for (const auto& [id, action] : actions_)
        all.push_back(action);
    return all;
}

AutonomousAction ActionTable::get(const std::string& description) const
{
    const vo::SharedLock lock(mutex_);
    for (const auto& [id, action] : actions_) {
        if (action.description == description)
            return action;
    }
    throw std::runtime_error("action not found with description: " + description);
}

}  // namespace KR
