#include "life/FocusQueue.h"

#include <algorithm>
#include <utility>

#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger focusQueueLog("Nimbra.Life");

constexpr const char* kModule = "KRNimbra";
constexpr const char* kSwitchFocus = "switchFocus";
constexpr const char* kSetState = "setState";
constexpr const char* kDisabled = "disabled";
constexpr const char* kHasEnded = "the life service has ended";

std::exception_ptr refusal(const char* method, const std::string& reason)
{
    return std::make_exception_ptr(LifeRefusal(kModule, method, reason));
}

/// Why a future has ended without a value.
std::exception_ptr errorOf(const vo::Future<void>& ended)
{
    try {
        ended.value();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

vo::Future<void> done()
{
    const vo::Promise<void> promise;
    promise.setValue();
    return promise.future();
}

}  // namespace

/// One change. Its members are constant once it is added, but for the last group.
struct FocusQueue::Change {
    enum class Kind { focus, stop, state };
    /// Those of a switch; the other changes are `stopping` during their turn.
    enum class Phase { waiting, checking, stopping, starting, ended };

    Kind kind;
    const char* method;
    Cause cause;
    std::string reason = {};
    FocusRequest request = {};  ///< of a switch
    FocusId onlyStay = 0;       ///< of a stop: that of an activity that has ended; 0 for whichever
    bool all = false;           ///< of a stop: tells that everything is to stop
    std::string state = {};
    bool force = false;

    vo::Promise<void> promise = {};

    // Guarded by the queue's mutex.
    Phase phase = Phase::waiting;
    bool isCancelled = false;

    /// Written before the promise is kept, for who follows it.
    std::optional<FocusId> stay = {};

    /// Whether it is of no use any more past its deadline. What is to be over is to be over.
    bool expires() const { return kind == Kind::focus || (kind == Kind::state && !force); }
    bool isUrgent() const
    {
        return (kind == Kind::stop && onlyStay == 0) || (kind == Kind::state && force);
    }
    /// Whether it is of no use any more when that one is to come.
    bool yieldsTo(const Change& other) const
    {
        return other.isUrgent() && expires() && (kind == Kind::focus || other.kind == Kind::state);
    }
    std::string cancelText() const
    {
        return "it was cancelled by " +
               (kind == Kind::state ? "the change to '" + state + "'" : std::string("a stop"));
    }
};

FocusQueue::FocusQueue(const std::shared_ptr<vo::Clock>& clock, Turns& turns, LifeStatus& status,
                       ActivityRunner* runner)
    : clock_(clock), turns_(turns), status_(status), runner_(runner)
{
    if (runner_)
        ends_ = runner_->ended.connect([this](FocusId stay, const std::string& reason) {
            turns_.take(ActivityEnded{stay, reason},
                        [this, stay, reason] { onActivityEnded(stay, reason); });
        });
}

FocusQueue::~FocusQueue()
{
    ends_.disconnect();
}

PreparationId FocusQueue::prepare(std::function<void(const std::exception_ptr&)> cancelled)
{
    const vo::Lock lock(mutex_);
    preparations_.emplace(++lastPreparation_, std::move(cancelled));
    return lastPreparation_;
}

void FocusQueue::withdraw(PreparationId preparation)
{
    const vo::Lock lock(mutex_);
    preparations_.erase(preparation);
}

/// Whether the activity is to be started: false when it has the focus already.
bool FocusQueue::admit(const FocusRequest& request) const
{
    if (request.activity.empty())
        throw KRError(kModule, kSwitchFocus, "the activity has no name");
    if ((request.flags & ~FocusRequest::kRestart) != 0)
        throw KRError(kModule, kSwitchFocus, "unknown flags " + std::to_string(request.flags));
    {
        const vo::Lock lock(mutex_);
        if (exited_)
            throw LifeRefusal(kModule, kSwitchFocus, kHasEnded);
    }
    if (request.autonomous && status_.isAutonomousFocusBlocked())
        throw LifeRefusal(kModule, kSwitchFocus, "autonomous focus is blocked");
    const std::string state = status_.state();
    if (!LifeStatus::mayRunActivities(state))
        throw LifeRefusal(kModule, kSwitchFocus,
                          "no activity may run in the state '" + state + "'");
    const bool restart = (request.flags & FocusRequest::kRestart) != 0;
    return restart || status_.focus().activity != request.activity;
}

vo::Future<void> FocusQueue::check(const std::string& activity) const
{
    return runner_ ? runner_->check(activity) : done();
}

vo::Future<bool> FocusQueue::mayStart(const FocusRequest& request)
{
    const vo::Promise<bool> promise;
    try {
        if (admit(request))
            check(request.activity).map([] { return true; }).then([promise](const auto& ended) {
                promise.endAs(ended);
            });
        else
            promise.setValue(false);
    } catch (...) {
        promise.setError(std::current_exception());
    }
    failAfter(turns_, promise, request.cause.deadline, kModule, kSwitchFocus);
    return promise.future();
}

vo::Future<std::optional<FocusId>> FocusQueue::switchFocus(const FocusRequest& request,
                                                           PreparationId prepared)
{
    const auto change =
        std::make_shared<Change>(Change{Change::Kind::focus, kSwitchFocus, request.cause});
    change->request = request;
    bool isCancelled = false;
    {
        const vo::Lock lock(mutex_);
        isCancelled = preparations_.erase(prepared) == 0 && prepared != 0;
    }
    if (isCancelled)
        change->promise.setError(refusal(kSwitchFocus, "it was cancelled while it was prepared"));
    else
        add(change);
    return change->promise.future().map([change] { return change->stay; });
}

vo::Future<void> FocusQueue::stopFocus(const std::string& reason, const Cause& cause)
{
    return add(std::make_shared<Change>(Change{Change::Kind::stop, "stopFocus", cause, reason}));
}

vo::Future<void> FocusQueue::stopAll(const std::string& reason, const Cause& cause)
{
    const auto change =
        std::make_shared<Change>(Change{Change::Kind::stop, "stopAll", cause, reason});
    change->all = true;
    return add(change);
}

vo::Future<void> FocusQueue::setState(const std::string& state, bool force, const Cause& cause)
{
    const auto change = std::make_shared<Change>(Change{Change::Kind::state, kSetState, cause});
    change->state = state;
    change->force = force;
    if (LifeStatus::isState(state))
        return add(change);
    change->promise.setError(std::make_exception_ptr(KRError(
        kModule, kSetState,
        "there is no state '" + state + "' (disabled, safeguard, solitary and interactive are)")));
    return change->promise.future();
}

void FocusQueue::onActivityEnded(FocusId stay, const std::string& reason)
{
    const auto change =
        std::make_shared<Change>(Change{Change::Kind::stop, "activityEnded", {}, reason});
    change->onlyStay = stay;
    add(change);
}

vo::Future<void> FocusQueue::add(const ChangePtr& change)
{
    std::vector<ChangePtr> superseded;
    Preparations preparations;
    bool isRefused = false;
    {
        const vo::Lock lock(mutex_);
        isRefused = exited_;
        if (!isRefused) {
            superseded = cancelledBy(*change);
            if (change->isUrgent())
                preparations = takePreparations(change->cause.preparation);
            waiting_.push_back(change);
        }
    }
    if (isRefused)
        change->promise.setError(refusal(change->method, kHasEnded));
    for (const ChangePtr& each : superseded)
        cancel(each, refusal(each->method, change->cancelText()));
    for (const auto& [preparation, cancelled] : preparations)
        cancelled(refusal(kSwitchFocus, change->cancelText()));
    pump();
    const vo::Duration deadline = change->cause.deadline;
    expireAfter(turns_, change->promise.future(), deadline, [this, change, deadline] {
        cancel(change, overdueError(deadline, kModule, change->method));
    });
    return change->promise.future();
}

/// Those that a change cancels.
std::vector<FocusQueue::ChangePtr> FocusQueue::cancelledBy(const Change& change)
{
    std::vector<ChangePtr> changes;
    if (current_ && current_->yieldsTo(change))
        changes.push_back(current_);
    for (const ChangePtr& each : waiting_) {
        if (each->yieldsTo(change))
            changes.push_back(each);
    }
    return changes;
}

FocusQueue::Preparations FocusQueue::takePreparations(PreparationId but)
{
    Preparations taken;
    taken.swap(preparations_);
    if (auto kept = taken.extract(but))
        preparations_.insert(std::move(kept));
    return taken;
}

/// Begins what waits, one after the other, until one takes its time.
void FocusQueue::pump()
{
    {
        const vo::Lock lock(mutex_);
        if (std::exchange(pumping_, true))
            return;
    }
    for (;;) {
        ChangePtr change;
        {
            const vo::Lock lock(mutex_);
            if (current_ || waiting_.empty()) {
                pumping_ = false;
                return;
            }
            change = current_ = std::move(waiting_.front());
            waiting_.pop_front();
            change->phase = change->kind == Change::Kind::focus ? Change::Phase::checking
                                                                : Change::Phase::stopping;
        }
        begin(change);
    }
}

void FocusQueue::begin(const ChangePtr& change)
{
    try {
        switch (change->kind) {
            case Change::Kind::focus:
                return beginSwitch(change);
            case Change::Kind::stop:
                return beginStop(change);
            case Change::Kind::state:
                return beginState(change);
        }
    } catch (...) {
        if (leave(change))
            end(change, {}, std::current_exception());
    }
}

void FocusQueue::beginSwitch(const ChangePtr& change)
{
    if (admit(change->request))
        check(change->request.activity).then([this, change](const vo::Future<void>& checked) {
            onChecked(change, checked);
        });
    else if (leave(change))
        end(change, {});
}

void FocusQueue::onChecked(const ChangePtr& change, const vo::Future<void>& checked)
{
    if (!checked.hasValue()) {
        if (leave(change))
            end(change, {}, errorOf(checked));
        return;
    }
    if (status_.focus().id == 0) {
        beginStart(change);
        return;
    }
    {
        const vo::Lock lock(mutex_);
        if (change->phase == Change::Phase::ended)
            return;
        change->phase = Change::Phase::stopping;
    }
    stopThen([this, change] { beginStart(change); });
}

void FocusQueue::beginStart(const ChangePtr& change)
{
    FocusId stay = 0;
    bool isCancelled = false;
    {
        const vo::Lock lock(mutex_);
        if (change->phase == Change::Phase::ended)
            return;
        isCancelled = change->isCancelled;
        change->phase = isCancelled ? Change::Phase::ended : Change::Phase::starting;
        if (!isCancelled)
            stay = ++lastFocus_;
    }
    if (isCancelled) {
        end(change, lostFor(*change, "was cancelled"));
        return;
    }
    const vo::Future<void> started =
        runner_ ? runner_->start(change->request.activity, stay) : done();
    started.then(
        [this, change, stay](const vo::Future<void>& ended) { onStarted(change, stay, ended); });
}

void FocusQueue::onStarted(const ChangePtr& change, FocusId stay, const vo::Future<void>& started)
{
    if (!leave(change))
        return;
    if (!started.hasValue()) {
        end(change, lostFor(*change, "failed"), errorOf(started));
        return;
    }
    change->stay = stay;
    const FocusRequest& request = change->request;
    end(change, {status_.moveFocus({stay, request.activity}, request.reason, change->cause.rule)});
}

/// What becomes of the focus when an activity was stopped for one that does not start.
std::vector<LifeChange> FocusQueue::lostFor(const Change& change, const std::string& why)
{
    if (status_.focus().id == 0)
        return {};
    return {status_.moveFocus({}, "'" + change.request.activity + "' was to follow, but " + why,
                              change.cause.rule)};
}

void FocusQueue::beginStop(const ChangePtr& change)
{
    const auto finish = [this, change](std::vector<LifeChange> changes) {
        if (!leave(change))
            return;
        if (change->all)
            changes.emplace_back(EverythingStopped{change->reason, change->cause.rule});
        end(change, changes);
    };
    const FocusId stay = status_.focus().id;
    if (stay == 0 || (change->onlyStay != 0 && change->onlyStay != stay))
        finish({});
    else
        stopThen([this, change, finish] {
            finish({status_.moveFocus({}, change->reason, change->cause.rule)});
        });
}

void FocusQueue::beginState(const ChangePtr& change)
{
    const std::string& rule = change->cause.rule;
    const auto finish = [this, change](const std::vector<LifeChange>& changes) {
        if (leave(change))
            end(change, changes);
    };
    const std::string from = status_.state();
    const LifeStatus::Focus focus = status_.focus();
    if (from == change->state)
        return finish({});
    if (!change->force && from == kDisabled)
        throw LifeRefusal(kModule, kSetState, "leaving 'disabled' needs force");
    if (focus.id == 0 || LifeStatus::mayRunActivities(change->state))
        return finish({status_.moveState(change->state, rule)});
    if (!change->force)
        throw LifeRefusal(
            kModule, kSetState,
            "'" + focus.activity + "' has the focus and may not run in '" + change->state + "'");
    stopThen([this, change, finish] {
        const std::string& by = change->cause.rule;
        const FocusChanged ended =
            status_.moveFocus({}, "it may not run in '" + change->state + "'", by);
        finish({ended, status_.moveState(change->state, by)});
    });
}

/// Stops the activity that has the focus. Whatever goes wrong, it has had its time.
void FocusQueue::stopThen(const std::function<void()>& next)
{
    const vo::Future<void> stopped = runner_ ? runner_->stop() : done();
    {
        const vo::Lock lock(mutex_);
        stopping_ = stopped;
    }
    stopped.then([next](const vo::Future<void>& ended) {
        if (ended.hasError())
            focusQueueLog.error("stopRunning", ended.error());
        next();
    });
}

/// Makes a change fail, now. A stop in progress goes on, and what does not expire comes about.
void FocusQueue::cancel(const ChangePtr& change, const std::exception_ptr& why)
{
    auto phase = Change::Phase::ended;
    {
        const vo::Lock lock(mutex_);
        phase = change->phase;
        change->isCancelled = true;
        const auto place = std::find(waiting_.begin(), waiting_.end(), change);
        if (place != waiting_.end() && change->expires())
            waiting_.erase(place);
        if (phase == Change::Phase::checking || phase == Change::Phase::starting)
            change->phase = Change::Phase::ended;
    }
    if (phase == Change::Phase::starting && runner_) {
        const vo::Future<void> stopped = runner_->stop();
        const vo::Lock lock(mutex_);
        stopping_ = stopped;
    }
    if (phase == Change::Phase::checking)
        end(change, {}, why);
    else if (phase == Change::Phase::starting)
        end(change, lostFor(*change, "was cancelled"), why);
    else
        change->promise.setError(why);
}

/// For who ends a change that is in progress: false when somebody else has.
bool FocusQueue::leave(const ChangePtr& change)
{
    const vo::Lock lock(mutex_);
    return std::exchange(change->phase, Change::Phase::ended) != Change::Phase::ended;
}

/// Tells what has changed, ends the change's turn, and goes on with those that wait.
void FocusQueue::end(const ChangePtr& change, const std::vector<LifeChange>& changes,
                     const std::exception_ptr& error)
{
    for (const LifeChange& each : changes)
        status_.changed(each);
    {
        const vo::Lock lock(mutex_);
        current_.reset();
    }
    if (error)
        change->promise.setError(error);
    else
        change->promise.setValue();
    pump();
}

void FocusQueue::exit()
{
    std::deque<ChangePtr> waiting;
    Preparations preparations;
    ChangePtr current;
    {
        const vo::Lock lock(mutex_);
        if (std::exchange(exited_, true))
            return;
        waiting.swap(waiting_);
        preparations = takePreparations(0);
        current = current_;
    }
    for (const auto& [preparation, cancelled] : preparations)
        cancelled(refusal(kSwitchFocus, kHasEnded));
    for (const ChangePtr& change : waiting)
        change->promise.setError(refusal(change->method, kHasEnded));
    if (current)
        cancel(current, refusal(current->method, kHasEnded));
    const bool hasFocus = status_.focus().id != 0;
    vo::Future<void> stopping;
    {
        const vo::Lock lock(mutex_);
        stopping = stopping_;
    }
    const bool isStopping = stopping.isValid() && stopping.isRunning();
    if (hasFocus && !isStopping && runner_)
        stopping = runner_->stop();
    if (stopping.isValid() && clock_->hasThreads())
        clock_->runWithin(kLongestExit, [stopping] { stopping.wait(); });
}

}  // namespace KR
