#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "launchpad/AutonomousAction.h"
#include "life/ActivityRunner.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// An action whose turn is to be decided.
struct PendingAction {
    AutonomousAction action;
    std::uint64_t hitList = 0;  ///< names the hit list that it came in
    std::uint64_t turn = 0;     ///< grows along the order of that list
};

/// Decides by an action's three rule lists when it runs; knows which rules are active and which
/// actions wait.
///
///     hit --judge()--> run   --begin()/end()-->  active while its activity has the focus
///                      skip
///                      wait  --the rules it waits for end: takeReady()-->  judged again
///
/// A rule is active from begin() until end(), and on until the focus that it started is lost. It
/// may be active several times over.
///
/// Thread-safe.
class RuleScheduler {
public:
    /// Actions in the order in which one hit list carries them out.
    struct Order {
        std::vector<PendingAction> actions;
        /// For each cycle that had to be broken, its rules.
        std::vector<std::vector<std::string>> cycles;
    };
    /// Puts an action behind those of the list that it names in executeAfterIfSimultaneouslyTrue,
    /// and changes the order no further. A cycle is broken at that of its actions which came first.
    static Order inOrder(std::vector<PendingAction> actions);

    struct Verdict {
        enum class Kind { run, skip, wait };
        Kind kind = Kind::run;
        std::vector<std::string> because;  ///< the active rules that stand in the way
    };
    /// Skips while a rule of skipIfRulesActive is active; else waits while one of
    /// executeAfterActiveRules is, or while an action that comes before it in its hit list, and
    /// that it names in executeAfterIfSimultaneouslyTrue, waits or has steps to carry out.
    Verdict judge(const PendingAction& pending) const;

    /// Keeps an action until it need not wait any more. False when it waits already.
    bool wait(const PendingAction& pending);

    void begin(const PendingAction& pending);
    /// The steps have ended; `started` is the focus that the last SwitchFocus gave, 0 for none.
    void end(const PendingAction& pending, FocusId started);
    /// Focuses are lost in ascending order of their ids; losing one loses those before it.
    void focusLost(FocusId focus);

    bool isActive(const std::string& rule) const;
    /// Whether takeReady() would give something.
    bool hasReady();
    /// Takes away the waiting actions that need not wait any more, in the order in which they came.
    std::vector<PendingAction> takeReady();
    /// Takes away all waiting actions.
    std::vector<PendingAction> dropWaiting();

private:
    std::vector<std::string> activeOf(const std::vector<std::string>& rules) const
        VO_REQUIRES(mutex_);
    bool isAheadInList(const PendingAction& pending, const std::string& rule) const
        VO_REQUIRES(mutex_);
    void enterList(const PendingAction& pending) VO_REQUIRES(mutex_);
    void leaveList(const PendingAction& pending) VO_REQUIRES(mutex_);
    bool mayGo(const PendingAction& pending) const VO_REQUIRES(mutex_);
    void deactivate(const std::string& rule) VO_REQUIRES(mutex_);
    void forget(const PendingAction& pending) VO_REQUIRES(mutex_);

    mutable vo::Mutex mutex_;
    std::map<std::string, unsigned> active_ VO_GUARDED_BY(mutex_);  ///< how many times over
    std::multimap<FocusId, std::string> byFocus_ VO_GUARDED_BY(mutex_);
    FocusId lastLost_ VO_GUARDED_BY(mutex_) = 0;
    std::vector<PendingAction> waiting_ VO_GUARDED_BY(mutex_);
    // What is asked of waiting_ at every hit and every end of a rule.
    std::set<std::pair<std::uint32_t, std::string>> waitingActions_ VO_GUARDED_BY(mutex_);
    /// Of those that wait or have steps to carry out, by hit list and description.
    std::map<std::pair<std::uint64_t, std::string>, std::multiset<std::uint64_t>> turns_
        VO_GUARDED_BY(mutex_);
    std::multiset<std::string> awaited_ VO_GUARDED_BY(mutex_);  ///< rules whose end is waited for
    bool mayBeReady_ VO_GUARDED_BY(mutex_) = false;
};

}  // namespace KR
