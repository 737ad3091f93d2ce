#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "launchpad/NimbraLaunchpadResponder.h"
#include "life/ActionRunner.h"
#include "life/EventStream.h"
#include "life/FocusQueue.h"
#include "life/FrozenChains.h"
#include "life/LifeStatus.h"
#include "life/Requests.h"
#include "life/RuleScheduler.h"
#include "life/ServiceCalls.h"
#include "life/Turns.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/Signal.h"

namespace KR {

/// Carries out what the launchpad decides, step by step, and honours the rule lists of the actions.
/// Publishes what becomes of each rule, and what changes in the robot's life.
///
/// The steps of an action come one after the other, and nobody waits for them: while a step takes
/// its time, other actions begin. A step that is refused, fails or passes its deadline drops the
/// rest of its action; the others go on.
///
/// Before an activity starts, whoever asks for it, the actions of
/// ExecuteBeforeActivityIfConditionTrue whose condition is true are carried out, one after the
/// other, and end or expire before the switch goes on. They obey the lists as well, but cannot
/// wait: one that would have to is skipped. An activity that they start themselves is not prepared,
/// and none of them comes before what it starts.
///
/// An action that has waited runs if its condition is still true. StopAll forgets those that wait.
///
/// Thread-safe: what takes its time goes on on the event loop. All that it is made of outlives it;
/// it is destroyed after the event loop is closed.
class Responder : public NimbraLaunchpadResponder {
public:
    /// The launchpad's getActionSuggestions.
    using Suggestions = std::function<std::list<AutonomousAction>(int mask)>;

    Responder(LifeStatus& status, FrozenChains& chains, FocusQueue& focus, ServiceCalls& calls,
              Requests& requests, Turns& turns, EventStream& events);
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

    /// FocusQueue::switchFocus(), after what comes before the activity. Its deadline counts for
    /// each of the two checks, and for the switch itself.
    vo::Future<std::optional<FocusId>> switchFocus(const FocusRequest& request)
    {
        return prepareAndSwitch(request, nullptr);
    }

    /// Begins no action any more.
    void exit();

private:
    enum class Manner { hit, waited, beforeActivity };
    /// An action in progress. Used by one thread at a time.
    struct Run;
    using RunPtr = std::shared_ptr<Run>;
    /// A switch that is being prepared. Used by one thread at a time, but for its state.
    struct Preparing;
    /// The switch that an action comes before.
    struct Before {
        std::string activity = {};
        PreparationId preparation = 0;        ///< 0 for none
        std::function<void()> ended = [] {};  ///< called when the action has ended
    };

    void decideAll(const std::list<AutonomousAction>& actions);
    std::vector<PendingAction> inOrder(const std::list<AutonomousAction>& actions);
    void warnOfCycles(const std::vector<std::vector<std::string>>& cycles);
    void decide(const PendingAction& pending, Manner manner, const Before& before);
    void begin(const PendingAction& pending, const Before& before);
    void goOn(const RunPtr& run);
    vo::Future<StepResult> carryOut(const RunPtr& run);
    bool report(Run& run, const StepResult& result);
    void end(const RunPtr& run);
    vo::Future<std::optional<FocusId>> prepareAndSwitch(const FocusRequest& request,
                                                        const RunPtr& by);
    std::list<AutonomousAction> actionsBefore(const RunPtr& by);
    void goOn(const std::shared_ptr<Preparing>& preparing);
    void onLifeChanged(const LifeChange& change);
    void postReady();
    void runReady();
    bool isStillTrue(const AutonomousAction& action) const;

    // Constant after construction, the suggestions after set-up.
    LifeStatus& status_;
    FocusQueue& focus_;
    Turns& turns_;
    EventStream& events_;
    const ActionRunner runner_;
    Suggestions suggestions_;
    vo::Connection changes_;
    // Synchronised by themselves.
    RuleScheduler scheduler_;
    vo::Signal<> pluginsChanged_;
    std::atomic<bool> exited_{false};

    vo::Mutex pluginsMutex_;
    vo::Connection plugins_ VO_GUARDED_BY(pluginsMutex_);

    std::atomic<std::uint64_t> hitLists_{0};  ///< that have come

    vo::Mutex mutex_;
    std::uint64_t lastTurn_ VO_GUARDED_BY(mutex_) = 0;
    std::set<std::vector<std::string>> knownCycles_ VO_GUARDED_BY(mutex_);
    std::set<RunPtr> runsBefore_ VO_GUARDED_BY(mutex_);  ///< those that come before an activity
};

}  // namespace KR
