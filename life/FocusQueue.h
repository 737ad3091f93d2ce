#pragma once

#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "life/ActivityRunner.h"
#include "life/FocusRequest.h"
#include "life/LifeStatus.h"
#include "life/Turns.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Future.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// The changes of focus and life state, one after the other, in the order in which they are asked
/// for; none waits on a thread.
///
///     added --its turn--> in progress --> ended
///       └──cancelled──────────┘
///
/// A switch of focus checks whether the activity may start, stops the one before, and starts it:
///
///     waiting --> checking --> stopping --> starting --> ended
///
/// Every state can follow every other, but without force a change is refused
///  - out of "disabled": what a person switched off, a rule does not switch on;
///  - to a state in which the activity that has the focus may not run. With force, it is stopped.
///
/// A stop of the focus, and a forced change of state, cancel the switches that wait, are in
/// progress or are being prepared; so does the deadline of a switch with itself. A start in
/// progress is given up then, a stop goes on to its end. A forced change of state also cancels the
/// changes of state that wait. What is cancelled fails with LifeRefusal, or with KRError past its
/// deadline; its late end changes nothing.
///
/// A deadline counts from the call. A stop that is in progress then goes on, before what waits.
///
/// An activity runs while it has the focus: it is started before it gets the focus, and one that
/// loses it is stopped before. One that ends by itself leaves the focus to none.
///
/// Thread-safe. No lock is held while the runner is called, changes are told or futures end. What
/// is said below to end may have ended already, or ends on the thread that brings it about. Needs
/// an application, whose event loop is closed before this goes.
class FocusQueue {
public:
    /// How long exit() waits for the last activity to stop. Above the grace time of a behaviour.
    static constexpr vo::Duration kLongestExit = std::chrono::seconds(5);

    /// `runner` may be null: activities are names only then. All outlive this.
    FocusQueue(const std::shared_ptr<vo::Clock>& clock, Turns& turns, LifeStatus& status,
               ActivityRunner* runner);
    ~FocusQueue();
    FocusQueue(const FocusQueue&) = delete;
    FocusQueue& operator=(const FocusQueue&) = delete;

    /// Says that a switch is being prepared, until it is asked for by this number or withdrawn.
    /// What cancels switches meanwhile calls `cancelled`, with the reason, and it is refused then.
    PreparationId prepare(std::function<void(const std::exception_ptr&)> cancelled);
    void withdraw(PreparationId preparation);
    /// Whether a switch is to be prepared, at this moment: false when the activity has the focus
    /// already. Fails when it may not or cannot start.
    vo::Future<bool> mayStart(const FocusRequest& request);

    /// Gives an activity the focus, in place of the one that has it. Gives what names its stay;
    /// nothing when it has the focus already. When it may not or cannot start, nothing has changed;
    /// when its start fails nevertheless, no activity has the focus. `prepared` is the number of
    /// its preparation.
    vo::Future<std::optional<FocusId>> switchFocus(const FocusRequest& request,
                                                   PreparationId prepared = 0);
    /// Ends the activity that has the focus, if any.
    vo::Future<void> stopFocus(const std::string& reason, const Cause& cause = {});
    /// The same, and tells that everything is to stop.
    vo::Future<void> stopAll(const std::string& reason, const Cause& cause = {});
    vo::Future<void> setState(const std::string& state, bool force, const Cause& cause = {});

    /// Cancels everything, stops what runs without further ado, and waits for that no longer than
    /// kLongestExit (under a clock without threads, not at all). No activity is started any more.
    /// Before the event loop is closed. Idempotent.
    void exit();

private:
    struct Change;
    using ChangePtr = std::shared_ptr<Change>;
    using Preparations =
        std::map<PreparationId, std::function<void(const std::exception_ptr& why)>>;

    bool admit(const FocusRequest& request) const;
    vo::Future<void> check(const std::string& activity) const;
    vo::Future<void> add(const ChangePtr& change);
    std::vector<ChangePtr> cancelledBy(const Change& change) VO_REQUIRES(mutex_);
    Preparations takePreparations(PreparationId but) VO_REQUIRES(mutex_);
    void pump();
    void begin(const ChangePtr& change);
    void beginSwitch(const ChangePtr& change);
    void onChecked(const ChangePtr& change, const vo::Future<void>& checked);
    void beginStart(const ChangePtr& change);
    void onStarted(const ChangePtr& change, FocusId stay, const vo::Future<void>& started);
    std::vector<LifeChange> lostFor(const Change& change, const std::string& why);
    void beginStop(const ChangePtr& change);
    void beginState(const ChangePtr& change);
    void stopThen(const std::function<void()>& next);
    void cancel(const ChangePtr& change, const std::exception_ptr& why);
    bool leave(const ChangePtr& change);
    void end(const ChangePtr& change, const std::vector<LifeChange>& changes,
             const std::exception_ptr& error = nullptr);
    void onActivityEnded(FocusId stay, const std::string& reason);

    // Constant after construction.
    const std::shared_ptr<vo::Clock> clock_;
    Turns& turns_;
    LifeStatus& status_;
    ActivityRunner* const runner_;
    vo::Connection ends_;

    mutable vo::Mutex mutex_;
    bool exited_ VO_GUARDED_BY(mutex_) = false;
    bool pumping_ VO_GUARDED_BY(mutex_) = false;
    std::deque<ChangePtr> waiting_ VO_GUARDED_BY(mutex_);
    ChangePtr current_ VO_GUARDED_BY(mutex_);  ///< in progress; null for none
    FocusId lastFocus_ VO_GUARDED_BY(mutex_) = 0;
    vo::Future<void> stopping_ VO_GUARDED_BY(mutex_);  ///< the last stop of an activity
    PreparationId lastPreparation_ VO_GUARDED_BY(mutex_) = 0;
    /// Those under way, and who is told when they are cancelled.
    Preparations preparations_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
