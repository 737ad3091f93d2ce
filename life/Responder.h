#pragma once

#include <functional>
#include <list>
#include <set>
#include <string>
#include <vector>

#include "launchpad/NimbraLaunchpadResponder.h"
#include "life/ActionRunner.h"
#include "life/EventStream.h"
#include "life/LifeService.h"
#include "life/RuleScheduler.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/Signal.h"

namespace KR {

/// Carries out what the launchpad decides, step by step, and honours the rule lists of the actions.
/// Publishes what becomes of each rule, and what changes in the robot's life.
///
/// A step that is refused or fails drops the rest of its action; the others go on. Before an
/// activity starts, whoever asks for it, the actions of ExecuteBeforeActivityIfConditionTrue whose
/// condition is true are carried out, on the asking thread. They obey the lists as well, but cannot
/// wait: one that would have to is skipped. An activity that they start themselves is not prepared.
///
/// An action that has waited runs if its condition is still true. StopAll forgets those that wait.
///
/// Thread-safe. The life service and the stream outlive it; it is destroyed after the event loop
/// is closed.
class Responder : public NimbraLaunchpadResponder {
public:
    /// The launchpad's getActionSuggestions.
    using Suggestions = std::function<std::list<AutonomousAction>(int mask)>;

    Responder(LifeService& life, EventStream& events);
    ~Responder() override;
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    /// Before the first action comes.
    void setSuggestions(Suggestions suggestions) { suggestions_ = std::move(suggestions); }

    /// What is to be done when the launchpad has a new plugin. When it returns, what was set before
    /// is not running, unless it is called from there.
    void setPluginsChanged(std::function<void()> pluginsChanged);

    void processActions(const std::list<AutonomousAction>& actions,
                        const PersistentValues& persistentValues) override;
    void onPluginsChanged() override;

private:
    enum class Manner { hit, waited, beforeActivity };

    std::vector<PendingAction> inOrder(const std::list<AutonomousAction>& actions);
    void warnOfCycles(const std::vector<std::vector<std::string>>& cycles);
    void decide(const PendingAction& pending, Manner manner, const std::string& activity = {});
    void carryOut(const AutonomousAction& action);
    void prepare(const std::string& activity);
    void onLifeChanged(LifeChange change);
    void postReady();
    void runReady();
    bool isStillTrue(const AutonomousAction& action) const;

    // Constant after construction, the suggestions after set-up.
    LifeService& life_;
    EventStream& events_;
    const ActionRunner runner_;
    Suggestions suggestions_;
    vo::SignalLink lifeLink_;
    // Synchronised by themselves.
    RuleScheduler scheduler_;
    vo::Signal<> pluginsChanged_;

    vo::Mutex pluginsLinkMutex_;
    vo::SignalLink pluginsLink_ VO_GUARDED_BY(pluginsLinkMutex_) = vo::kInvalidSignalLink;

    vo::Mutex mutex_;
    std::uint64_t lastTurn_ VO_GUARDED_BY(mutex_) = 0;
    std::set<std::vector<std::string>> knownCycles_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
