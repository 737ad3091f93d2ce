#include "record/Rerun.h"

#include <deque>
#include <map>
#include <utility>

#include "launchpad/NimbraLaunchpad.h"
#include "life/FocusRequest.h"
#include "life/LifeDriver.h"
#include "life/LifeService.h"
#include "platform/vo/EventLoop.h"
#include "record/LifeCall.h"
#include "record/RecordedAnswers.h"
#include "record/ReplayStage.h"
#include "record/RuleLog.h"

namespace KR {

namespace {

/// Proposals that are less than this apart are the same: what a thread took its time for.
constexpr vo::Duration kTolerance = std::chrono::milliseconds(200);

std::string heldKeys(const ConditionPart& part)
{
    if (part.kind == ConditionPart::Kind::key)
        return part.text + " is " +
               (part.value.isValid() ? part.value.toDisplayString() : "unknown");
    std::string text;
    for (const ConditionPart& operand : part.parts) {
        const std::string held = heldKeys(operand);
        text += text.empty() || held.empty() ? held : ", " + held;
    }
    return text;
}

/// The smallest parts that keep a condition from being true, each with what its keys hold.
std::vector<std::string> falseParts(const ConditionPart& part)
{
    std::vector<std::string> texts;
    const bool isJunction =
        part.kind == ConditionPart::Kind::all || part.kind == ConditionPart::Kind::any;
    for (const ConditionPart& operand : part.parts) {
        if (!isJunction || operand.isTrue())
            continue;
        const std::vector<std::string> more = falseParts(operand);
        texts.insert(texts.end(), more.begin(), more.end());
    }
    if (!isJunction)
        texts.push_back(part.text + " (" + heldKeys(part) + ")");
    return texts;
}

std::string joined(const std::vector<std::string>& texts)
{
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : "; ") + text;
    return joined;
}

}  // namespace

class Rerun::Impl : private LifeDriver {
public:
    Impl(Source source, Options options, Sink sink)
        : source_(std::move(source)), options_(std::move(options)), sink_(std::move(sink))
    {
    }

    Result run();

private:
    void begin(ReplayBeginning beginning);
    void process(const Event& event);
    void write(const Event& event, const KeyWritten& write);
    void noteWhyNot(const std::string& rule, vo::TimePoint time);
    void endActivity(const ActivityEnded& ended);
    void happened(const Event& event);

    // Of LifeDriver.
    void hold(const Happening& begin, vo::Duration delay, std::function<void()> turn) override;
    void drop(const TimerFired& begin) override;
    vo::Future<vo::Value> answer(std::uint64_t number, const std::string& text) override;
    std::list<AutonomousAction> suggestions(const NimbraLaunchpad& launchpad, int mask) override;
    void write(const std::string& key, const KRValue& value) override;
    CheckerScript* checker() override { return nullptr; }

    const Source source_;
    const Options options_;
    const Sink sink_;
    RuleLog before_;
    RuleLog now_;
    RecordedAnswers answers_;
    std::map<std::uint64_t, vo::Future<void>> timers_;
    std::vector<std::pair<std::string, KRValue>> early_;  ///< written while life is being made
    std::string recordedFocus_;                           ///< the activity that had the focus there
    FocusId stays_ = 0;                                   ///< that there were in the new life
    bool isStarted_ = false;
    bool hasEnded_ = false;
    /// By rule and time of a recorded proposal: why there is none now.
    std::map<std::pair<std::string, vo::TimePoint>, std::string> whyNot_;
    std::optional<ReplayStage> stage_;
};

Rerun::Result Rerun::Impl::run()
{
    ReplayBeginning beginning = readBeginning(source_);
    const std::vector<Event> first = beginning.events;
    begin(std::move(beginning));
    for (const Event& event : first)
        process(event);
    while (!hasEnded_) {
        const std::optional<Event> event = source_();
        if (!event || isMonitoringsEnd(event->what))
            break;
        process(*event);
    }
    hasEnded_ = true;
    sink_({0, stage_->clock().now(), RunEnded{}, stage_->clock().uptime()});
    stage_.reset();
    return {compareRules(before_, now_, kTolerance,
                         [this](const std::string& rule, vo::TimePoint time) {
                             return whyNot_[{rule, time}];
                         }),
            answers_.assumed()};
}

void Rerun::Impl::begin(ReplayBeginning beginning)
{
    auto& run = std::get<RunBegan>(beginning.start.what);
    if (options_.rules) {
        run.configText = *options_.rules;
        run.config = options_.rulesPath;
        run.rules = options_.names;
    }
    sink_(beginning.start);
    stage_.emplace(beginning.start, run.configText,
                   options_.packages ? *options_.packages : std::move(beginning.packages),
                   static_cast<LifeDriver&>(*this),
                   [this](const Event& event) { happened(event); });
    for (const auto& [key, value] : early_)
        write(key, value);
}

void Rerun::Impl::process(const Event& event)
{
    before_.take(event);
    std::visit(
        Cases{[&](const KeyWritten& each) { write(event, each); },
              [&](const HistoriesResumed& resumed) { stage_->resume(event, resumed); },
              [&](const PackageChanged& change) {
                  if (isStarted_ && !options_.packages)
                      stage_->services().change(change.package, change.installed);
              },
              [&](const CheckerMoved& move) {
                  if (move.kind != CheckerMove::Kind::started || std::exchange(isStarted_, true))
                      return;
                  stage_->moveTime(event);
                  stage_->life().start();
              },
              [&](const RuleProposed& hit) { noteWhyNot(hit.rule.name, event.time); },
              [&](const FocusChanged& focus) { recordedFocus_ = focus.activity; },
              [&](const ActivityEnded& ended) {
                  stage_->moveTime(event);
                  endActivity(ended);
              },
              [&](const LifeAsked& asked) {
                  stage_->moveTime(event);
                  callLife(stage_->life().service(), asked);
              },
              [&](const RequestMade& request) {
                  stage_->moveTime(event);
                  answers_.take(request);
              },
              [&](const RequestAnswered& answered) {
                  stage_->moveTime(event);
                  answers_.take(answered);
              },
              [&](const PluginSwitched&) { sink_(event); },
              [&](const ErrorReported&) { sink_(event); }, [&](const RemarkMade&) { sink_(event); },
              [&](const CallMade&) { sink_(event); }, [](const auto&) {}},
        event.what);
    stage_->settle();
}

void Rerun::Impl::noteWhyNot(const std::string& rule, vo::TimePoint time)
{
    std::string& why = whyNot_[{rule, time}];
    why = "there is no such rule";
    for (const AutonomousAction& action : stage_->life().launchpad().getActions()) {
        if (action.description != rule)
            continue;
        const auto part = stage_->life().launchpad().inspectCondition(action.conditionId);
        why = !part            ? "its condition could not be registered"
              : part->isTrue() ? "its condition was true already, or the moment has gone"
                               : "its condition is false: " + joined(falseParts(*part));
    }
}

void Rerun::Impl::write(const Event& event, const KeyWritten& write)
{
    if (isLifesKey(write.key))
        return;
    if (!write.isEarlier)
        stage_->moveTime(event);
    stage_->write(event, write);
}

/// As it is known by now who has the focus, whatever its stay is called there.
void Rerun::Impl::endActivity(const ActivityEnded& ended)
{
    if (!recordedFocus_.empty() && stage_->life().service().focusedActivity() == recordedFocus_)
        activityEnded(stays_, ended.reason);
}

void Rerun::Impl::happened(const Event& event)
{
    if (hasEnded_)
        return;
    now_.take(event);
    sink_(event);
}

void Rerun::Impl::hold(const Happening& begin, vo::Duration delay, std::function<void()> turn)
{
    if (hasEnded_)
        return;
    const auto* const timer = std::get_if<TimerFired>(&begin);
    if (timer)
        timers_[timer->timer] = vo::getEventLoop()->async(
            [this, turn, number = timer->timer] {
                timers_.erase(number);
                turn();
            },
            static_cast<std::uint64_t>(delay.count()));
    else if (std::holds_alternative<WaitingSeen>(begin))
        vo::getEventLoop()->async(std::move(turn));
    else
        turn();
}

void Rerun::Impl::drop(const TimerFired& begin)
{
    const auto timer = timers_.find(begin.timer);
    if (timer == timers_.end())
        return;
    timer->second.cancel();
    timers_.erase(timer);
}

vo::Future<vo::Value> Rerun::Impl::answer(std::uint64_t /*number*/, const std::string& text)
{
    // Stays are counted as they are begun.
    if (text.rfind("start ", 0) == 0)
        ++stays_;
    return hasEnded_ ? vo::Promise<vo::Value>().future() : answers_.ask(text);
}

std::list<AutonomousAction> Rerun::Impl::suggestions(const NimbraLaunchpad& launchpad, int mask)
{
    return launchpad.getActionSuggestions(mask);
}

/// While life is being made, its memory is not known here.
void Rerun::Impl::write(const std::string& key, const KRValue& value)
{
    if (!stage_)
        early_.emplace_back(key, value);
    else
        stage_->writeNow(key, value);
}

Rerun::Rerun(Source source, Options options, Sink sink)
    : impl_(std::make_unique<Impl>(std::move(source), std::move(options), std::move(sink)))
{
}

Rerun::~Rerun() = default;

Rerun::Result Rerun::run()
{
    return impl_->run();
}

}  // namespace KR
