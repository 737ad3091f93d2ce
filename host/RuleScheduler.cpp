#include "host/RuleScheduler.h"

#include <algorithm>
#include <utility>

namespace KR {

namespace {

/// The graph of who runs behind whom in one hit list, by index.
class HitGraph {
public:
    explicit HitGraph(const std::vector<PendingAction>& actions)
        : followers_(actions.size()), leaders_(actions.size())
    {
        std::map<std::string, std::vector<std::size_t>> byName;
        for (std::size_t i = 0; i < actions.size(); ++i)
            byName[actions[i].action.description].push_back(i);
        for (std::size_t i = 0; i < actions.size(); ++i) {
            const AutonomousAction& action = actions[i].action;
            for (const std::string& name : action.executeAfterIfSimultaneouslyTrue) {
                const auto found = byName.find(name);
                if (found == byName.end() || name == action.description)
                    continue;
                for (const std::size_t leader : found->second)
                    addEdge(leader, i);
            }
        }
        for (std::size_t i = 0; i < actions.size(); ++i) {
            remaining_.insert(i);
            if (leaders_[i].empty())
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
        for (const std::size_t follower : followers_[index]) {
            leaders_[follower].erase(index);
            if (leaders_[follower].empty() && remaining_.count(follower))
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
            const std::size_t leader = *leaders_[path.back()].begin();
            const auto [seen, isNew] = seenAt.emplace(leader, path.size());
            if (!isNew) {
                path.erase(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(seen->second));
                break;
            }
            path.push_back(leader);
        }
        const std::size_t first = *std::min_element(path.begin(), path.end());
        leaders_[first].clear();
        free_.insert(first);
        return path;
    }

private:
    void addEdge(std::size_t leader, std::size_t follower)
    {
        if (leaders_[follower].insert(leader).second)
            followers_[leader].push_back(follower);
    }

    std::vector<std::vector<std::size_t>> followers_;
    std::vector<std::set<std::size_t>> leaders_;
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
        if (waitsInList(pending, rule))
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

bool RuleScheduler::waitsInList(const PendingAction& pending, const std::string& rule) const
{
    return std::any_of(waiting_.begin(), waiting_.end(), [&](const PendingAction& other) {
        return other.hitList == pending.hitList && other.turn < pending.turn &&
               other.action.description == rule;
    });
}

bool RuleScheduler::wait(const PendingAction& pending)
{
    const vo::Lock lock(mutex_);
    const bool waits =
        std::any_of(waiting_.begin(), waiting_.end(), [&](const PendingAction& other) {
            return other.action.conditionId == pending.action.conditionId &&
                   other.action.description == pending.action.description;
        });
    if (!waits)
        waiting_.push_back(pending);
    return !waits;
}

void RuleScheduler::begin(const std::string& rule)
{
    const vo::Lock lock(mutex_);
    ++active_[rule];
}

void RuleScheduler::end(const std::string& rule, FocusId started)
{
    const vo::Lock lock(mutex_);
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
    if (found != active_.end() && --found->second == 0)
        active_.erase(found);
}

bool RuleScheduler::isActive(const std::string& rule) const
{
    const vo::Lock lock(mutex_);
    return active_.count(rule) > 0;
}

bool RuleScheduler::mayGo(const PendingAction& pending) const
{
    for (const std::string& leader : pending.action.executeAfterIfSimultaneouslyTrue) {
        if (waitsInList(pending, leader))
            return false;
    }
    return activeOf(pending.action.executeAfterActiveRules).empty();
}

bool RuleScheduler::hasReady() const
{
    const vo::Lock lock(mutex_);
    for (const PendingAction& pending : waiting_) {
        if (mayGo(pending))
            return true;
    }
    return false;
}

std::vector<PendingAction> RuleScheduler::takeReady()
{
    const vo::Lock lock(mutex_);
    std::vector<PendingAction> ready;
    // One that goes may have held back another.
    for (auto it = waiting_.begin(); it != waiting_.end();) {
        if (!mayGo(*it)) {
            ++it;
            continue;
        }
        ready.push_back(std::move(*it));
        waiting_.erase(it);
        it = waiting_.begin();
    }
    return ready;
}

std::vector<PendingAction> RuleScheduler::dropWaiting()
{
    const vo::Lock lock(mutex_);
    return std::exchange(waiting_, {});
}

}  // namespace KR
