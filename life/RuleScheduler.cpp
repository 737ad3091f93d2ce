#include "life/RuleScheduler.h"

#include <algorithm>
#include <utility>

namespace KR {

namespace {

/// Who runs behind whom in one hit list, by index. Actions of one description are a group, and one
/// waits for whole groups, so that the graph is no larger than the lists that made it.
class HitGraph {
public:
    explicit HitGraph(const std::vector<PendingAction>& actions)
        : groups_(actions.size()), blockers_(actions.size())
    {
        for (std::size_t i = 0; i < actions.size(); ++i) {
            groups_[i] = &byName_[actions[i].action.description];
            groups_[i]->members.insert(i);
            remaining_.insert(i);
        }
        for (std::size_t i = 0; i < actions.size(); ++i) {
            for (const std::string& name : actions[i].action.executeAfterIfSimultaneouslyTrue) {
                const auto found = byName_.find(name);
                if (found == byName_.end() || &found->second == groups_[i])
                    continue;
                if (blockers_[i].insert(&found->second).second)
                    found->second.followers.push_back(i);
            }
            if (blockers_[i].empty())
                free_.insert(i);
        }
    }

    bool isDone() const { return remaining_.empty(); }
    bool isStuck() const { return free_.empty() && !remaining_.empty(); }

    /// The first in list order of those that wait for nobody.
    std::size_t takeFirst()
    {
        const std::size_t index = *free_.begin();
        free_.erase(free_.begin());
        remaining_.erase(index);
        Group& group = *groups_[index];
        group.members.erase(index);
        if (!group.members.empty())
            return index;
        for (const std::size_t follower : group.followers) {
            blockers_[follower].erase(&group);
            if (blockers_[follower].empty() && remaining_.count(follower))
                free_.insert(follower);
        }
        return index;
    }

    /// For a stuck graph: the members of one cycle, of which the first in list order becomes free.
    std::vector<std::size_t> breakCycle()
    {
        // Everybody who remains waits for somebody who remains, so walking back must come round.
        std::vector<std::size_t> path{*remaining_.begin()};
        std::map<std::size_t, std::size_t> seenAt{{path.back(), 0}};
        for (;;) {
            const std::size_t leader = leaderOf(path.back());
            const auto [seen, isNew] = seenAt.emplace(leader, path.size());
            if (!isNew) {
                path.erase(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(seen->second));
                break;
            }
            path.push_back(leader);
        }
        const std::size_t first = *std::min_element(path.begin(), path.end());
        blockers_[first].clear();
        free_.insert(first);
        return path;
    }

private:
    struct Group {
        std::set<std::size_t> members;  ///< that remain
        std::vector<std::size_t> followers;
    };

    /// The first in list order of those that an action waits for.
    std::size_t leaderOf(std::size_t index) const
    {
        const auto& blockers = blockers_[index];
        const auto first =
            std::min_element(blockers.begin(), blockers.end(), [](const Group* a, const Group* b) {
                return *a->members.begin() < *b->members.begin();
            });
        return *(*first)->members.begin();
    }

    std::map<std::string, Group> byName_;
    std::vector<Group*> groups_;              ///< by action
    std::vector<std::set<Group*>> blockers_;  ///< by action; groups with members
    std::set<std::size_t> remaining_;
    std::set<std::size_t> free_;
};

}  // namespace

RuleScheduler::Order RuleScheduler::inOrder(std::vector<PendingAction> actions)
{
    Order order;
    HitGraph graph(actions);
    std::vector<std::size_t> indices;
    while (!graph.isDone()) {
        if (graph.isStuck()) {
            std::vector<std::string> rules;
            for (const std::size_t index : graph.breakCycle())
                rules.push_back(actions[index].action.description);
            order.cycles.push_back(std::move(rules));
        }
        indices.push_back(graph.takeFirst());
    }
    order.actions.reserve(actions.size());
    for (const std::size_t index : indices)
        order.actions.push_back(std::move(actions[index]));
    return order;
}

RuleScheduler::Verdict RuleScheduler::judge(const PendingAction& pending) const
{
    const vo::Lock lock(mutex_);
    const AutonomousAction& action = pending.action;
    std::vector<std::string> because = activeOf(action.skipIfRulesActive);
    if (!because.empty())
        return {Verdict::Kind::skip, std::move(because)};
    because = activeOf(action.executeAfterActiveRules);
    for (const std::string& rule : action.executeAfterIfSimultaneouslyTrue) {
        if (isAheadInList(pending, rule))
            because.push_back(rule);
    }
    const auto kind = because.empty() ? Verdict::Kind::run : Verdict::Kind::wait;
    return {kind, std::move(because)};
}

std::vector<std::string> RuleScheduler::activeOf(const std::vector<std::string>& rules) const
{
    std::vector<std::string> active;
    for (const std::string& rule : rules) {
        if (active_.count(rule))
            active.push_back(rule);
    }
    return active;
}

bool RuleScheduler::isAheadInList(const PendingAction& pending, const std::string& rule) const
{
    const auto found = turns_.find({pending.hitList, rule});
    return found != turns_.end() && *found->second.begin() < pending.turn;
}

void RuleScheduler::enterList(const PendingAction& pending)
{
    turns_[{pending.hitList, pending.action.description}].insert(pending.turn);
}

void RuleScheduler::leaveList(const PendingAction& pending)
{
    const auto turns = turns_.find({pending.hitList, pending.action.description});
    turns->second.erase(turns->second.find(pending.turn));
    if (turns->second.empty())
        turns_.erase(turns);
}

bool RuleScheduler::wait(const PendingAction& pending)
{
    const vo::Lock lock(mutex_);
    const AutonomousAction& action = pending.action;
    if (!waitingActions_.emplace(action.conditionId, action.description).second)
        return false;
    enterList(pending);
    for (const auto* rules :
         {&action.executeAfterActiveRules, &action.executeAfterIfSimultaneouslyTrue})
        awaited_.insert(rules->begin(), rules->end());
    waiting_.push_back(pending);
    mayBeReady_ = true;  // what it waits for may have ended since it was judged
    return true;
}

/// Undoes what wait() noted of an action that is taken from the waiting ones.
void RuleScheduler::forget(const PendingAction& pending)
{
    const AutonomousAction& action = pending.action;
    waitingActions_.erase({action.conditionId, action.description});
    leaveList(pending);
    for (const auto* rules :
         {&action.executeAfterActiveRules, &action.executeAfterIfSimultaneouslyTrue}) {
        for (const std::string& rule : *rules)
            awaited_.erase(awaited_.find(rule));
    }
}

void RuleScheduler::begin(const PendingAction& pending)
{
    const vo::Lock lock(mutex_);
    enterList(pending);
    ++active_[pending.action.description];
}

void RuleScheduler::end(const PendingAction& pending, FocusId started)
{
    const std::string& rule = pending.action.description;
    const vo::Lock lock(mutex_);
    leaveList(pending);
    mayBeReady_ = mayBeReady_ || awaited_.count(rule) > 0;
    if (started > lastLost_)
        byFocus_.emplace(started, rule);
    else
        deactivate(rule);
}

void RuleScheduler::focusLost(FocusId focus)
{
    const vo::Lock lock(mutex_);
    lastLost_ = std::max(lastLost_, focus);
    while (!byFocus_.empty() && byFocus_.begin()->first <= lastLost_) {
        deactivate(byFocus_.begin()->second);
        byFocus_.erase(byFocus_.begin());
    }
}

void RuleScheduler::deactivate(const std::string& rule)
{
    const auto found = active_.find(rule);
    if (found == active_.end() || --found->second > 0)
        return;
    active_.erase(found);
    mayBeReady_ = mayBeReady_ || awaited_.count(rule) > 0;
}

bool RuleScheduler::isActive(const std::string& rule) const
{
    const vo::Lock lock(mutex_);
    return active_.count(rule) > 0;
}

bool RuleScheduler::mayGo(const PendingAction& pending) const
{
    for (const std::string& leader : pending.action.executeAfterIfSimultaneouslyTrue) {
        if (isAheadInList(pending, leader))
            return false;
    }
    return activeOf(pending.action.executeAfterActiveRules).empty();
}

bool RuleScheduler::hasReady()
{
    const vo::Lock lock(mutex_);
    if (!mayBeReady_)
        return false;
    mayBeReady_ = false;
    for (const PendingAction& pending : waiting_)
        mayBeReady_ = mayBeReady_ || mayGo(pending);
    return mayBeReady_;
}

std::vector<PendingAction> RuleScheduler::takeReady()
{
    const vo::Lock lock(mutex_);
    std::vector<PendingAction> ready;
    std::vector<PendingAction> rest;
    // One that goes may have held back others of its hit list: those came after it.
    for (PendingAction& pending : waiting_) {
        if (mayGo(pending)) {
            forget(pending);
            ready.push_back(std::move(pending));
        } else {
            rest.push_back(std::move(pending));
        }
    }
    waiting_ = std::move(rest);
    mayBeReady_ = false;
    return ready;
}

std::vector<PendingAction> RuleScheduler::dropWaiting()
{
    const vo::Lock lock(mutex_);
    for (const PendingAction& pending : waiting_)
        forget(pending);
    mayBeReady_ = false;
    return std::exchange(waiting_, {});
}

}  // namespace KR
