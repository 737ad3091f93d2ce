#include "life/Responder.h"

#include <algorithm>

#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

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

EventRule ruleOf(const AutonomousAction& action)
{
    return {action.description, (action.synchronicity & ExecuteAnyTimeConditionTrue) != 0};
}

}  // namespace

Responder::Responder(LifeService& life, EventStream& events)
    : life_(life),
      events_(events),
      runner_(life),
      lifeLink_(life.changed.connect([this](const LifeChange& change) { onLifeChanged(change); }))
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
    const EventRule rule = ruleOf(action);
    if (manner == Manner::waited)
        events_.publish(RuleResumed{rule});
    else
        events_.publish(RuleProposed{rule, activity});

    const RuleScheduler::Verdict verdict = scheduler_.judge(pending);
    const std::string active = joined(verdict.because, ", ");
    if (verdict.kind == Verdict::run) {
        carryOut(action);
    } else if (verdict.kind == Verdict::skip) {
        events_.publish(RuleSkipped{rule, "while active: " + active});
    } else if (manner == Manner::beforeActivity) {
        events_.publish(RuleSkipped{rule, "cannot wait for: " + active});
    } else {
        scheduler_.wait(pending);
        events_.publish(RuleWaits{rule, "for the end of: " + active});
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
        events_.publish(StepEnded{ruleOf(action), actionItemTypeName(item.type), describeStep(item),
                                  result.outcome, result.reason, --rest});
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

void Responder::onLifeChanged(LifeChange change)
{
    const std::string rule = carrying.action ? carrying.action->description : std::string();
    std::visit(
        [&](auto& each) {
            each.rule = rule;
            events_.publish(each);
        },
        change);
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
        vo::getEventLoop()->async([this] { runReady(); });
}

void Responder::runReady()
{
    RuleScheduler::Order order = RuleScheduler::inOrder(scheduler_.takeReady());
    for (const PendingAction& pending : order.actions) {
        if (isStillTrue(pending.action))
            decide(pending, Manner::waited);
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
