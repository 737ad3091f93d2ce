#include "life/Responder.h"

#include <algorithm>
#include <deque>
#include <utility>

#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger responderLog("Nimbra.Responder");

constexpr int kAnyTime = ExecuteAnyTimeConditionTrue | ExecuteAnyTimeConditionEdgeTrue |
                         ExecuteBeforeActivityIfConditionTrue;

bool isSame(const AutonomousAction& a, const AutonomousAction& b)
{
    return a.conditionId == b.conditionId && a.description == b.description;
}

std::string joined(const std::vector<std::string>& texts, const char* separator)
{
    std::string result;
    for (const std::string& text : texts)
        result += (result.empty() ? "" : separator) + text;
    return result;
}

EventRule ruleOf(const AutonomousAction& action)
{
    return {action.description, (action.synchronicity & ExecuteAnyTimeConditionTrue) != 0};
}

}  // namespace

struct Responder::Run {
    const PendingAction pending;
    const Before before;
    std::size_t next = 0;  ///< step
    FocusId started = 0;   ///< the focus that the last SwitchFocus gave

    const AutonomousAction& action() const { return pending.action; }
};

struct Responder::Preparing {
    const FocusRequest request;
    const vo::Promise<std::optional<FocusId>> promise = {};
    PreparationId id = 0;
    std::deque<PendingAction> rest = {};  ///< what is to come before the activity
    /// Of the action in progress: `left` by who began it, as it takes its time, or `ended` before.
    enum class State { begun, ended, left };
    std::atomic<State> state{State::begun};

    explicit Preparing(FocusRequest theRequest) : request(std::move(theRequest)) {}
};

Responder::Responder(LifeStatus& status, FrozenChains& chains, FocusQueue& focus,
                     ServiceCalls& calls, Requests& requests, Turns& turns, EventStream& events)
    : status_(status),
      focus_(focus),
      turns_(turns),
      events_(events),
      runner_(status, chains, focus, calls, requests, turns),
      changes_(status.changed.connect([this](const LifeChange& change) { onLifeChanged(change); }))
{
}

Responder::~Responder()
{
    changes_.disconnect();
}

void Responder::exit()
{
    exited_ = true;
}

void Responder::setPluginsChanged(std::function<void()> pluginsChanged)
{
    const vo::Lock lock(pluginsMutex_);
    plugins_.disconnect();
    if (pluginsChanged)
        plugins_ = pluginsChanged_.connect(std::move(pluginsChanged));
}

void Responder::onPluginsChanged()
{
    pluginsChanged_();
}

void Responder::processActions(const std::list<AutonomousAction>& actions, const PersistentValues&)
{
    if (exited_)
        return;
    const HitsTaken begin{++hitLists_};
    if (turns_.driver()) {
        turns_.post(begin, [this, actions] { decideAll(actions); });
        return;
    }
    turns_.begin(begin);
    decideAll(actions);
}

void Responder::decideAll(const std::list<AutonomousAction>& actions)
{
    for (const PendingAction& pending : inOrder(actions))
        decide(pending, Manner::hit, {});
}

/// One hit list, in the order in which it is carried out.
std::vector<PendingAction> Responder::inOrder(const std::list<AutonomousAction>& actions)
{
    std::vector<PendingAction> pending;
    for (const AutonomousAction& action : actions)
        pending.push_back({action, 0, 0});
    RuleScheduler::Order order = RuleScheduler::inOrder(std::move(pending));
    warnOfCycles(order.cycles);
    const vo::Lock lock(mutex_);
    const std::uint64_t hitList = lastTurn_ + 1;
    for (PendingAction& each : order.actions) {
        each.hitList = hitList;
        each.turn = ++lastTurn_;
    }
    return std::move(order.actions);
}

void Responder::warnOfCycles(const std::vector<std::vector<std::string>>& cycles)
{
    for (const std::vector<std::string>& cycle : cycles) {
        {
            // Once: these rules may be hit together again and again.
            const vo::Lock lock(mutex_);
            if (!knownCycles_.insert(cycle).second)
                continue;
        }
        responderLog.warning("processActions",
                             "Rules are to run after one another in a circle, which is broken: " +
                                 joined(cycle, " after ") + " after " + cycle.front());
    }
}

/// Runs, skips or keeps an action.
void Responder::decide(const PendingAction& pending, Manner manner, const Before& before)
{
    using Verdict = RuleScheduler::Verdict::Kind;
    const AutonomousAction& action = pending.action;
    const EventRule rule = ruleOf(action);
    if (manner == Manner::waited)
        events_.publish(RuleResumed{rule});
    else
        events_.publish(RuleProposed{rule, before.activity});

    const RuleScheduler::Verdict verdict = scheduler_.judge(pending);
    const std::string active = joined(verdict.because, ", ");
    if (verdict.kind == Verdict::run) {
        begin(pending, before);
        return;
    }
    if (verdict.kind == Verdict::skip) {
        events_.publish(RuleSkipped{rule, "while active: " + active});
    } else if (manner == Manner::beforeActivity) {
        events_.publish(RuleSkipped{rule, "cannot wait for: " + active});
    } else {
        scheduler_.wait(pending);
        events_.publish(RuleWaits{rule, "for the end of: " + active});
        postReady();  // they may have ended meanwhile
    }
    before.ended();
}

void Responder::begin(const PendingAction& pending, const Before& before)
{
    const auto run = std::make_shared<Run>(Run{pending, before});
    scheduler_.begin(pending);
    if (before.preparation != 0) {
        const vo::Lock lock(mutex_);
        runsBefore_.insert(run);
    }
    goOn(run);
}

/// Carries out the steps that are left, until one takes its time.
void Responder::goOn(const RunPtr& run)
{
    while (run->next < run->action().items.size()) {
        if (exited_)
            return;
        const vo::Future<StepResult> step = carryOut(run);
        if (step.isRunning()) {
            step.then([this, run](const vo::Future<StepResult>& ended) {
                if (report(*run, ended.value()))
                    goOn(run);
                else
                    end(run);
            });
            return;
        }
        if (!report(*run, step.value()))
            break;
    }
    end(run);
}

/// Begins a step.
vo::Future<StepResult> Responder::carryOut(const RunPtr& run)
{
    const AutonomousActionItem& item = run->action().items[run->next];
    vo::Future<StepResult> step;
    const StepResult failure = attempt([&] {
        Cause cause = causeOf(item, run->action().description);
        cause.preparation = run->before.preparation;
        if (item.type == ActionItemSwitchFocus)
            step = resultOf(prepareAndSwitch(focusRequestOf(item, cause), run),
                            [](const vo::Future<std::optional<FocusId>>& ended) {
                                StepResult result;
                                result.started = ended.value();
                                if (!result.started)
                                    result.reason = "it has the focus already";
                                return result;
                            });
        else
            step = runner_.run(item, cause);
        return StepResult();
    });
    if (step.isValid())
        return step;
    const vo::Promise<StepResult> failed;
    failed.setValue(failure);
    return failed.future();
}

/// Publishes what became of a step. Whether the next one may come.
bool Responder::report(Run& run, const StepResult& result)
{
    const AutonomousAction& action = run.action();
    const AutonomousActionItem& item = action.items[run.next++];
    run.started = result.started.value_or(run.started);
    events_.publish(StepEnded{ruleOf(action), actionItemTypeName(item.type), describeStep(item),
                              result.outcome, result.reason, action.items.size() - run.next});
    return result.outcome == StepOutcome::done;
}

void Responder::end(const RunPtr& run)
{
    {
        const vo::Lock lock(mutex_);
        runsBefore_.erase(run);
    }
    scheduler_.end(run->pending, run->started);
    postReady();
    run->before.ended();
}

/// `by` is the action that asks for it; null for none.
vo::Future<std::optional<FocusId>> Responder::prepareAndSwitch(const FocusRequest& request,
                                                               const RunPtr& by)
{
    if (request.cause.preparation != 0)
        return focus_.switchFocus(request);
    const auto preparing = std::make_shared<Preparing>(request);
    const auto& promise = preparing->promise;
    // Its copy, as it is kept until then: the preparation holds more.
    preparing->id =
        focus_.prepare([promise](const std::exception_ptr& why) { promise.setError(why); });
    promise.future().then([this, id = preparing->id](const auto&) { focus_.withdraw(id); });
    focus_.mayStart(request).then([this, preparing, by](const vo::Future<bool>& may) {
        if (!may.hasValue() || !may.value()) {
            preparing->promise.endWith([&] {
                may.value();
                return std::optional<FocusId>();
            });
            return;
        }
        for (PendingAction& pending : inOrder(actionsBefore(by)))
            preparing->rest.push_back(std::move(pending));
        goOn(preparing);
    });
    return promise.future();
}

/// What is to come before an activity. Nothing comes before what it starts itself.
std::list<AutonomousAction> Responder::actionsBefore(const RunPtr& by)
{
    if (!suggestions_ || exited_)
        return {};
    std::set<RunPtr> runs;
    {
        const vo::Lock lock(mutex_);
        runs = runsBefore_;
    }
    if (by)
        runs.insert(by);
    std::list<AutonomousAction> actions = suggestions_(ExecuteBeforeActivityIfConditionTrue);
    actions.remove_if([&runs](const AutonomousAction& action) {
        return std::any_of(runs.begin(), runs.end(),
                           [&](const RunPtr& run) { return isSame(action, run->action()); });
    });
    return actions;
}

/// Carries out what comes before an activity, until an action takes its time, and then switches.
void Responder::goOn(const std::shared_ptr<Preparing>& preparing)
{
    using State = Preparing::State;
    while (!preparing->rest.empty() && preparing->promise.future().isRunning()) {
        const PendingAction pending = std::move(preparing->rest.front());
        preparing->rest.pop_front();
        preparing->state = State::begun;
        const auto ended = [this, preparing] {
            if (preparing->state.exchange(State::ended) == State::left)
                goOn(preparing);
        };
        decide(pending, Manner::beforeActivity,
               {preparing->request.activity, preparing->id, ended});
        if (preparing->state.exchange(State::left) == State::begun)
            return;
    }
    focus_.switchFocus(preparing->request, preparing->id)
        .then([preparing](const vo::Future<std::optional<FocusId>>& ended) {
            preparing->promise.endAs(ended);
        });
}

void Responder::onLifeChanged(const LifeChange& change)
{
    std::visit([&](const auto& each) { events_.publish(each); }, change);
    const FocusChanged* const focus = std::get_if<FocusChanged>(&change);
    if (focus && focus->lost != 0) {
        scheduler_.focusLost(focus->lost);
        postReady();
    }
    if (!std::holds_alternative<EverythingStopped>(change))
        return;
    for (const PendingAction& pending : scheduler_.dropWaiting())
        events_.publish(RuleDropped{ruleOf(pending.action), "everything was stopped"});
}

/// Has the waiting actions that may go now run later, when the action in progress has ended.
void Responder::postReady()
{
    if (scheduler_.hasReady())
        turns_.post(WaitingSeen{}, [this] { runReady(); });
}

void Responder::runReady()
{
    if (exited_)
        return;
    RuleScheduler::Order order = RuleScheduler::inOrder(scheduler_.takeReady());
    for (const PendingAction& pending : order.actions) {
        if (isStillTrue(pending.action))
            decide(pending, Manner::waited, {});
        else
            events_.publish(RuleDropped{ruleOf(pending.action), "its condition is no longer true"});
    }
}

bool Responder::isStillTrue(const AutonomousAction& action) const
{
    if (!suggestions_)
        return true;
    const std::list<AutonomousAction> suggestions = suggestions_(kAnyTime);
    return std::any_of(suggestions.begin(), suggestions.end(),
                       [&](const AutonomousAction& other) { return isSame(other, action); });
}

}  // namespace KR
