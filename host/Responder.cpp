#include "host/Responder.h"

#include <algorithm>

#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

using Kind = TimelineEvent::Kind;

const vo::Logger logger("Nimbra.Responder");

constexpr int kAnyTime = ExecuteAnyTimeConditionTrue | ExecuteAnyTimeConditionEdgeTrue |
                         ExecuteBeforeActivityIfConditionTrue;

/// What this thread is carrying out: steps call back into the responder, through the life service.
struct CarryingOut {
    const AutonomousAction* action = nullptr;  ///< null for none
    bool preparing = false;                    ///< inside of the preparation of an activity
};
thread_local CarryingOut carrying;

/// Sets it for a scope.
class CarryingScope {
public:
    explicit CarryingScope(CarryingOut now) : before_(carrying) { carrying = now; }
    ~CarryingScope() { carrying = before_; }
    CarryingScope(const CarryingScope&) = delete;
    CarryingScope& operator=(const CarryingScope&) = delete;

private:
    const CarryingOut before_;
};

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

TimelineEvent ruleEvent(Kind kind, const AutonomousAction& action, std::string reason = {})
{
    TimelineEvent event{kind};
    event.rule = action.description;
    event.reason = std::move(reason);
    event.periodic = (action.synchronicity & ExecuteAnyTimeConditionTrue) != 0;
    return event;
}

}  // namespace

Responder::Responder(LifeService& life, Timeline& timeline)
    : life_(life),
      timeline_(timeline),
      runner_(life),
      lifeLink_(life.changed.connect([this](const LifeEvent& event) { onLifeChanged(event); }))
{
    life_.setPreparation([this](const std::string& activity) { prepare(activity); });
}

Responder::~Responder()
{
    life_.changed.disconnect(lifeLink_);
    life_.setPreparation({});
}

void Responder::setPluginsChanged(std::function<void()> pluginsChanged)
{
    const vo::Lock lock(pluginsLinkMutex_);
    pluginsChanged_.disconnect(pluginsLink_);
    pluginsLink_ = pluginsChanged ? pluginsChanged_.connect(std::move(pluginsChanged))
                                  : vo::kInvalidSignalLink;
}

void Responder::onPluginsChanged()
{
    pluginsChanged_();
}

void Responder::processActions(const std::list<AutonomousAction>& actions, const PersistentValues&)
{
    for (const PendingAction& pending : inOrder(actions))
        decide(pending, Manner::hit);
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
        logger.warning("processActions",
                       "Rules are to run after one another in a circle, which is broken: " +
                           joined(cycle, " after ") + " after " + cycle.front());
    }
}

/// Runs, skips or keeps an action. `activity` is the one that it comes before.
void Responder::decide(const PendingAction& pending, Manner manner, const std::string& activity)
{
    using Verdict = RuleScheduler::Verdict::Kind;
    const AutonomousAction& action = pending.action;
    TimelineEvent announcement =
        ruleEvent(manner == Manner::waited ? Kind::resume : Kind::hit, action);
    announcement.subject = activity;
    timeline_.record(announcement);

    const RuleScheduler::Verdict verdict = scheduler_.judge(pending);
    const std::string active = joined(verdict.because, ", ");
    if (verdict.kind == Verdict::run) {
        carryOut(action);
    } else if (verdict.kind == Verdict::skip) {
        timeline_.record(ruleEvent(Kind::skip, action, "while active: " + active));
    } else if (manner == Manner::beforeActivity) {
        timeline_.record(ruleEvent(Kind::skip, action, "cannot wait for: " + active));
    } else {
        scheduler_.wait(pending);
        timeline_.record(ruleEvent(Kind::wait, action, "for the end of: " + active));
        postReady();  // they may have ended meanwhile
    }
}

void Responder::carryOut(const AutonomousAction& action)
{
    const CarryingScope scope({&action, carrying.preparing});
    scheduler_.begin(action.description);
    FocusId started = 0;
    std::size_t rest = action.items.size();
    for (const AutonomousActionItem& item : action.items) {
        const StepResult result = runner_.run(item);
        started = result.started.value_or(started);
        TimelineEvent event = ruleEvent(Kind::step, action, result.reason);
        event.step = actionItemTypeName(item.type);
        event.subject = describeStep(item);
        event.outcome = result.outcome;
        event.rest = --rest;
        timeline_.record(event);
        if (result.outcome != StepOutcome::done)
            break;
    }
    scheduler_.end(action.description, started);
    postReady();
}

/// Carries out what is to come before an activity.
void Responder::prepare(const std::string& activity)
{
    if (carrying.preparing || !suggestions_)
        return;
    const CarryingScope scope({carrying.action, true});
    std::list<AutonomousAction> actions = suggestions_(ExecuteBeforeActivityIfConditionTrue);
    // The action that starts the activity does not come before itself.
    actions.remove_if([](const AutonomousAction& action) {
        return carrying.action && isSame(action, *carrying.action);
    });
    for (const PendingAction& pending : inOrder(actions))
        decide(pending, Manner::beforeActivity, activity);
}

void Responder::onLifeChanged(const LifeEvent& event)
{
    showLife(event);
    if (event.lost != 0) {
        scheduler_.focusLost(event.lost);
        postReady();
    }
    if (event.kind != LifeEvent::Kind::everythingStopped)
        return;
    for (const PendingAction& pending : scheduler_.dropWaiting())
        timeline_.record(ruleEvent(Kind::drop, pending.action, "everything was stopped"));
}

void Responder::showLife(const LifeEvent& event)
{
    static const std::map<LifeEvent::Kind, Kind> kinds{
        {LifeEvent::Kind::focus, Kind::focus},
        {LifeEvent::Kind::state, Kind::state},
        {LifeEvent::Kind::asleep, Kind::asleep},
        {LifeEvent::Kind::autonomousFocus, Kind::autonomousFocus},
        {LifeEvent::Kind::chain, Kind::chain}};
    const auto kind = kinds.find(event.kind);
    if (kind == kinds.end())
        return;
    TimelineEvent shown{kind->second};
    shown.subject = event.subject;
    shown.previous = event.previous;
    shown.reason = event.reason;
    shown.on = event.on;
    if (carrying.action)
        shown.rule = carrying.action->description;
    timeline_.record(shown);
}

/// Has the waiting actions that may go now run later, when the action in progress has ended.
void Responder::postReady()
{
    if (scheduler_.hasReady())
        vo::getEventLoop()->async([this] { runReady(); });
}

void Responder::runReady()
{
    RuleScheduler::Order order = RuleScheduler::inOrder(scheduler_.takeReady());
    for (const PendingAction& pending : order.actions) {
        if (isStillTrue(pending.action))
            decide(pending, Manner::waited);
        else
            timeline_.record(
                ruleEvent(Kind::drop, pending.action, "its condition is no longer true"));
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
