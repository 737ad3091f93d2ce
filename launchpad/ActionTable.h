#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "launchpad/AutonomousAction.h"
#include "platform/conditions/ConditionChecker.h"
#include "platform/vo/Mutex.h"

namespace KR {

class LaunchpadNews;

/// The autonomous actions by id, and their conditions, which are registered with the condition
/// checker as long as their action is here. Ids begin at 2, grow, and are never reused.
///
/// Thread-safe. What has to be one step with what comes before or after it takes no lock itself,
/// but needs mutex(), the data lock, held; it comes before the checker's own locks. No operation
/// fails because of a condition: that is logged, in the launchpad's name.
class ActionTable {
public:
    /// `checker` and `news` outlive the use of this.
    ActionTable(ConditionChecker& checker, LaunchpadNews& news) : checker_(checker), news_(news) {}
    ActionTable(const ActionTable&) = delete;
    ActionTable& operator=(const ActionTable&) = delete;

    vo::SharedMutex& mutex() const VO_RETURN_CAPABILITY(mutex_) { return mutex_; }

    /// Returns the id. An action without a condition does not stay; one whose condition cannot be
    /// registered does, and is never hit.
    std::uint32_t add(const AutonomousAction& action) VO_REQUIRES(mutex_);
    /// True when there was something to remove; so it is below.
    bool remove(std::uint32_t id) VO_REQUIRES(mutex_);
    /// Removes the actions of an origin; an empty one stands for all.
    bool removeOrigin(const std::string& origin) VO_REQUIRES(mutex_);
    void registerCondition(std::uint32_t id) VO_REQUIRES(mutex_);
    bool unregisterCondition(std::uint32_t id) VO_REQUIRES(mutex_);

    /// Adds the action of a behaviour, which becomes an activity that launches itself. The action
    /// of a key that is added anew stays, but nothing leads to it any more.
    void addActivity(const std::string& key, const AutonomousAction& action) VO_REQUIRES(mutex_);
    void removeActivity(const std::string& key) VO_REQUIRES(mutex_);
    /// Forgets the activities; their actions stay.
    void clearActivities() VO_REQUIRES(mutex_) { activities_.clear(); }
    /// Behaviour keys in ascending order.
    std::vector<std::string> activities() const VO_EXCLUDES(mutex_);

    /// The action that a condition is registered for; null when there is none.
    const AutonomousAction* ofCondition(std::uint32_t conditionId) const VO_REQUIRES_SHARED(mutex_);
    /// Copies of the actions that have a bit of `mask` and whose condition was true when it was
    /// last evaluated, in ascending id order.
    std::list<AutonomousAction> suggestions(std::uint32_t mask) const VO_EXCLUDES(mutex_);
    /// Copies of all actions, in ascending id order.
    std::list<AutonomousAction> all() const VO_EXCLUDES(mutex_);
    /// The first, by id, of exactly that description; std::runtime_error if there is none.
    AutonomousAction get(const std::string& description) const VO_EXCLUDES(mutex_);

private:
    friend class NimbraLaunchpadTestAccess;  // defined by the tests alone

    // Constant after construction; synchronised by themselves.
    ConditionChecker& checker_;
    LaunchpadNews& news_;

    /// The data lock.
    mutable vo::SharedMutex mutex_;
    std::uint32_t lastId_ VO_GUARDED_BY(mutex_) = 1;
    std::map<std::uint32_t, AutonomousAction> actions_ VO_GUARDED_BY(mutex_);
    std::map<std::uint32_t, std::uint32_t> conditionToAction_ VO_GUARDED_BY(mutex_);
    /// By behaviour key: the id of the action that was made for the behaviour.
    std::map<std::string, std::uint32_t> activities_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
